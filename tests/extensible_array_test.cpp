#include "Fixture.h"

#include <climits>

namespace tarnwick::hdf::tests
{

using namespace TDataType;

struct ExtensibleArray : OpenFileTest
{
    ExtensibleArray() { array->AppendRowsFromBuffer(2, Ints{1, 2, 3, 4, 5, 6}.data(), Int); }

    boost::shared_ptr<IExtensibleArray2D> array = root->CreateExtensibleArray2D("array", Int, 0, 3, 2, 1, 0);
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
    EXPECT_EQ(ContentOf(array->LocationID()), "[2,3] chunk [2,1]: [1,2,3,4,5,6]");
}

TEST_F(ExtensibleArray, AFailedAppendLeavesTheFileABlockAheadAndTheNextLandsBehindIt)
{
    const Ints cells = {7, 8, 9, 10, 11, 12};

    EXPECT_EQ(WordsOf([&] { array->AppendRowsFromBuffer(2, cells.data(), Undefined); }), "invalid TDataType:");
    EXPECT_EQ(array->GetNumberOfRows(), 2U);

    array->AppendRowsFromBuffer(1, cells.data(), Int);
    EXPECT_EQ(array->GetNumberOfRows(), 3U);
    EXPECT_EQ(ContentOf(array->LocationID()), "[5,3] chunk [2,1]: [1,2,3,4,5,6,0,0,0,0,0,0,7,8,9]");
}

// Else each access to a row would take the whole chunk apart and put it together again.
TEST_F(ExtensibleArray, OfLargeDeflatedChunksIsOpenedWithACacheForOne)
{
    constexpr unsigned int kBytes = 80U << 20U;
    size_t cacheBytes = 0;
    root->CreateExtensibleArray2D("large", Char, 1, 1, kBytes, 1, 1);

    const ScopedPropertyList list(H5Dget_access_plist(root->GetExtensibleArray2D("large")->LocationID()));
    H5Pget_chunk_cache(list.get(), nullptr, &cacheBytes, nullptr);

    EXPECT_GE(cacheBytes, kBytes);
}

} // namespace tarnwick::hdf::tests
