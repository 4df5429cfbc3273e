#include "Fixture.h"

#include <algorithm>
#include <numeric>

namespace tarnwick::hdf::tests
{

constexpr hsize_t kRows = 1000;
constexpr hsize_t kRowsInChunk = 100;
// As many as the library moves by blocks.
constexpr hsize_t kManyRows = 300;

/// The numbers from `first` on: those of rows, and what the rows hold.
Dims RowsFrom(hsize_t first, hsize_t count)
{
    Dims rows(count);
    std::iota(rows.begin(), rows.end(), first);
    return rows;
}

struct Table : OpenFileTest
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_STD_U64LE \"number\"; }");
    Dims stored = RowsFrom(0, kRows);
};

TEST_F(Table, IsReadByBlocksAroundADamagedChunk)
{
    const hsize_t damaged = 4 * kRowsInChunk;
    Dims selection = RowsFrom(damaged - kManyRows, kManyRows);
    selection.push_back(damaged + kRowsInChunk);
    root->CreateTableFromBuffer("t", stored.data(), kRows, row.get(), 6, -1, kRowsInChunk);
    H5Dwrite_chunk(root->GetTable("t")->LocationID(), H5P_DEFAULT, 0, &damaged, 4, "none");
    Dims read(selection.size());

    root->GetTable("t")->GetFromSelection(read.data(), -1, selection);

    EXPECT_EQ(read, selection);
}

TEST_F(Table, WithoutAFillValueLeavesTheBufferAsItIsWhereNothingWasWritten)
{
    const auto fillNever = [](hid_t list)
    {
        H5Pset_fill_time(list, H5D_FILL_TIME_NEVER);
    };
    const auto fillWithNothing = [this](hid_t list)
    {
        H5Pset_fill_value(list, row.get(), nullptr);
    };
    Make(root->LocationID(), "never filled", {row.get(), {kRows}, {kRowsInChunk}, {}, fillNever});
    Make(root->LocationID(), "no value", {row.get(), {kRows}, {kRowsInChunk}, {}, fillWithNothing});
    for (const std::string name : {"never filled", "no value"})
    {
        SCOPED_TRACE(name);
        const auto table = root->GetTable(name);
        hsize_t first = 1; // without any row HDF5 refuses to read what has no value
        table->SetToHyperslabFromSelection(&first, 1, row.get(), 0, {0});
        const Dims before(kManyRows, 7);
        Dims read = before;

        table->GetFromSelection(read.data(), -1, RowsFrom(100, kManyRows));
        table->GetFromHyperslabToSelection(read.data(), kManyRows, row.get(), 100, RowsFrom(0, kManyRows));

        EXPECT_EQ(read, before);
    }
}

// The first chunk takes as many bytes in the file as all rows would: it has a checksum.
TEST_F(Table, WithoutAFillValueLeavesTheBufferAsItIsBehindTheOnlyChunkThatWasWritten)
{
    const ScopedType small = TypeOf("H5T_COMPOUND { H5T_STD_I32LE \"number\"; }");
    const auto addChecksum = [](hid_t list)
    {
        H5Pset_fletcher32(list);
        H5Pset_fill_time(list, H5D_FILL_TIME_NEVER);
    };
    std::vector<int> values(kRows + 1, 5);
    Make(root->LocationID(), "t", {small.get(), {kRows + 1}, {kRows}, {}, addChecksum});
    root->GetTable("t")->SetToHyperslabFromSelection(values.data(), kRows, small.get(), 0, RowsFrom(0, kRows));
    values.back() = 7;

    root->GetTable("t")->GetFromHyperslabToSelection(values.data(), kRows + 1, small.get(), 0, RowsFrom(0, kRows + 1));

    EXPECT_EQ(values.front(), 5);
    EXPECT_EQ(values.back(), 7);
}

// Rows of up to 16 words of 8 bytes are copied by functions of their own.
TEST_F(Table, OfRowsOfAnySizeIsReadByBlocksToThePlacesOfASelection)
{
    Dims backwards = RowsFrom(0, kManyRows);
    std::reverse(backwards.begin(), backwards.end());
    for (const size_t rowSize : {7U, 8U, 128U, 133U, 136U})
    {
        SCOPED_TRACE(rowSize);
        const ScopedType text(H5Tcreate(H5T_COMPOUND, rowSize));
        H5Tinsert(text.get(), "text", 0, TextType(rowSize).get());
        std::string rows;
        std::string expected;
        for (hsize_t i = 0; i < kManyRows; ++i)
        {
            std::string aRow(rowSize, 'x');
            aRow.replace(0, 3, std::to_string(100 + i));
            rows += aRow;
            expected.insert(0, aRow);
        }
        const auto table = root->CreateTableFromBuffer("t", rows.data(), kManyRows, text.get(), 0, -1, 0);
        std::string read(rows.size(), ' ');

        table->GetToSelection(read.data(), kManyRows, text.get(), backwards);

        EXPECT_EQ(read, expected);
        root->DelArray("t");
    }
}

TEST_F(Table, ReadByBlocksLeavesWhatTheBuffersTypeDoesNotName)
{
    const auto table = root->CreateTableFromBuffer("t", stored.data(), kRows, row.get(), 0, -1, 0);
    const ScopedType everySecond(H5Tcopy(row.get()));
    H5Tset_size(everySecond.get(), 2 * sizeof(hsize_t));
    Dims read(2 * kManyRows, 7);

    table->GetFromSelection(read.data(), everySecond.get(), RowsFrom(100, kManyRows));

    EXPECT_EQ((Dims{read[0], read[1]}), (Dims{100, 7}));
    EXPECT_EQ(read.back(), 7U);
}

TEST_F(Table, RowsOutsideItOrTheBufferAreToldByTheTransfer)
{
    const auto table = root->CreateTable("t", kRows, row.get(), 0);
    const Dims rows = {0, 1};
    const std::string reading = "Error reading data set to a memory selection!:";
    hsize_t* const buffer = stored.data();
    const Dims many = RowsFrom(0, kManyRows);
    const Dims behind = RowsFrom(1, kManyRows);

    ExpectWords({{[&] { table->GetToSelection(buffer, kManyRows, -1, many); }, reading},
                 {[&] { table->GetFromHyperslabToSelection(buffer, kManyRows, row.get(), 0, behind); }, reading}});
    for (const hsize_t outside : {kRows, hsize_t{1} << 63U})
    {
        const Dims places = {3, outside};
        ExpectWords({{[&] { table->GetFromSelection(buffer, -1, places); }, "Error -1 while reading from dataset 't':"},
                     {[&] { table->GetFromToSelection(buffer, kRows, -1, rows, places); }, reading},
                     {[&] { table->GetFromHyperslabToSelection(buffer, kRows, row.get(), 0, places); }, reading}});
    }
}

TEST_F(Table, MadeToBeFilledHasTheCompressionThatItIsGiven)
{
    const auto table = root->CreateTable("t", kRows, row.get(), 4);

    EXPECT_EQ(StorageOf(table->LocationID()), " chunk [1000] deflate 4");
}

TEST_F(Table, ReplacedByASelectionHasTheChunkAndCompressionOfTheNewCall)
{
    root->CreateTableFromBuffer("t", stored.data(), kRows, row.get(), 0, -1, 0);

    root->CreateTableFromSelection("t", stored.data(), kRows, {3, 1, 2}, row.get(), 4, -1, 2);

    const ScopedType number = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; }");
    EXPECT_EQ(ContentOf(root->GetTable("t")->LocationID(), number.get()), "[3] chunk [2] deflate 4: [3,1,2]");
}

TEST_F(Table, WrittenWithItsOwnCompoundTypeStaysTheDataSetThatItIs)
{
    const auto table = root->CreateTableFromBuffer("t", stored.data(), 4, row.get(), 0, -1, 2);
    const hid_t dataSet = table->LocationID();

    table->SetFromBuffer(stored.data(), 4, table->GetCompoundTypeID(), 0);

    EXPECT_EQ(table->LocationID(), dataSet);
    EXPECT_EQ(StorageOf(dataSet), " chunk [2]");
}

TEST_F(Table, ThatIsClosedRemovesNothingThatHasItsNameByNow)
{
    const auto table = root->CreateTable("t", 4, row.get(), 0);
    EXPECT_THROW(table->ReOpen(root->LocationID(), "no"), std::runtime_error);

    EXPECT_THROW(table->SetFromBuffer(stored.data(), 5, -1, 0), std::runtime_error);

    EXPECT_EQ(root->GetTable("t")->GetNumberOfRows(), 4U);
}

TEST_F(Table, HasNoColumnOutsideItsColumns)
{
    const auto table = root->CreateTable("t", row.get());
    Names texts;

    ExpectWords({{[&] { table->GetColumnType(1); }, "Invalid column index: 1 (1 columns)"},
                 {[&] { table->FeedStringVector(texts, -1); }, "Invalid column index: -1 (1 columns)"}});
}

TEST_F(Table, ReopenedOnAnotherKeepsItsColumnsAndTakesTheOthersNamesRowsAndParent)
{
    const ScopedType two = TypeOf("H5T_COMPOUND { H5T_NATIVE_LONG \"l\"; H5T_NATIVE_FLOAT \"f\"; }");
    const auto table = root->CreateGroup("group")->CreateTable("y", 2, two.get(), 0);
    root->CreateTable("z", row.get());

    table->ReOpen(root->LocationID(), "z");

    EXPECT_EQ(table->GetName(), "y");
    EXPECT_EQ(table->GetColumnName(0), "number");
    EXPECT_EQ(table->GetColumnName(1), "");
    EXPECT_EQ(table->GetNumberOfColumns(), 2U);
    EXPECT_EQ(H5Tget_class(table->GetColumnTypeID(1)), H5T_FLOAT);
    EXPECT_EQ(table->ParentID(), root->LocationID());
    EXPECT_EQ(table->GetNumberOfRows(), 0U);
}

} // namespace tarnwick::hdf::tests
