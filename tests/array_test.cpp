#include "Fixture.h"

#include <numeric>

namespace tarnwick::hdf::tests
{

using namespace TDataType;

namespace
{

const char* const kReadRefused = "Error reading from dataset to a memory hyperslab!:";
const char* const kSelectionRefused = "Error creating array space hyperslab!:";
const char* const kHoldsMore = "Invalid buffer size: the dataset holds more elements than this object tells!:";
constexpr int kUntouched = -7;

using Ints = std::vector<int>;

Ints Numbered(size_t count)
{
    Ints numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

struct Layout
{
    Dims extent;
    Dims maximum; ///< Empty for that of the extent.
    Dims chunk;   ///< Empty for a contiguous data set.
};

} // namespace

struct Array : OpenFileTest
{
    /// Makes a data set of numbers 0, 1, 2 ... by plain HDF5.
    ScopedDataSet Store(const std::string& name, const Layout& layout) const
    {
        const int rank = static_cast<int>(layout.extent.size());
        const ScopedSpace space(
            H5Screate_simple(rank, layout.extent.data(), layout.maximum.empty() ? nullptr : layout.maximum.data()));
        const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
        if (!layout.chunk.empty())
        {
            H5Pset_chunk(list.get(), rank, layout.chunk.data());
        }
        ScopedDataSet dataSet(H5Dcreate2(root->LocationID(), name.c_str(), H5T_NATIVE_INT, space.get(), H5P_DEFAULT,
                                         list.get(), H5P_DEFAULT));
        const Ints numbers = Numbered(static_cast<size_t>(H5Sget_simple_extent_npoints(space.get())));
        H5Dwrite(dataSet.get(), H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data());
        return dataSet;
    }
};

struct Slab
{
    int start;
    int stride;
    int count;
    std::string words; ///< "" for a read that succeeds.
    Ints read;
};

void ExpectSlabs(const IArray& array, const std::vector<Slab>& slabs)
{
    for (const Slab& slab : slabs)
    {
        SCOPED_TRACE(Json({slab.start, slab.stride, slab.count}).dump());
        Ints read(20, kUntouched);

        EXPECT_EQ(WordsOf([&] { array.GetFromHyperslab(read.data(), slab.start, slab.stride, slab.count, Int); }),
                  slab.words);

        read.resize(slab.read.size());
        EXPECT_EQ(read, slab.read);
    }
}

TEST_F(Array, TakesTheHyperslabsThatHdf5TakesAndOutlivesTheOthers)
{
    Store("a", {{20}, {}, {}});

    ExpectSlabs(*root->GetArray("a"), {{3, 2, 4, "", {3, 5, 7, 9}},
                                       {0, 1, 0, "", {}},
                                       {3, -1, 1, "", {3}},
                                       {3, -1, 3, "", {3, 2, 1}},
                                       {19, -9, 3, "", {19, 10, 1}},
                                       {3, 0, 1, kSelectionRefused, {}},
                                       {3, 1, 18, kReadRefused, {}},
                                       {3, 1, -1, kReadRefused, {}},
                                       {3, 1, -2, kReadRefused, {}},
                                       {19, 1, -5, kReadRefused, {}},
                                       {3, -1, 5, kReadRefused, {}},
                                       {20, -1, 3, kReadRefused, {}},
                                       {-1, 1, 1, kReadRefused, {}},
                                       {-1, 1, 5, kReadRefused, {}},
                                       {2147483647, -1, 2147483647, kReadRefused, {}}});
}

TEST_F(Array, IsNotReadBackwardsAcrossItsChunks)
{
    Store("a", {{20}, {}, {5}});

    ExpectSlabs(*root->GetArray("a"),
                {{14, -1, 8, kReadRefused, {}}, {20, -1, 3, kReadRefused, {}}, {19, 2, -2, kReadRefused, {}}});
}

TEST_F(Array, TellsARefusedHyperslabWithTheTracebackOfItsStep)
{
    Store("a", {{20}, {}, {}});
    const auto array = root->GetArray("a");
    Ints read(20);

    const std::string selection = TextOf([&] { array->GetFromHyperslab(read.data(), 0, 0, 1, Int); });
    const std::string transfer = TextOf([&] { array->GetFromHyperslab(read.data(), 3, 1, -1, Int); });

    EXPECT_NE(selection.find("#0: in func H5Sselect_hyperslab"), std::string::npos) << selection;
    EXPECT_NE(transfer.find("#0: in func H5Dread"), std::string::npos) << transfer;
}

TEST_F(Array, IsReadThroughMoreDimensionsThanItHasButNotThroughFewer)
{
    Store("line", {{20}, {}, {}});
    Store("plane", {{4, 5}, {}, {}});
    Store("column", {{4, 1}, {}, {}});
    size_t start[] = {1, 2, 0};
    size_t stride[] = {2, 1, 0};
    size_t count[] = {2, 3, 0};
    Ints read(6);
    const auto readSlab = [&](const std::string& name, int length, size_t dimensions)
    {
        root->GetArray(name)->GetFromHyperslab(read.data(), length, dimensions, start, stride, count, Int);
    };

    readSlab("line", 2, 2);
    EXPECT_EQ((Ints{read[0], read[1]}), (Ints{1, 3}));

    readSlab("plane", 6, 2);
    EXPECT_EQ(read, (Ints{7, 8, 9, 17, 18, 19}));

    root->GetArray("column")->GetFromHyperslab(read.data(), 1, 2, 2, Int);
    EXPECT_EQ((Ints{read[0], read[1]}), (Ints{1, 3}));

    const std::string tooFew = "Error reading hyperslab: the number of dimensions doesn't match the array!:";
    const std::string tooMany = "Error reading hyperslab: there's no support for arrays with more than 2 dimensions!:";
    ExpectWords({{[&] { readSlab("plane", 2, 1); }, tooFew},
                 {[&] { readSlab("line", 2, 0); }, tooFew},
                 {[&] { readSlab("line", 2, 3); }, tooMany}});
}

TEST_F(Array, IsSpreadOverNoPlaceOutsideTheBuffer)
{
    Store("a", {{20}, {}, {}});
    const auto array = root->GetArray("a");
    Ints spread(6, kUntouched);

    array->GetToMemoryHyperslab(spread.data(), 1, 2, 3, Int);
    EXPECT_EQ(spread, (Ints{kUntouched, 0, kUntouched, 1, kUntouched, 2}));

    ExpectWords({{[&] { array->GetToMemoryHyperslab(spread.data(), 3, -2147483647, 3, Int); }, kReadRefused},
                 {[&] { array->GetToMemoryHyperslab(spread.data(), 2, 2, 3, Int); }, kReadRefused},
                 {[&] { array->GetToMemoryHyperslab(spread.data(), 0, 1, -2, Int); }, kReadRefused},
                 {[&] { array->GetToMemoryHyperslab(spread.data(), 0, 0, 2, Int); },
                  "Error creating memory data space hyperslab!:"}});
    EXPECT_EQ(spread, (Ints{kUntouched, 0, kUntouched, 1, kUntouched, 2}));
}

TEST_F(Array, ThatHasGrownThroughAnotherHandleIsMovedAgainAfterItIsReopened)
{
    const ScopedDataSet grown = Store("a", {{2, 3}, {H5S_UNLIMITED, 3}, {2, 3}});
    const auto array = root->GetArray("a");
    Ints numbers = Numbered(6);
    array->SetFromBuffer(numbers.data(), Int, 2, 3);
    array->GetToBuffer(numbers.data(), Int);
    const Dims larger = {4, 3};
    H5Dset_extent(grown.get(), larger.data());

    ExpectWords({{[&] { array->GetToBuffer(numbers.data(), Int); }, kHoldsMore},
                 {[&] { IArray(*array).GetToBuffer(numbers.data(), Int); }, kHoldsMore},
                 {[&] { array->SetFromBuffer(numbers.data(), Int, 2, 3); }, kHoldsMore}});

    array->ReOpen(root->LocationID(), "a");
    numbers.resize(array->GetSize(), kUntouched);
    array->GetToBuffer(numbers.data(), Int);
    EXPECT_EQ(numbers, (Ints{0, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0, 0}));
}

} // namespace tarnwick::hdf::tests
