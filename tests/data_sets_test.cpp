#include "Fixture.h"

#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/utils.h>

#include <climits>
#include <numeric>

namespace tarnwick::hdf::tests
{

using namespace TDataType;

namespace
{

const std::string kSlabRefused = "Error reading from dataset to a memory hyperslab!:";
const std::string kHoldsMore = "Invalid buffer size: the dataset holds more elements than this object tells!:";

using Ints = std::vector<int>;

Ints Numbered(size_t count)
{
    Ints numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

} // namespace

struct Chunking
{
    size_t elementSize;
    Dims extent;
    Dims given; ///< By the caller; empty for the automatic rule.
    Dims chunk; ///< Expected; empty for a refusal.
    std::string words;
};

struct DataSets : OpenFileTest
{
    /// The numbers 0, 1, 2 ... as plain HDF5 stores them.
    boost::shared_ptr<IArray> StoreNumbers(const std::string& name, const Dims& extent, const Dims& chunk = {})
    {
        const hsize_t count = std::accumulate(extent.begin(), extent.end(), hsize_t{1}, std::multiplies<>());
        Make(root->LocationID(), name, {H5T_NATIVE_INT, extent, chunk}, Numbered(count).data());
        return root->GetArray(name);
    }
};

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

TEST_F(DataSets, OfATakenNameAreRefusedInTheWordsOfEachFactory)
{
    const hid_t at = root->LocationID();
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    int number = 1;
    root->CreateTable("t", row.get());

    ExpectWords({{[&] { ITable::CreateEmpty(file, at, "t", row.get()); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::Create(file, at, "t", 1, row.get(), 0); }, "Table already exist. Fail to create!:"},
                 {[&] { ITable::CreateFromBuffer(file, at, "t", &number, 1, row.get(), 0, 0, 0); },
                  "could not create dataset:"}});
}

TEST_F(DataSets, OfAnArrayThatWasReopenedInAnotherGroupAreReplacedThere)
{
    int numbers[] = {1, 2, 3};
    const auto before = root->CreateGroup("before");
    const auto after = root->CreateGroup("after");
    const auto array = before->CreateArrayFromBuffer("a", numbers, Int, 3, 1);
    after->CreateArrayFromBuffer("a", numbers, Int, 3, 1);

    array->ReOpen(after->LocationID(), "a");
    array->SetFromBuffer(numbers, Int, 2, 1);

    EXPECT_EQ(ContentOf(before->GetArray("a")->LocationID()), "[3] chunk [3]: [1,2,3]");
    EXPECT_EQ(ContentOf(after->GetArray("a")->LocationID()), "[2] chunk [2]: [1,2]");
}

TEST_F(DataSets, OfAReplacedArrayHaveTheCompressionOfItsObjectWhichIsNoneForAnOpenedOne)
{
    int values[] = {1, 2, 3, 4};
    const auto made = IArray::CreateFromBuffer(file, root->LocationID(), "a", values, Int, 3, 1, 6);

    made->SetFromBuffer(values, Int, 4, 1);
    EXPECT_EQ(StorageOf(made->LocationID()), " chunk [4] deflate 6");

    root->GetArray("a")->SetFromBuffer(values, Int, 3, 1);
    EXPECT_EQ(StorageOf(root->GetArray("a")->LocationID()), " chunk [3]");
}

TEST_F(DataSets, ThatHoldMoreThanTheirHandleTellsAreMovedAgainAfterTheyAreReopened)
{
    const hid_t parent = root->LocationID();
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const ScopedDataSet numbers = Make(parent, "a", {H5T_NATIVE_INT, {2}, {2}, {H5S_UNLIMITED}});
    const ScopedDataSet rows = Make(parent, "t", {row.get(), {2}, {2}, {H5S_UNLIMITED}});
    const auto array = root->GetArray("a");
    const auto table = root->GetTable("t");
    Make(parent, "texts", {TextType(4, H5T_CSET_UTF8).get(), {1, 1000}}); // read as a line
    const auto texts = root->GetArray("texts");
    Ints buffer = {1, 2};
    array->SetFromBuffer(buffer.data(), Int, 2, 1);
    table->SetFromBuffer(buffer.data(), 2, -1, 0);

    for (const hsize_t length : {3U, 4U})
    {
        H5Dset_extent(numbers.get(), &length);
        H5Dset_extent(rows.get(), &length);
        ExpectWords({{[&] { texts->GetToBuffer(buffer.data(), Undefined); }, kHoldsMore},
                     {[&] { texts->SetFromBuffer(buffer.data(), Undefined, 1, 4); }, kHoldsMore},
                     {[&] { array->GetToBuffer(buffer.data(), Int); }, kHoldsMore},
                     {[&] { IArray(*array).GetToBuffer(buffer.data(), Int); }, kHoldsMore},
                     {[&] { array->SetFromBuffer(buffer.data(), Int, length - 1, 1); }, kHoldsMore},
                     {[&] { table->GetToBuffer(buffer.data(), -1); }, kHoldsMore},
                     {[&] { ITable(*table).GetToBuffer(buffer.data(), -1); }, kHoldsMore},
                     {[&] { table->SetFromBuffer(buffer.data(), length - 1, -1, 0); }, kHoldsMore},
                     {[&] { table->SetFromSelection(buffer.data(), length - 1, {0}, -1, 0, 0); }, kHoldsMore}});

        array->ReOpen(parent, "a");
        table->ReOpen(parent, "t");
        buffer.assign(length, 7);
        array->GetToBuffer(buffer.data(), Int);
        table->GetToBuffer(buffer.data(), -1);
    }
    EXPECT_EQ(buffer, (Ints{1, 2, 0, 0}));
}

struct Slab
{
    int start;
    int stride;
    int count;
    Ints read;
    std::string text; ///< How the refusal begins.
};

// Plain HDF5 crashes on some of those that are refused.
TEST_F(DataSets, AreReadByTheHyperslabsThatHdf5TakesAndRefuseTheOthersAtItsStep)
{
    const std::string noSelection = "Error creating array space hyperslab!:\n#0: in func H5Sselect_hyperslab";
    const std::vector<Slab> slabs = {{3, 2, 4, {3, 5, 7, 9}, ""},
                                     {0, 1, 0, {}, ""},
                                     {3, -1, 3, {3, 2, 1}, ""},
                                     {19, -9, 3, {19, 10, 1}, ""},
                                     {3, 0, 1, {}, noSelection},
                                     {3, 1, 18, {}, kSlabRefused},
                                     {3, 1, -1, {}, kSlabRefused + "\n#0: in func H5Dread"},
                                     {19, 1, -5, {}, kSlabRefused},
                                     {3, -1, 5, {}, kSlabRefused},
                                     {-1, 1, 5, {}, kSlabRefused},
                                     {INT_MAX, -1, INT_MAX, {}, kSlabRefused}};
    const auto line = StoreNumbers("line", {20});
    for (const Slab& slab : slabs)
    {
        Ints read(20);

        const std::string text =
            TextOf([&] { line->GetFromHyperslab(read.data(), slab.start, slab.stride, slab.count, Int); });

        read.resize(slab.read.size());
        EXPECT_EQ(read, slab.read);
        EXPECT_EQ(text.empty(), slab.text.empty());
        EXPECT_EQ(text.substr(0, slab.text.size()), slab.text) << &slab - slabs.data();
    }
}

TEST_F(DataSets, OfChunksAreNotReadBackwardsAndThoseOfTwoDimensionsByTheOffsetsOfBoth)
{
    size_t start[] = {1, 2};
    size_t stride[] = {2, 1};
    size_t count[] = {2, 3};
    Ints read(8);

    EXPECT_EQ(WordsOf([&] { StoreNumbers("line", {20}, {5})->GetFromHyperslab(read.data(), 14, -1, 8, Int); }),
              kSlabRefused);
    StoreNumbers("plane", {4, 5})->GetFromHyperslab(read.data(), 6, 2, start, stride, count, Int);
    EXPECT_EQ(read, (Ints{7, 8, 9, 17, 18, 19, 0, 0}));
}

TEST_F(DataSets, AreSpreadOverNoPlaceOutsideABuffer)
{
    // Nothing was written and nothing fills, so that a buffer that is taken for longer than it is stays as it is.
    const auto neverFill = [](hid_t list)
    {
        H5Pset_fill_time(list, H5D_FILL_TIME_NEVER);
    };
    Make(root->LocationID(), "a", {H5T_NATIVE_INT, {3}, {3}, {}, neverFill});
    const auto array = root->GetArray("a");
    int places[6] = {};

    ExpectWords({{[&] { array->GetToMemoryHyperslab(places, 0, INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { array->GetToMemoryHyperslab(places, 3, -INT_MAX, 3, Int); }, kSlabRefused},
                 {[&] { array->GetToMemoryHyperslab(places, 0, 1, -2, Int); }, kSlabRefused}});
}

struct Texts
{
    Names texts;
    size_t roomForEach;
    std::string buffer;
};

TEST_F(DataSets, OfTextLieInABufferItemByItemPaddedOrCut)
{
    const std::vector<Texts> table = {{{"ab", "c"}, 0, std::string("abc\0", 4)},
                                      {{"ab", "c"}, 1, "ac"},
                                      {{"ab", "c"}, 3, std::string("ab\0c\0\0", 6)},
                                      {{"abc", "", "d"}, 2, std::string("ab\0\0d\0", 6)}};
    for (const Texts& row : table)
    {
        const auto buffer = IArray::CreateBufferFromStringVector(row.texts, row.roomForEach);

        EXPECT_EQ(std::string(buffer.get(), row.buffer.size()), row.buffer);
    }
}

TEST_F(DataSets, OfTextWithoutASizeAreMovedInPlaceByTheByte)
{
    const auto line = root->CreateArrayFromBuffer("line", std::string("abc").data(), String, 3, 0);
    const auto none = root->CreateArray("none", String, 0);
    Make(root->LocationID(), "scalar", {TextType(4, H5T_CSET_UTF8).get(), {}}, "text");
    Make(root->LocationID(), "Latin-1", {TextType(4).get(), {}}, "text");
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

TEST_F(DataSets, OfTextAreReadUpToTheCountInTheOrderOfTheFile)
{
    const std::string all = "abcdefghijklmnopqrstuvwx";
    const ScopedType byte = TextType(1);
    const ScopedDataSet bytes = Make(root->LocationID(), "bytes", {byte.get(), {2, 3, 4}}, all.data());
    for (size_t count = 0; count <= all.size() + 2; ++count)
    {
        Names texts = {"before"};

        utils::ReadStringDataSet(texts, bytes.get(), byte.get(), byte.get(), count, 1);

        EXPECT_EQ(std::accumulate(texts.begin(), texts.end(), std::string()), all.substr(0, count));
        EXPECT_EQ(texts.size(), count);
    }
}

TEST_F(DataSets, OfTextCostTheMemoryOfTheCountWhateverTheyClaim)
{
    const ScopedType type = TextType(8);
    const ScopedDataSet dataSet = Make(root->LocationID(), "texts", {type.get(), {hsize_t{1} << 30U}, {1024}});
    const long before = PeakKilobytes();
    Names texts;

    utils::ReadStringDataSet(texts, dataSet.get(), type.get(), type.get(), 1, 8);

    EXPECT_EQ(texts, Names{""});
    EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
}

TEST_F(DataSets, OfTextAreReadBeforeTheirCharacterSetIsAskedFor)
{
    Names texts = {"before"};

    EXPECT_EQ(WordsOf([&] { utils::ReadStringDataSet(texts, -1, H5T_NATIVE_INT, H5T_NATIVE_INT, 1, 4); }),
              "error reading string buffer from dataset:");
    EXPECT_EQ(texts, Names{"before"});
}

} // namespace tarnwick::hdf::tests
