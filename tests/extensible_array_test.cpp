#include "Fixture.h"

#include <climits>

namespace tarnwick::hdf::tests
{

using namespace TDataType;
using Ints = std::vector<int>;

struct ExtensibleArray : OpenFileTest
{
    // Two rows of three columns: 1 2 3, 4 5 6.
    boost::shared_ptr<IExtensibleArray2D> CreateTwoRows(const std::string& name)
    {
        const Ints cells = {1, 2, 3, 4, 5, 6};
        auto made = root->CreateExtensibleArray2D(name, Int, 0, 3, 2, 2, 0);
        made->AppendRowsFromBuffer(2, cells.data(), Int);
        return made;
    }

    boost::shared_ptr<IExtensibleArray2D> array = CreateTwoRows("array");
};

std::string ContentOf(const IExtensibleArray2D& array)
{
    return ContentOf(array.LocationID());
}

TEST_F(ExtensibleArray, AppendedRowsLieInTheFileOneAfterTheOther)
{
    const Ints rows = {7, 8, 9, 10, 11, 12, 13, 14, 15};

    array->AppendRowsFromBuffer(3, rows.data(), Int);

    EXPECT_EQ(array->GetNumberOfRows(), 5U);
    EXPECT_EQ(ContentOf(*array), "[5,3] chunk [2,2]: [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]");
}

TEST_F(ExtensibleArray, AppendedColumnsAlternateInTheBufferAsInTheArray)
{
    const Ints columns = {7, 8, 9, 10};

    array->AppendColumnsFromBuffer(2, columns.data(), Int);

    EXPECT_EQ(array->GetNumberOfColumns(), 5U);
    EXPECT_EQ(ContentOf(*array), "[2,5] chunk [2,2]: [1,2,3,7,8,4,5,6,9,10]");
}

TEST_F(ExtensibleArray, ABlockOfRowsOrColumnsIsReadInTheTypeOfTheBuffer)
{
    std::vector<double> rows(6);
    std::vector<short> columns(4);

    array->ReadRowsToBuffer(0, 2, rows.data(), Double);
    array->ReadColumnsToBuffer(1, 2, columns.data(), Short);

    EXPECT_EQ(rows, (std::vector<double>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(columns, (std::vector<short>{2, 3, 5, 6}));
}

TEST_F(ExtensibleArray, ABlockOfRowsOrColumnsIsOverwrittenInPlace)
{
    const Ints cells = {-1, -2, -3, -4, -5, -6};
    const auto byColumns = CreateTwoRows("by columns");

    array->WriteRowsFromBuffer(0, 2, cells.data(), Int);
    byColumns->WriteColumnsFromBuffer(1, 2, cells.data(), Int);

    EXPECT_EQ(ContentOf(*array), "[2,3] chunk [2,2]: [-1,-2,-3,-4,-5,-6]");
    EXPECT_EQ(ContentOf(*byColumns), "[2,3] chunk [2,2]: [1,-1,-2,4,-3,-4]");
}

TEST_F(ExtensibleArray, ABlockThatIsNotAllThereIsRefusedByItsFirstMissingLineAndMovesNothing)
{
    struct Block
    {
        int first;
        int count;
        std::string rowWords;
        std::string columnWords;
    };
    const std::vector<Block> blocks = {{-1, 2, "row index: -1", "column index: -1"},
                                       {-1, 0, "row index: -1", "column index: -1"},
                                       {1, 3, "row index: 2", "column index: 3"},
                                       {4, 0, "row index: 4", "column index: 4"},
                                       {4, 2, "row index: 4", "column index: 4"},
                                       {0, -1, "row count: -1", "column count: -1"},
                                       {-1, INT_MIN, "row count: -2147483648", "column count: -2147483648"},
                                       {1, INT_MAX, "row index: 2", "column index: 3"}};
    const std::string before = ContentOf(*array);

    for (const Block& b : blocks)
    {
        const std::string size = " (2 rows x 3 columns)";
        Ints buffer(12, 99);
        EXPECT_EQ(WordsOf([&] { array->ReadRowsToBuffer(b.first, b.count, buffer.data(), Int); }),
                  "Invalid " + b.rowWords + size);
        EXPECT_EQ(WordsOf([&] { array->WriteRowsFromBuffer(b.first, b.count, buffer.data(), Int); }),
                  "Invalid " + b.rowWords + size);
        EXPECT_EQ(WordsOf([&] { array->ReadColumnsToBuffer(b.first, b.count, buffer.data(), Int); }),
                  "Invalid " + b.columnWords + size);
        EXPECT_EQ(WordsOf([&] { array->WriteColumnsFromBuffer(b.first, b.count, buffer.data(), Int); }),
                  "Invalid " + b.columnWords + size);
        EXPECT_EQ(buffer, Ints(12, 99));
    }
    EXPECT_EQ(ContentOf(*array), before);
}

TEST_F(ExtensibleArray, ABlockBelowNothingCannotBeAppended)
{
    const Ints cells(6);

    EXPECT_EQ(WordsOf([&] { array->AppendRowsFromBuffer(-1, cells.data(), Int); }),
              "Invalid row count: -1 (2 rows x 3 columns)");
    EXPECT_EQ(WordsOf([&] { array->AppendColumnsFromBuffer(-2, cells.data(), Int); }),
              "Invalid column count: -2 (2 rows x 3 columns)");
    EXPECT_EQ(ContentOf(*array), "[2,3] chunk [2,2]: [1,2,3,4,5,6]");
}

TEST_F(ExtensibleArray, ABlockOfNothingMovesNothingAndMayBeginBehindTheLastLine)
{
    array->AppendRowsFromBuffer(0, nullptr, Int);
    array->AppendColumnsFromBuffer(0, nullptr, Int);
    array->ReadRowsToBuffer(2, 0, nullptr, Int);
    array->ReadColumnsToBuffer(3, 0, nullptr, Int);
    array->WriteRowsFromBuffer(0, 0, nullptr, Int);
    array->WriteColumnsFromBuffer(3, 0, nullptr, Int);

    EXPECT_EQ(array->GetNumberOfRows(), 2U);
    EXPECT_EQ(array->GetNumberOfColumns(), 3U);
    EXPECT_EQ(ContentOf(*array), "[2,3] chunk [2,2]: [1,2,3,4,5,6]");
}

TEST_F(ExtensibleArray, ABlockOfNothingIsRefusedWhereABlockWouldBe)
{
    const std::string words = "error during io operation for ExtensibleArray2D dataset:";
    array->Flush();
    array.reset();
    file->Close();
    file = IFile::Open(Path("test.h5"), "r", 0);
    array = file->GetRoot()->GetExtensibleArray2D("array");

    EXPECT_EQ(WordsOf([&] { array->AppendRowsFromBuffer(0, nullptr, Int); }), words);
    EXPECT_EQ(WordsOf([&] { array->ReadRowsToBuffer(0, 0, nullptr, Undefined); }), "invalid TDataType:");
    file->Close();
    EXPECT_EQ(WordsOf([&] { array->AppendColumnsFromBuffer(0, nullptr, Int); }), words);
    EXPECT_EQ(WordsOf([&] { array->ReadColumnsToBuffer(0, 0, nullptr, Int); }), words);
}

TEST_F(ExtensibleArray, AFailedAppendLeavesTheFileABlockAheadAndTheNextLandsBehindIt)
{
    const Ints cells = {7, 8, 9, 10, 11, 12};

    EXPECT_EQ(WordsOf([&] { array->AppendRowsFromBuffer(2, cells.data(), Undefined); }), "invalid TDataType:");
    EXPECT_EQ(array->GetNumberOfRows(), 2U);
    EXPECT_EQ(ContentOf(*array), "[4,3] chunk [2,2]: [1,2,3,4,5,6,0,0,0,0,0,0]");

    array->AppendRowsFromBuffer(1, cells.data(), Int);
    EXPECT_EQ(array->GetNumberOfRows(), 3U);
    EXPECT_EQ(ContentOf(*array), "[5,3] chunk [2,2]: [1,2,3,4,5,6,0,0,0,0,0,0,7,8,9]");
}

size_t CacheBytesOf(const IExtensibleArray2D& array)
{
    const ScopedPropertyList list(H5Dget_access_plist(array.LocationID()));
    size_t bytes = 0;
    H5Pget_chunk_cache(list.get(), nullptr, &bytes, nullptr);
    return bytes;
}

TEST_F(ExtensibleArray, IsOpenedWithACacheThatHoldsItsRowsWhicheverWasOpenedBefore)
{
    constexpr size_t kMiB = 1U << 20U;
    root->CreateExtensibleArray2D("2 MiB", Char, 1, 2, 1 << 20, 1, 0);
    root->CreateExtensibleArray2D("4 MiB", Char, 1, 1, 4 << 20, 1, 0);
    root->CreateExtensibleArray2D("32 MiB", Char, 1, 2, 16 << 20, 1, 0);

    for (const std::string first : {"array", "2 MiB", "4 MiB", "32 MiB"})
    {
        root->GetExtensibleArray2D(first);
        EXPECT_GE(CacheBytesOf(*root->GetExtensibleArray2D("array")), kMiB) << first;
        root->GetExtensibleArray2D(first);
        EXPECT_GE(CacheBytesOf(*root->GetExtensibleArray2D("2 MiB")), 2 * kMiB) << first;
        root->GetExtensibleArray2D(first);
        EXPECT_GE(CacheBytesOf(*root->GetExtensibleArray2D("4 MiB")), 4 * kMiB) << first;
        root->GetExtensibleArray2D(first);
        EXPECT_GE(CacheBytesOf(*root->GetExtensibleArray2D("32 MiB")), 32 * kMiB) << first;
    }
}

// 1 MiB, from HDF5 2 on 8 MiB.
size_t DefaultCacheBytes()
{
    const ScopedPropertyList list(H5Pcreate(H5P_FILE_ACCESS));
    size_t bytes = 0;
    H5Pget_cache(list.get(), nullptr, nullptr, &bytes, nullptr);
    return bytes;
}

TEST_F(ExtensibleArray, OfAFewChunksHasACacheOfAFewMebibytesWhicheverWasOpenedBefore)
{
    root->CreateExtensibleArray2D("64 MiB", Char, 1, 4, 16 << 20, 1, 0);
    root->GetExtensibleArray2D("64 MiB");

    EXPECT_LE(CacheBytesOf(*root->CreateExtensibleArray2D("small", Char, 1, 1, 8, 1, 0)), DefaultCacheBytes());
    EXPECT_LE(CacheBytesOf(*root->GetExtensibleArray2D("small")), 16U << 20U);
    EXPECT_LE(CacheBytesOf(*root->GetExtensibleArray2D("small")), DefaultCacheBytes());
}

} // namespace tarnwick::hdf::tests
