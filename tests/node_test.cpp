#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>

namespace tarnwick::hdf::tests
{

using namespace TDataType;
using Object = HdfTest;
using Node = OpenFileTest;
using Group = OpenFileTest;
using DataSets = OpenFileTest;

TEST_F(Object, IdsThatAreLeftOpenAreSeen)
{
    IdCounts expected = CountIds();
    const ScopedSpace space(H5Screate(H5S_NULL));
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    ++expected[3], ++expected[5], ++expected[6];
    EXPECT_EQ(CountIds(), expected);
}

TEST_F(Object, OnlyResultsBelowZeroFailAndTheTracebackBeginsAtTheCall)
{
    const std::regex shape("no file:\n#0: in func H5Fclose\\(\\): .+\n  major: .+\n  minor: .+\n(#[^#]+\n)*");
    EXPECT_TRUE(std::regex_match(TextOf([&] { CheckResult(H5Fclose(-1), "no file"); }), shape));
    H5Eclear1();
    EXPECT_EQ(TextOf([] { CheckResult(-(1LL << 40U), "a ", "name", "'"); }), "a name':\n");
    EXPECT_EQ(TextOf([] { CheckResult(0, "rule"), CheckResult(0xFFFFFFFFLL, "rule"), GarbageCollect(); }), "");
}

TEST_F(Node, EachElementTypeHasTheSizeOfWhatHdf5MovesForIt)
{
    for (int value = -1; value < 20; ++value)
    {
        const auto type = static_cast<TDataType::TDataType>(value);
        const bool known = value > 0 && value < 18;
        size_t size = 1;
        EXPECT_EQ(WordsOf([&] { size = H5Tget_size(INode::DataTypeToHDFType(type)); }),
                  known ? "" : "invalid TDataType:");
        EXPECT_EQ(WordsOf([&] { EXPECT_EQ(INode::GetDataTypeSize(type), size) << value; }),
                  known && value < 17 ? "" : "unknown datatype!");
    }
}

TEST_F(Node, AnInvalidOneFailsInItsOwnWords)
{
    int number = 1;
    const auto group = root->CreateGroup("g");
    EXPECT_TRUE(
        std::regex_match(WordsOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, Int, 1, 1, 0); }),
                         std::regex(R"(Array\.tarnwickhdf:\d+: file must not be NULL \[.*: file\.get\(\) != NULL\])")));
    EXPECT_FALSE(root->HasArray("b"));
    const auto other = IFile::Open(Path("other.h5"), "w", 0);
    const auto moved = root->CreateGroup("moved");
    *moved = *other->GetRoot();
    file->Close();
    EXPECT_TRUE(moved->IsValid() && moved->GetFullName() == "/");
    other->Close();
    EXPECT_FALSE(moved->IsValid());
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->SetAttr("a", ""); }, "Fail to delete an existing attribute named: a:"},
                 {[&] { group->ListAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->GetGroup("x"); }, "Group does not exist:"},
                 {[&] { group->HasDataSet(); }, "error getting number of objects in group:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
    EXPECT_FALSE(group->IsValid() || group->HasGroup("x") || group->HasArray("x") || group->HasTable("x"));
    EXPECT_TRUE(group->HasAttr("a") && group->LocationID() == -1 && group->GetName() == "g");
    file.reset();
    EXPECT_NE(WordsOf([&] { group->GetEncoding(); }), "");
}

TEST_F(Group, AnswersForPathsAndFailsInItsWords)
{
    Names names = {"left from before"};
    const std::string path = "/" + std::string(600, 'x') + "/" + std::string(600, 'y');
    EXPECT_EQ(root->CreateGroup(path)->GetFullName(), path.substr(0, 1023));
    H5Lcreate_soft("nowhere", root->LocationID(), "dangling", H5P_DEFAULT, H5P_DEFAULT);
    H5Lcreate_soft("/g", root->LocationID(), "soft", H5P_DEFAULT, H5P_DEFAULT);
    (root.get()->*(&Inside::ListNames))(H5G_LINK, names);
    EXPECT_EQ(names, (Names{"dangling", "soft"}));
    const auto group = root->CreateGroup("g");
    group->SetDefaultCompression(3);
    const auto child = group->CreateGroup("//h/i//");
    EXPECT_EQ(child->GetName() + child->GetFullName() + std::to_string(child->GetDefaultCompression()), "i/g/h/i3");
    EXPECT_TRUE(root->HasGroup("soft/h//i/") && child->HasGroup("/g") && !root->HasGroup("dangling/h"));
    EXPECT_EQ(root->GetGroup("/soft")->GetName() + root->GetGroup("/soft")->GetFullName(), "/soft/soft");
    EXPECT_EQ(root->CreateGroup("//"), nullptr);
    ExpectWords({{[&] { root->HasGroup(""); }, "could not get info for :"},
                 {[&] { root->CreateGroup("dangling/x"); }, "could not create group 'dangling':"},
                 {[&] { root->GetAttrType("no"); }, "invalid attribute name: no:"},
                 {[&] { root->GetAttrName(-1); }, "could not open attribute by index:"},
                 {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), root->SetAttr("b", ""); },
                  "could not set encoding for attribute: b:"},
                 {[&] { root->DelGroup("g"); }, ""}});
    EXPECT_TRUE(group->IsValid() && !root->HasGroup("g") && group->GetName() == "g" && group->GetFullName().empty());
}

TEST_F(DataSets, HaveOneChunkUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::string tooLarge = "Invalid chunk size: The maximum size for any chunk is 4GB.:";
    const std::string tooLong = "Invalid chunk size: Must be smaller than data set dimensions.:";
    using Row = std::tuple<size_t, Dims, Dims, Dims, std::string>;
    for (const auto& [elementSize, dims, given, chunk, words] :
         {Row{8, {1000, 3}, {}, {1000, 3}, ""}, Row{1, {2147483648}, {}, {2147483648}, ""},
          Row{1, {2147483649}, {}, {1073741824}, ""}, Row{1, {65536, 65536}, {}, {21845, 21845}, ""},
          Row{1, {2147483648, 2}, {}, {715827882, 2}, ""}, Row{8, {1000, 3}, {10, 3}, {10, 3}, ""},
          Row{1, {4294967295}, {4294967295}, {4294967295}, ""}, Row{1, {4294967296}, {4294967296}, {}, tooLarge},
          Row{1, {4294967296, 3}, {4294967296, 4}, {}, tooLong}})
    {
        Dims set(2);
        const auto create = [&]
        {
            IDataSetBuilder builder;
            builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
            builder.CreateSpace(int(dims.size()), dims.data(), elementSize, given.empty() ? nullptr : given.data());
            set.resize(static_cast<size_t>(H5Pget_chunk(builder.dcpl, 2, set.data())));
        };
        EXPECT_EQ(WordsOf(create), words);
        EXPECT_EQ(set, words.empty() ? chunk : Dims(2)) << dims[0];
    }
}

TEST_F(DataSets, RefuseWhatDoesNotFitOrMayNotBeWrittenAndLoseNothing)
{
    int numbers[] = {1, 2, 3};
    size_t ones[] = {1}, huge[] = {SIZE_MAX}, two[] = {2};
    Names texts;
    const ScopedType type = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const hid_t row = type.get();
    const auto create = [&](const char* name, auto elementType)
    {
        return root->CreateArrayFromBuffer(name, numbers, elementType, 3, 1);
    };
    create("a", Int);
    const auto strings = create("s", String);
    const auto table = root->CreateTable("t", row);
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 1).get(), 2), "ac");
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector({"ab", "c"}, 3).get(), 6), std::string("ab\0c\0\0", 6));
    EXPECT_EQ(WordsOf([&] { root->CreateArray("e", String, 0)->SetFromBuffer(nullptr, String, 0, 0); }), "");
    EXPECT_THROW(strings->ReOpen(root->LocationID(), "no"), std::runtime_error);
    ExpectWords(
        {{[&] { strings->SetFromBuffer(numbers, String, 3, 1); }, "error writing to dataset:"},
         {[&] { root->GetArray("a")->GetFromHyperslab(numbers, 1, 1, ones, huge, two, Int); },
          "Error creating array space hyperslab!:"},
         {[&] { create("", Int); }, "could not get info for :"},
         {[&] { create("new", VarLenString); }, "invalid TDataType:"},
         {[&] { root->CreateExtensibleArray2D("x", Int, 0, 2, 3, 1, 0)->AppendRowFromBuffer(numbers, String); },
          "error during io operation for ExtensibleArray2D dataset:"},
         {[&] { root->GetExtensibleArray2D("x")->AppendRowFromBuffer(numbers, Undefined); }, "invalid TDataType:"},
         {[&] { ITable::CreateEmpty(file, root->LocationID(), "t", row); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::Create(file, root->LocationID(), "t", 1, row, 0); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::CreateFromBuffer(file, root->LocationID(), "t", numbers, 1, row, 0, 0, 0); },
          "could not create dataset:"},
         {[&] { table->GetColumnType(1); }, "Invalid column index: 1 (1 columns)"},
         {[&] { table->FeedStringVector(texts, -1); }, "Invalid column index: -1 (1 columns)"},
         {[&] { file->SetEncoding(H5T_CSET_RESERVED_2), create("s", String); },
          "could not write charset for array: s:"},
         {[&] { create("new", String); }, "error calling H5Tset_cset for array: new:"}});
    file->Close();
    file = IFile::Open(Path("test.h5"), "r", 0);
    root = file->GetRoot();
    ExpectWords({{[&] { create("a", Int); }, "error writing to dataset:"},
                 {[&] { root->CreateArray("a", Int, 0); }, "Fail to remove array: 'a':"}});
    EXPECT_EQ(ContentOf(root->GetArray("a")->LocationID()), "[3] chunk [3]: [1,2,3]");
    EXPECT_EQ(ContentOf(root->GetExtensibleArray2D("x")->LocationID()), "[2,2] chunk [3,1]: [0,0,0,0]");
}

TEST_F(DataSets, KeepTheirColumnsWhereTheyAreReopened)
{
    const ScopedType one = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const ScopedType all = TypeOf("H5T_COMPOUND { H5T_NATIVE_LONG \"l\"; H5T_NATIVE_SHORT \"s\"; }");
    const auto x = root->CreateGroup("group")->CreateTable("y", 2, all.get(), 0);
    root->CreateTable("z", one.get());
    x->ReOpen(root->LocationID(), "z");
    EXPECT_EQ(x->GetName() + "," + x->GetColumnName(0) + "," + x->GetColumnName(1), "y,id,");
    EXPECT_TRUE(x->GetColumnType(0).hdfType == x->GetColumnTypeID(0) && H5Tget_size(x->GetColumnTypeID(1)) == 2);
    EXPECT_TRUE(x->ParentID() == root->LocationID() && x->GetNumberOfRows() == 0);
}

} // namespace tarnwick::hdf::tests
