#include "Fixture.h"

#include <climits>

namespace tarnwick::hdf::tests
{

using namespace TDataType;
using Ints = std::vector<int>;

struct ExtensibleArray : OpenFileTest
{
    ExtensibleArray()
    {
        const Ints cells = {1, 2, 3, 4, 5, 6};
        array->AppendRowsFromBuffer(2, cells.data(), Int);
    }

    std::string Content() const { return ContentOf(array->LocationID()); }

    boost::shared_ptr<IExtensibleArray2D> array = root->CreateExtensibleArray2D("array", Int, 0, 3, 2, 2, 0);
};

struct Block
{
    int first;
    int count;
    std::string row; ///< As the refusal names what is missing.
    std::string column;
};

TEST_F(ExtensibleArray, ABlockThatIsNotAllThereIsRefusedByItsFirstMissingLineAndMovesNothing)
{
    const std::vector<Block> blocks = {
        {-1, 2, "index: -1", "index: -1"},   {-1, 0, "index: -1", "index: -1"},
        {1, 3, "index: 2", "index: 3"},      {4, 0, "index: 4", "index: 4"},
        {0, -1, "count: -1", "count: -1"},   {-1, INT_MIN, "count: -2147483648", "count: -2147483648"},
        {1, INT_MAX, "index: 2", "index: 3"}};
    const std::string size = " (2 rows x 3 columns)";
    Ints buffer(12, 99);
    int* const cells = buffer.data();
    for (const Block& b : blocks)
    {
        const std::string row = "Invalid row " + b.row + size;
        const std::string column = "Invalid column " + b.column + size;
        ExpectWords({{[&] { array->ReadRowsToBuffer(b.first, b.count, cells, Int); }, row},
                     {[&] { array->WriteRowsFromBuffer(b.first, b.count, cells, Int); }, row},
                     {[&] { array->ReadColumnsToBuffer(b.first, b.count, cells, Int); }, column},
                     {[&] { array->WriteColumnsFromBuffer(b.first, b.count, cells, Int); }, column}});
    }
    ExpectWords({{[&] { array->AppendRowsFromBuffer(-1, cells, Int); }, "Invalid row count: -1" + size},
                 {[&] { array->AppendColumnsFromBuffer(-2, cells, Int); }, "Invalid column count: -2" + size}});
    EXPECT_EQ(buffer, Ints(12, 99));
    EXPECT_EQ(Content(), "[2,3] chunk [2,2]: [1,2,3,4,5,6]");
}

TEST_F(ExtensibleArray, AFailedAppendLeavesTheFileABlockAheadAndTheNextLandsBehindIt)
{
    const Ints cells = {7, 8, 9, 10, 11, 12};

    EXPECT_EQ(WordsOf([&] { array->AppendRowsFromBuffer(2, cells.data(), Undefined); }), "invalid TDataType:");
    EXPECT_EQ(array->GetNumberOfRows(), 2U);
    EXPECT_EQ(Content(), "[4,3] chunk [2,2]: [1,2,3,4,5,6,0,0,0,0,0,0]");

    array->AppendRowsFromBuffer(1, cells.data(), Int);
    EXPECT_EQ(array->GetNumberOfRows(), 3U);
    EXPECT_EQ(Content(), "[5,3] chunk [2,2]: [1,2,3,4,5,6,0,0,0,0,0,0,7,8,9]");
}

size_t CacheBytesOf(const IExtensibleArray2D& array)
{
    const ScopedPropertyList list(H5Dget_access_plist(array.LocationID()));
    size_t bytes = 0;
    H5Pget_chunk_cache(list.get(), nullptr, &bytes, nullptr);
    return bytes;
}

TEST_F(ExtensibleArray, IsOpenedWithACacheThatHoldsItsRowsAndLittleMoreWhicheverWasOpenedBefore)
{
    constexpr int kMiB = 1 << 20;
    root->CreateExtensibleArray2D("1", Char, 1, 1, 8, 1, 0);
    root->CreateExtensibleArray2D("2", Char, 1, 2, kMiB, 1, 0);
    root->CreateExtensibleArray2D("4", Char, 1, 1, 4 * kMiB, 1, 0);
    root->CreateExtensibleArray2D("32", Char, 1, 2, 16 * kMiB, 1, 0);
    root->CreateExtensibleArray2D("32 deflated", Char, 1, 1, 32 * kMiB, 1, 1);

    for (const std::string before : {"1", "2", "4", "32", "32 deflated"})
    {
        for (const std::string name : {"1", "2", "4", "32", "32 deflated"})
        {
            root->GetExtensibleArray2D(before);
            const size_t bytes = CacheBytesOf(*root->GetExtensibleArray2D(name));
            EXPECT_GE(bytes, std::stoul(name) * kMiB) << name << " behind " << before;
        }
    }
    EXPECT_LE(CacheBytesOf(*root->GetExtensibleArray2D("1")), 16U * kMiB) << "as wide as the one before";
    EXPECT_LE(CacheBytesOf(*root->GetExtensibleArray2D("1")), 8U * kMiB) << "HDF5's own has 1 MiB, from HDF5 2 on 8";
}

} // namespace tarnwick::hdf::tests
