#include "Fixture.h"

#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/utils.h>

#include <climits>
#include <numeric>

namespace tarnwick::hdf::tests
{

using namespace TDataType;

const std::string kSlabRefused = "Error reading from dataset to a memory hyperslab!:";
const std::string kHoldsMore = "Invalid buffer size: the dataset holds more elements than this object tells!:";

struct Chunking
{
    size_t elementSize;
    Dims extent;
    Dims given; ///< By the caller; empty for the automatic rule.
    Dims chunk; ///< Expected; empty for a refusal.
    std::string words;
};

using DataSets = OpenFileTest;

TEST_F(DataSets, HaveOneChunkUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::vector<Chunking> table = {
        {8, {1000, 3}, {}, {1000, 3}, ""},
        {1, {2147483648}, {}, {2147483648}, ""},
        {1, {2147483649}, {}, {1073741824}, ""},
        {1, {65536, 65536}, {}, {21845, 21845}, ""},
        {1, {2147483648, 2}, {}, {715827882, 2}, ""},
        {8, {1000, 3}, {10, 3}, {10, 3}, ""},
        {1, {4294967295}, {4294967295}, {4294967295}, ""},
        {1, {4294967296}, {4294967296}, {}, "Invalid chunk size: The maximum size for any chunk is 4GB.:"},
        {1, {4294967296, 3}, {4294967296, 4}, {}, "Invalid chunk size: Must be smaller than data set dimensions.:"}};
    for (const Chunking& row : table)
    {
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
        EXPECT_EQ(chunk, row.chunk) << Json(row.extent) << Json(row.given);
    }
}

TEST_F(DataSets, OfAnArrayOrTableThatWasReopenedInAnotherGroupAreReplacedThere)
{
    int numbers[] = {1, 2, 3};
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const auto before = root->CreateGroup("before");
    const auto after = root->CreateGroup("after");
    const auto array = before->CreateArrayFromBuffer("a", numbers, Int, 3, 1);
    const auto table = before->CreateTableFromBuffer("t", numbers, 3, row.get(), 0, -1, 0);
    after->CreateArrayFromBuffer("a", numbers, Int, 3, 1);
    after->CreateTableFromBuffer("t", numbers, 3, row.get(), 0, -1, 0);

    array->ReOpen(after->LocationID(), "a");
    table->ReOpen(after->LocationID(), "t");
    array->SetFromBuffer(numbers, Int, 2, 1);
    table->SetFromBuffer(numbers, 2, -1, 0);

    EXPECT_EQ(before->GetArray("a")->GetLength(), 3U);
    EXPECT_EQ(before->GetTable("t")->GetNumberOfRows(), 3U);
    EXPECT_EQ(ContentOf(after->GetArray("a")->LocationID()), "[2] chunk [2]: [1,2]");
    EXPECT_EQ(after->GetTable("t")->GetNumberOfRows(), 2U);
}

TEST_F(DataSets, OfAReplacedArrayHaveTheCompressionOfItsObjectWhichIsNoneForAnOpenedOne)
{
    int values[] = {1, 2, 3, 4};
    const auto made = IArray::CreateFromBuffer(file, rootId, "a", values, Int, 3, 1, 6);

    made->SetFromBuffer(values, Int, 4, 1);
    EXPECT_EQ(StorageOf(made->LocationID()), " chunk [4] deflate 6");

    root->GetArray("a")->SetFromBuffer(values, Int, 3, 1);
    EXPECT_EQ(StorageOf(root->GetArray("a")->LocationID()), " chunk [3]");
}

TEST_F(DataSets, ThatHoldMoreThanTheirHandleTellsAreMovedAgainAfterTheyAreReopened)
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    Ints buffer = {1, 2, 7, 7};
    const ScopedDataSet numbers = Make(rootId, "a", {H5T_NATIVE_INT, {2}, {2}, {H5S_UNLIMITED}}, buffer.data());
    const ScopedDataSet rows = Make(rootId, "t", {row.get(), {2}, {2}, {H5S_UNLIMITED}}, buffer.data());
    Make(rootId, "texts", {TextType(4, H5T_CSET_UTF8).get(), {1, 1000}}); // read as a line
    const auto texts = root->GetArray("texts");
    const auto array = root->GetArray("a");
    const auto table = root->GetTable("t");
    int* const moved = buffer.data();
    for (const hsize_t length : {3U, 4U})
    {
        H5Dset_extent(numbers.get(), &length);
        H5Dset_extent(rows.get(), &length);
        ExpectWords({{[&] { texts->GetToBuffer(moved, Undefined); }, kHoldsMore},
                     {[&] { texts->SetFromBuffer(moved, Undefined, 1, 4); }, kHoldsMore},
                     {[&] { array->GetToBuffer(moved, Int); }, kHoldsMore},
                     {[&] { IArray(*array).GetToBuffer(moved, Int); }, kHoldsMore},
                     {[&] { array->SetFromBuffer(moved, Int, length - 1, 1); }, kHoldsMore},
                     {[&] { table->GetToBuffer(moved, -1); }, kHoldsMore},
                     {[&] { ITable(*table).GetToBuffer(moved, -1); }, kHoldsMore},
                     {[&] { table->SetFromBuffer(moved, length - 1, -1, 0); }, kHoldsMore},
                     {[&] { table->SetFromSelection(moved, length - 1, {0}, -1, 0, 0); }, kHoldsMore}});

        array->ReOpen(rootId, "a");
        table->ReOpen(rootId, "t");
        array->GetToBuffer(moved, Int);
        table->GetToBuffer(moved, -1);
    }
    EXPECT_EQ(buffer, (Ints{1, 2, 0, 0}));
}

struct Slab
{
    int start;
    int stride;
    int count;
    std::string words;
};

// Plain HDF5 crashes on some of those that are refused.
TEST_F(DataSets, AreReadByTheHyperslabsThatHdf5TakesAndRefuseTheOthersAtItsStep)
{
    const std::vector<Slab> refused = {{3, 0, 1, "Error creating array space hyperslab!:"},
                                       {3, 1, -1, kSlabRefused},
                                       {19, 1, -5, kSlabRefused},
                                       {3, -1, 5, kSlabRefused},
                                       {-1, 1, 5, kSlabRefused},
                                       {INT_MAX, -1, INT_MAX, kSlabRefused}};
    const Ints numbers = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    Make(rootId, "contiguous", {H5T_NATIVE_INT, {20}}, numbers.data());
    Make(rootId, "chunks", {H5T_NATIVE_INT, {20}, {5}}, numbers.data());
    const auto array = root->GetArray("contiguous");
    Ints read(8);

    array->GetFromHyperslab(read.data(), 19, -9, 3, Int);
    EXPECT_EQ(read, (Ints{19, 10, 1, 0, 0, 0, 0, 0}));
    for (const Slab& slab : refused)
    {
        EXPECT_EQ(WordsOf([&] { array->GetFromHyperslab(read.data(), slab.start, slab.stride, slab.count, Int); }),
                  slab.words);
    }
    EXPECT_EQ(WordsOf([&] { root->GetArray("chunks")->GetFromHyperslab(read.data(), 14, -1, 8, Int); }), kSlabRefused);
}

TEST_F(DataSets, AreSpreadOverNoPlaceOutsideABuffer)
{
    // A buffer that is taken for longer than it is stays as it is.
    Make(rootId, "a", {H5T_NATIVE_INT, {3}, {3}, {}, &FillNever});
    const auto array = root->GetArray("a");
    int places[6] = {};

    ExpectWords({{[&] { array->GetToMemoryHyperslab(places, 0, INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { array->GetToMemoryHyperslab(places, 3, -INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { array->GetToMemoryHyperslab(places, 0, 1, -2, Int); }, kSlabRefused}});
}

TEST_F(DataSets, OfTextLieInABufferItemByItemPaddedOrCut)
{
    const auto ofTheLongest = IArray::CreateBufferFromStringVector({"ab", "c"}, 0);
    const auto ofTwoBytes = IArray::CreateBufferFromStringVector({"abc", "", "d"}, 2);

    EXPECT_EQ(std::string(ofTheLongest.get(), 4), std::string("abc\0", 4));
    EXPECT_EQ(std::string(ofTwoBytes.get(), 6), std::string("ab\0\0d\0", 6));
}

TEST_F(DataSets, OfTextWithoutASizeAreMovedInPlaceByTheByte)
{
    const auto line = root->CreateArrayFromBuffer("line", std::string("abc").data(), String, 3, 0);
    const auto none = root->CreateArray("none", String, 0);
    Make(rootId, "scalar", {TextType(4, H5T_CSET_UTF8).get(), {}}, "text");
    Make(rootId, "Latin-1", {TextType(4).get(), {}}, "text");
    std::string bytes = "xyz";
    std::string read = "???text";

    line->SetFromBuffer(bytes.data(), String, 3, 0);
    root->GetArray("scalar")->SetFromBuffer(bytes.data(), Undefined, 0, 0);
    line->GetToBuffer(read.data(), Undefined);
    root->GetArray("scalar")->GetToBuffer(read.data() + 3, Undefined);

    EXPECT_EQ(read, std::string("xyzxext"));
    ExpectWords({{[&] { none->SetFromBuffer(bytes.data(), String, 0, 0); }, ""},
                 {[&] { root->GetArray("Latin-1")->SetFromBuffer(bytes.data(), Undefined, 0, 0); },
                  "error writing to dataset:"}});
}

TEST_F(DataSets, OfTextAreReadIntoTheMemoryOfOtherTexts)
{
    const ScopedType ascii = TextType(40);
    const auto stored = IArray::CreateBufferFromStringVector({"caf\xE9", std::string(40, 'x'), "", "plain"}, 40);
    const ScopedDataSet dataSet = Make(rootId, "texts", {ascii.get(), {4}}, stored.get());
    Names texts = {"one", "two", "three", std::string(100, 'y')};
    const char* const largest = texts[3].data();
    for (int time = 1; time <= 2; ++time)
    {
        utils::ReadStringDataSet(texts, dataSet.get(), ascii.get(), ascii.get(), 4, 40);

        EXPECT_EQ(texts, (Names{"café", std::string(40, 'x'), "", "plain"}));
        EXPECT_EQ(texts[3].data(), largest);
    }
}

TEST_F(DataSets, OfTextAreReadUpToTheCountInTheOrderOfTheFileHoweverManyItClaims)
{
    const std::string all = "abcdefghijklmnopqrstuvwx";
    const ScopedType byte = TextType(1);
    const ScopedDataSet bytes = Make(rootId, "bytes", {byte.get(), {2, 3, 4}}, all.data());
    const ScopedDataSet huge = Make(rootId, "huge", {byte.get(), {hsize_t{1} << 50U}, {1024}});
    Names texts = {"before"};
    for (size_t count = 0; count <= all.size() + 2; ++count)
    {
        utils::ReadStringDataSet(texts, bytes.get(), byte.get(), byte.get(), count, 1);

        EXPECT_EQ(std::accumulate(texts.begin(), texts.end(), std::string()), all.substr(0, count));
        EXPECT_EQ(texts.size(), count);
    }
    utils::ReadStringDataSet(texts, huge.get(), byte.get(), byte.get(), 1, 1);
    EXPECT_EQ(texts, Names{""});
}

} // namespace tarnwick::hdf::tests
