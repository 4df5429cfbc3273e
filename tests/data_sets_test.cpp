#include "Fixture.h"

#include <tarnwickhdf/internal/IDataSetBuilder.h>

#include <cstdint>

namespace tarnwick::hdf::tests
{

using DataSets = OpenFileTest;
using Table = OpenFileTest;

struct Chunking
{
    size_t elementSize;
    Dims extent;
    Dims given; ///< By the caller; empty for the automatic rule.
    Dims chunk; ///< Expected; empty for a refusal.
    std::string words;
};

TEST_F(DataSets, HaveOneChunkUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::string tooLarge = "Invalid chunk size: The maximum size for any chunk is 4GB.:";
    const std::string tooLong = "Invalid chunk size: Must be smaller than data set dimensions.:";
    const std::vector<Chunking> table = {{8, {1000, 3}, {}, {1000, 3}, ""},
                                         {1, {2147483648}, {}, {2147483648}, ""},
                                         {1, {2147483649}, {}, {1073741824}, ""},
                                         {1, {65536, 65536}, {}, {21845, 21845}, ""},
                                         {1, {2147483648, 2}, {}, {715827882, 2}, ""},
                                         {8, {1000, 3}, {10, 3}, {10, 3}, ""},
                                         {1, {4294967295}, {4294967295}, {4294967295}, ""},
                                         {1, {4294967296}, {4294967296}, {}, tooLarge},
                                         {1, {4294967296, 3}, {4294967296, 4}, {}, tooLong}};
    for (const Chunking& row : table)
    {
        SCOPED_TRACE(Json(row.extent).dump() + Json(row.given).dump());
        Dims chunk;
        const auto create = [&]
        {
            IDataSetBuilder builder;
            builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
            const hsize_t* const given = row.given.empty() ? nullptr : row.given.data();
            builder.CreateSpace(static_cast<int>(row.extent.size()), row.extent.data(), row.elementSize, given);
            chunk.resize(row.extent.size());
            H5Pget_chunk(builder.dcpl, static_cast<int>(chunk.size()), chunk.data());
        };

        EXPECT_EQ(WordsOf(create), row.words);
        EXPECT_EQ(chunk, row.chunk);
    }
}

struct Refusals : OpenFileTest
{
    Refusals()
    {
        CreateArray("array", TDataType::Int);
        CreateArray("texts", TDataType::String);
        root->CreateTable("table", row.get());
    }

    boost::shared_ptr<IArray> CreateArray(const std::string& name, TDataType::TDataType type)
    {
        return root->CreateArrayFromBuffer(name, numbers, type, 3, 1);
    }

    int numbers[3] = {1, 2, 3};
    ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
};

TEST_F(Refusals, OfNamesAndTypesAreToldByEveryFactory)
{
    const hid_t parent = root->LocationID();
    ExpectWords(
        {{[&] { CreateArray("", TDataType::Int); }, "could not get info for :"},
         {[&] { CreateArray("new", TDataType::VarLenString); }, "invalid TDataType:"},
         {[&] { ITable::CreateEmpty(file, parent, "table", row.get()); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::Create(file, parent, "table", 1, row.get(), 0); }, "Table already exist. Fail to create!:"},
         {[&] { ITable::CreateFromBuffer(file, parent, "table", numbers, 1, row.get(), 0, 0, 0); },
          "could not create dataset:"}});
}

TEST_F(Refusals, OfAnUnknownEncodingNameTheStepOfTheTextsType)
{
    file->SetEncoding(H5T_CSET_RESERVED_2);

    ExpectWords({{[&] { CreateArray("texts", TDataType::String); }, "could not write charset for array: texts:"},
                 {[&] { CreateArray("new", TDataType::String); }, "error calling H5Tset_cset for array: new:"}});
}

TEST_F(Refusals, OfARowThatIsTextOrNothingLeaveTheNumbersExtended)
{
    const auto extensible = root->CreateExtensibleArray2D("x", TDataType::Int, 0, 2, 3, 1, 0);

    ExpectWords({{[&] { extensible->AppendRowFromBuffer(numbers, TDataType::String); },
                  "error during io operation for ExtensibleArray2D dataset:"},
                 {[&] { extensible->AppendRowFromBuffer(numbers, TDataType::Undefined); }, "invalid TDataType:"}});

    EXPECT_EQ(extensible->GetNumberOfRows(), 0U);
    EXPECT_EQ(ContentOf(extensible->LocationID()), "[2,2] chunk [3,1]: [0,0,0,0]");
}

TEST_F(Refusals, OfAFileThatMayNotBeWrittenLeaveWhatIsThere)
{
    file->Close();
    file = Open("test.h5", "r");
    root = file->GetRoot();

    ExpectWords({{[&] { CreateArray("array", TDataType::Int); }, "error writing to dataset:"},
                 {[&] { root->CreateArray("array", TDataType::Int, 0); }, "Fail to remove array: 'array':"}});

    EXPECT_EQ(ContentOf(root->GetArray("array")->LocationID()), "[3] chunk [3]: [1,2,3]");
}

TEST_F(Refusals, ToReopenLeaveAnArrayThatARewriteOfItsShapeCannotFill)
{
    const auto texts = root->GetArray("texts");
    EXPECT_EQ(WordsOf([&] { texts->SetFromBuffer(numbers, TDataType::String, 3, 1); }), "");

    EXPECT_THROW(texts->ReOpen(root->LocationID(), "no"), std::runtime_error);

    EXPECT_FALSE(texts->IsValid());
    EXPECT_EQ(TextOf([&] { texts->SetFromBuffer(numbers, TDataType::String, 3, 1); }).find("error writing to dataset:"),
              0U);
}

TEST_F(DataSets, OfTextLieInABufferItemByItemPaddedOrCut)
{
    const Names texts = {"ab", "c"};

    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector(texts, 1).get(), 2), "ac");
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector(texts, 0).get(), 4), std::string("abc\0", 4));
    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector(texts, 3).get(), 6), std::string("ab\0c\0\0", 6));
}

TEST_F(DataSets, OfTextDoNotRunIntoTheItemBehindATextThatIsTooLong)
{
    const Names texts = {"abc", "", "d"};

    EXPECT_EQ(std::string(IArray::CreateBufferFromStringVector(texts, 2).get(), 6), std::string("ab\0\0d\0", 6));
}

TEST_F(DataSets, OfTextThatAreEmptyAreRewrittenInPlace)
{
    const auto empty = root->CreateArray("e", TDataType::String, 0);

    EXPECT_EQ(WordsOf([&] { empty->SetFromBuffer(nullptr, TDataType::String, 0, 0); }), "");
}

TEST_F(DataSets, OfAnArrayThatWasReopenedInAnotherGroupAreReplacedThere)
{
    int numbers[] = {1, 2, 3};
    const auto before = root->CreateGroup("before");
    const auto after = root->CreateGroup("after");
    const auto array = before->CreateArrayFromBuffer("a", numbers, TDataType::Int, 3, 1);
    after->CreateArrayFromBuffer("a", numbers, TDataType::Int, 3, 1);

    array->ReOpen(after->LocationID(), "a");
    array->SetFromBuffer(numbers, TDataType::Int, 2, 1);

    EXPECT_EQ(ContentOf(before->GetArray("a")->LocationID()), "[3] chunk [3]: [1,2,3]");
    EXPECT_EQ(ContentOf(after->GetArray("a")->LocationID()), "[2] chunk [2]: [1,2]");
}

TEST_F(DataSets, AreSpreadOverABufferWhoseLengthIsAProductOf32Bits)
{
    // Nothing was written and nothing fills, so that a buffer that is taken for longer than it is stays as it is.
    const hsize_t length = 3;
    const ScopedSpace space(H5Screate_simple(1, &length, nullptr));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(list.get(), 1, &length);
    H5Pset_fill_time(list.get(), H5D_FILL_TIME_NEVER);
    ScopedDataSet(
        H5Dcreate2(root->LocationID(), "a", H5T_NATIVE_INT, space.get(), H5P_DEFAULT, list.get(), H5P_DEFAULT));
    const auto array = root->GetArray("a");
    const int stride = 2147483647; // Three times that are 2147483645 in 32 bits.
    int place = 0;

    EXPECT_EQ(WordsOf([&] { array->GetToMemoryHyperslab(&place, 0, stride, 3, TDataType::Int); }),
              "Error reading from dataset to a memory hyperslab!:");
}

TEST_F(Table, WrittenWithItsOwnCompoundTypeStaysTheDataSetThatItIs)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    int rows[] = {1, 2, 3, 4};
    const auto table = root->CreateTableFromBuffer("t", rows, 4, row.get(), 0, -1, 2);
    const hid_t dataSet = table->LocationID();
    std::reverse(std::begin(rows), std::end(rows));

    table->SetFromBuffer(rows, 4, table->GetCompoundTypeID(), 0);

    EXPECT_EQ(table->LocationID(), dataSet);
    EXPECT_EQ(ContentOf(dataSet, row.get()), "[4] chunk [2]: [4,3,2,1]");
}

TEST_F(Table, HasNoColumnOutsideItsColumns)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const auto table = root->CreateTable("t", row.get());
    Names texts;

    ExpectWords({{[&] { table->GetColumnType(1); }, "Invalid column index: 1 (1 columns)"},
                 {[&] { table->FeedStringVector(texts, -1); }, "Invalid column index: -1 (1 columns)"}});
}

TEST_F(Table, ReopenedOnAnotherKeepsItsColumnsAndTakesTheOthersNamesRowsAndParent)
{
    const ScopedType one = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const ScopedType two = TypeOf("H5T_COMPOUND { H5T_NATIVE_LONG \"l\"; H5T_NATIVE_SHORT \"s\"; }");
    const auto table = root->CreateGroup("group")->CreateTable("y", 2, two.get(), 0);
    root->CreateTable("z", one.get());

    table->ReOpen(root->LocationID(), "z");

    EXPECT_EQ(table->GetName(), "y");
    EXPECT_EQ(table->GetColumnName(0), "id");
    EXPECT_EQ(table->GetColumnName(1), "");
    EXPECT_EQ(table->GetNumberOfColumns(), 2U);
    EXPECT_EQ(table->GetColumnType(0).hdfType, table->GetColumnTypeID(0));
    EXPECT_EQ(H5Tget_size(table->GetColumnTypeID(1)), sizeof(short));
    EXPECT_EQ(table->ParentID(), root->LocationID());
    EXPECT_EQ(table->GetNumberOfRows(), 0U);
}

} // namespace tarnwick::hdf::tests
