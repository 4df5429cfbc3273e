#include "Fixture.h"

#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/typed.h>
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
    Dims extent;      ///< In bytes.
    Dims given;       ///< By the caller; empty for the automatic rule.
    std::string told; ///< The chunk, or why there is none.
};

using DataSets = OpenFileTest;

TEST_F(DataSets, HaveOneChunkUpTo2GiBAndTheFewestEqualPiecesAbove)
{
    const std::vector<Chunking> table = {
        {{2147483648}, {}, "[2147483648]"},
        {{2147483649}, {}, "[1073741824]"},
        {{65536, 65536}, {}, "[21845,21845]"},
        {{2147483648, 2}, {}, "[715827882,2]"},
        {{4294967295}, {4294967295}, "[4294967295]"},
        {{4294967296}, {4294967296}, "Invalid chunk size: The maximum size for any chunk is 4GB.:"},
        {{4294967296, 3}, {4294967296, 4}, "Invalid chunk size: Must be smaller than data set dimensions.:"}};
    for (const Chunking& row : table)
    {
        const int rank = static_cast<int>(row.extent.size());
        Dims chunk(row.extent.size());
        const auto create = [&]
        {
            IDataSetBuilder builder;
            builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
            builder.CreateSpace(rank, row.extent.data(), 1, row.given.empty() ? nullptr : row.given.data());
            H5Pget_chunk(builder.dcpl, rank, chunk.data());
        };

        const std::string words = WordsOf(create);

        EXPECT_EQ(words.empty() ? Json(chunk).dump() : words, row.told);
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

// Plain HDF5 crashes on some of those that are refused.
TEST_F(DataSets, AreMovedByTheHyperslabsThatHdf5TakesAndRefuseTheOthersAtItsStep)
{
    const Ints numbers = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    Make(rootId, "contiguous", {H5T_NATIVE_INT, {20}}, numbers.data());
    Make(rootId, "chunks", {H5T_NATIVE_INT, {20}, {5}}, numbers.data());
    Make(rootId, "unfilled", {H5T_NATIVE_INT, {3}, {3}, {}, &FillNever}); // what reads too much changes nothing
    const auto array = root->GetArray("contiguous");
    const auto unfilled = root->GetArray("unfilled");
    int moved[20] = {};

    array->GetFromHyperslab(moved, 19, -9, 3, Int);
    EXPECT_EQ((Ints{moved[0], moved[1], moved[2]}), (Ints{19, 10, 1}));
    ExpectWords({{[&] { array->GetFromHyperslab(moved, 3, 0, 1, Int); }, "Error creating array space hyperslab!:"},
                 {[&] { array->GetFromHyperslab(moved, 3, 1, -1, Int); }, kSlabRefused},
                 {[&] { array->GetFromHyperslab(moved, 19, 1, -5, Int); }, kSlabRefused},
                 {[&] { array->GetFromHyperslab(moved, 3, -1, 5, Int); }, kSlabRefused},
                 {[&] { array->GetFromHyperslab(moved, -1, 1, 5, Int); }, kSlabRefused},
                 {[&] { array->GetFromHyperslab(moved, INT_MAX, -1, INT_MAX, Int); }, kSlabRefused},
                 {[&] { root->GetArray("chunks")->GetFromHyperslab(moved, 14, -1, 8, Int); }, kSlabRefused},
                 {[&] { unfilled->GetToMemoryHyperslab(moved, 0, INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { unfilled->GetToMemoryHyperslab(moved, 3, -INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { unfilled->GetToMemoryHyperslab(moved, 0, 1, -2, Int); }, kSlabRefused}});
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
    Make(rootId, "scalar", {TextType(4, H5T_CSET_UTF8).get(), {}}, "text");
    std::string bytes = "xyz";
    std::string read = "???text";

    line->SetFromBuffer(bytes.data(), String, 3, 0);
    root->GetArray("scalar")->SetFromBuffer(bytes.data(), Undefined, 0, 0);
    line->GetToBuffer(read.data(), Undefined);
    root->GetArray("scalar")->GetToBuffer(read.data() + 3, Undefined);

    EXPECT_EQ(read, "xyzxext");
}

TEST_F(DataSets, OfTextAreReadIntoTheMemoryOfOtherTexts)
{
    const Names stored = {"a", std::string(40, 'x')};
    const auto array = StoreArray(*root, "texts", stored);
    Names texts = {std::string(100, 'y'), std::string(100, 'z')};
    const char* const second = texts[1].data();

    utils::ReadStringDataSet(texts, array->LocationID(), array->GetTypeID(), array->GetTypeID(), 2, 40);

    EXPECT_EQ(texts, stored);
    EXPECT_EQ(texts[1].data(), second);
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
