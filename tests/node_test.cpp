#include "Fixture.h"

#include <tarnwickhdf/internal/CheckResult.h>

namespace tarnwick::hdf::tests
{

using Object = HdfTest;
using Node = OpenFileTest;
using Attribute = OpenFileTest;

TEST_F(Object, LeftOpenIsSeenByTheCountOfIds)
{
    const auto spaces = 3;
    const auto lists = 5;
    const auto types = 6;
    IdCounts expected = CountIds();

    const ScopedSpace space(H5Screate(H5S_NULL));
    const ScopedType type(H5Tcopy(H5T_NATIVE_INT));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));

    ++expected[spaces];
    ++expected[lists];
    ++expected[types];
    EXPECT_EQ(CountIds(), expected);
}

TEST_F(Object, FailsWithATracebackThatBeginsAtTheCall)
{
    const std::string text = TextOf([] { CheckResult(H5Fclose(-1), "no file"); });

    const std::regex shape("no file:\n#0: in func H5Fclose\\(\\): .+\n  major: .+\n  minor: .+\n(#[^#]+\n)*");
    EXPECT_TRUE(std::regex_match(text, shape)) << text;
}

TEST_F(Object, BreaksARuleWithoutATraceback)
{
    H5Eclear1();

    EXPECT_EQ(TextOf([] { CheckResult(-1, "a ", "name", "'"); }), "a name':\n");
}

TEST_F(Object, FailsForResultsBelowZeroAloneOnTheirWholeWidth)
{
    const long long negativeInItsLow32Bits = 0xFFFFFFFFLL;
    const long long negativeInItsHighBitsAlone = -(1LL << 40U);

    EXPECT_NO_THROW(CheckResult(0, "rule"));
    EXPECT_NO_THROW(CheckResult(negativeInItsLow32Bits, "rule"));
    EXPECT_THROW(CheckResult(negativeInItsHighBitsAlone, "rule"), std::runtime_error);
    EXPECT_NO_THROW(GarbageCollect());
}

TEST_F(Object, OfEachElementTypeHasTheSizeOfWhatHdf5MovesForIt)
{
    for (int value = -1; value < 20; ++value)
    {
        SCOPED_TRACE(value);
        const auto type = static_cast<TDataType::TDataType>(value);
        const bool hasType = value >= TDataType::Char && value <= TDataType::String;
        const bool hasSize = value >= TDataType::Char && value < TDataType::String;
        size_t moved = 0;
        size_t told = 0;

        EXPECT_EQ(WordsOf([&] { moved = H5Tget_size(INode::DataTypeToHDFType(type)); }),
                  hasType ? "" : "invalid TDataType:");
        EXPECT_EQ(WordsOf([&] { told = INode::GetDataTypeSize(type); }), hasSize ? "" : "unknown datatype!");
        EXPECT_TRUE(!hasSize || told == moved);
    }
}

TEST_F(Node, OfAClosedFileFailsInItsOwnWords)
{
    const auto group = root->CreateGroup("g");
    file->Close();

    EXPECT_FALSE(group->IsValid());
    EXPECT_EQ(group->LocationID(), -1);
    EXPECT_EQ(group->GetName(), "g");
    EXPECT_TRUE(group->HasAttr("a"));
    EXPECT_FALSE(group->HasGroup("x"));
    EXPECT_FALSE(group->HasArray("x"));
    EXPECT_FALSE(group->HasTable("x"));
    ExpectWords({{[&] { group->GetFullName(); }, "Unable to get full name:"},
                 {[&] { group->Flush(); }, "Flush Fail!:"},
                 {[&] { group->GetAttr("a"); }, "invalid attribute name: a:"},
                 {[&] { group->SetAttr("a", ""); }, "Fail to delete an existing attribute named: a:"},
                 {[&] { group->ListAttrs(); }, "could not get number of attributes:"},
                 {[&] { group->GetGroup("x"); }, "Group does not exist:"},
                 {[&] { group->HasDataSet(); }, "error getting number of objects in group:"},
                 {[&] { group->CreateGroup("x/y"); }, "could not create group 'x':"}});
}

// The line that a precondition names must hold the test that failed.
void ExpectPrecondition(const std::string& text, const std::string& unit, const std::string& meaning,
                        const std::string& condition)
{
    std::smatch parts;
    const std::regex shape("(.*):(\\d+): (.*) \\[precondition failed: (.*)\\]");
    ASSERT_TRUE(std::regex_match(text, parts, shape)) << text;
    EXPECT_EQ(parts[1], unit);
    std::ifstream source(TARNWICKHDF_SOURCES "/" + unit + ".cpp");
    std::string line;
    for (int number = 0; number < std::stoi(parts[2]); ++number)
    {
        std::getline(source, line);
    }
    EXPECT_NE(line.find(condition), std::string::npos) << line;
    EXPECT_EQ(parts[3], meaning);
    EXPECT_EQ(parts[4], condition);
}

TEST_F(Node, WhoseFileObjectIsGoneBreaksAPrecondition)
{
    int number = 1;
    EXPECT_FALSE(root->HasArray("b"));
    ExpectPrecondition(
        WordsOf([&] { IArray::CreateFromBuffer({}, root->LocationID(), "b", &number, TDataType::Int, 1, 1, 0); }),
        "Array.tarnwickhdf", "file must not be NULL", "file.get() != NULL");
    EXPECT_FALSE(root->HasArray("b"));

    file.reset();
    ExpectPrecondition(WordsOf([&] { root->GetEncoding(); }), "Node.tarnwickhdf", "INode::GetEncoding(): file is NULL",
                       "f.get() != NULL");
}

TEST_F(Node, TakesItsEncodingFromTheFileWhateverThatIs)
{
    for (const int encoding : {0, 1, 2, -1, 1000, -70000})
    {
        file->SetEncoding(static_cast<H5T_cset_t>(encoding));

        EXPECT_EQ(static_cast<int>(root->GetEncoding()), encoding);
    }
}

TEST_F(Node, AssignedFromAnotherFileBelongsToThatFileAlone)
{
    const auto moved = root->CreateGroup("moved");
    const auto other = Open("other.h5", "w");
    *moved = *other->GetRoot();

    file->Close();
    EXPECT_TRUE(moved->IsValid());
    EXPECT_EQ(moved->GetFullName(), "/");

    other->Close();
    EXPECT_FALSE(moved->IsValid());
}

TEST_F(Node, OfALongPathTellsItsFirst1023Characters)
{
    const std::string path = "/" + std::string(600, 'x') + "/" + std::string(600, 'y');

    EXPECT_EQ(root->CreateGroup(path)->GetFullName(), path.substr(0, 1023));
}

TEST_F(Node, ThatWasRemovedIsStillValidAndHasNoPath)
{
    const auto group = root->CreateGroup("g");

    root->DelGroup("g");

    EXPECT_FALSE(root->HasGroup("g"));
    EXPECT_TRUE(group->IsValid());
    EXPECT_EQ(group->GetName(), "g");
    EXPECT_EQ(group->GetFullName(), "");
}

TEST_F(Attribute, OfTwoTextsIsNotReadIntoRoomForOne)
{
    const ScopedType text =
        TypeOf("H5T_STRING { STRSIZE 4; STRPAD H5T_STR_NULLPAD; CSET H5T_CSET_ASCII; CTYPE H5T_C_S1; }");
    const hsize_t two = 2;
    const ScopedSpace space(H5Screate_simple(1, &two, nullptr));
    ScopedAttribute(H5Acreate2(root->LocationID(), "texts", text.get(), space.get(), H5P_DEFAULT, H5P_DEFAULT));

    EXPECT_EQ(WordsOf([&] { root->GetAttr("texts"); }), "could not read attribute: texts");
}

TEST_F(Attribute, ThatDoesNotExistOrHasAnUnknownEncodingIsRefusedInItsWords)
{
    ExpectWords({{[&] { root->GetAttrType("no"); }, "invalid attribute name: no:"},
                 {[&] { root->GetAttrName(-1); }, "could not open attribute by index:"}});

    file->SetEncoding(H5T_CSET_RESERVED_2);
    ExpectWords({{[&] { root->SetAttr("b", ""); }, "could not set encoding for attribute: b:"}});
}

} // namespace tarnwick::hdf::tests
