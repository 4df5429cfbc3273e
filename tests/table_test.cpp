#include "Fixture.h"

#include <numeric>

namespace tarnwick::hdf::tests
{

namespace
{

struct Row
{
    int number;
    float half;

    bool operator==(const Row& other) const { return number == other.number && half == other.half; }
};

using Rows = std::vector<Row>;

constexpr size_t kRows = 1000;
constexpr hsize_t kRowsInChunk = 100;
// As many as the library moves by blocks.
constexpr hsize_t kManyRows = 300;

Rows NumberedRows(size_t count)
{
    Rows rows(count);
    for (size_t i = 0; i < count; ++i)
    {
        rows[i] = {static_cast<int>(i), static_cast<float>(i) / 2};
    }
    return rows;
}

/// The rows `first` to `first` + `count` - 1.
Dims RowsFrom(hsize_t first, hsize_t count)
{
    Dims run(count);
    std::iota(run.begin(), run.end(), first);
    return run;
}

Rows Picked(const Rows& rows, const Dims& selection)
{
    Rows picked;
    for (const hsize_t row : selection)
    {
        picked.push_back(rows[row]);
    }
    return picked;
}

} // namespace

struct Table : OpenFileTest
{
    const ScopedType row = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; H5T_NATIVE_FLOAT \"half\"; }");
    const Rows stored = NumberedRows(kRows);
};

TEST_F(Table, IsReadByBlocksAroundADamagedChunk)
{
    const hsize_t damaged = 4 * kRowsInChunk;
    Dims selection = RowsFrom(damaged - kManyRows, kManyRows);
    selection.push_back(damaged + kRowsInChunk);
    Rows buffer = stored;
    root->CreateTableFromBuffer("t", buffer.data(), kRows, row.get(), 6, -1, kRowsInChunk);
    H5Dwrite_chunk(root->GetTable("t")->LocationID(), H5P_DEFAULT, 0, &damaged, 4, "none");
    Rows read(selection.size());

    root->GetTable("t")->GetFromSelection(read.data(), -1, selection);

    EXPECT_EQ(read, Picked(stored, selection));
}

TEST_F(Table, IsReadByBlocksFromOneExternalFileWhereAnotherIsMissing)
{
    const auto addFiles = [this](hid_t list)
    {
        H5Pset_external(list, Path("first").c_str(), 0, kRows / 2 * sizeof(Row));
        H5Pset_external(list, Path("second").c_str(), 0, kRows / 2 * sizeof(Row));
    };
    Make(root->LocationID(), "t", {row.get(), {kRows}, {}, {}, addFiles}, stored.data());
    std::filesystem::remove(Path("second"));
    const Dims selection = RowsFrom(0, kManyRows);
    Rows read(kManyRows);

    root->GetTable("t")->GetFromSelection(read.data(), -1, selection);

    EXPECT_EQ(read, Picked(stored, selection));
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
        Row first = {1, 1}; // without any row HDF5 refuses to read what has no value
        table->SetToHyperslabFromSelection(&first, 1, row.get(), 0, {0});
        const Rows before(kManyRows, Row{7, 7});
        Rows read = before;

        table->GetFromSelection(read.data(), -1, RowsFrom(100, kManyRows));
        table->GetFromHyperslabToSelection(read.data(), kManyRows, row.get(), 100, RowsFrom(0, kManyRows));

        EXPECT_EQ(read, before);
    }
}

TEST_F(Table, ReadByBlocksLeavesTheColumnsThatTheBuffersTypeDoesNotName)
{
    Rows buffer = stored;
    const auto table = root->CreateTableFromBuffer("t", buffer.data(), kRows, row.get(), 0, -1, 0);
    const ScopedType numberAlone = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; }");
    H5Tset_size(numberAlone.get(), sizeof(Row));
    Rows read(kManyRows, Row{0, 7});

    table->GetFromSelection(read.data(), numberAlone.get(), RowsFrom(100, kManyRows));

    EXPECT_EQ(read.front(), (Row{100, 7}));
    EXPECT_EQ(read.back(), (Row{100 + kManyRows - 1, 7}));
}

TEST_F(Table, IsNotReadByBlocksToFewerRowsThanItHasNorBehindTheBuffer)
{
    const auto table = root->CreateTable("t", kRows, row.get(), 0);
    Rows buffer(kManyRows + 1);
    const std::string words = "Error reading data set to a memory selection!:";

    ExpectWords(
        {{[&] { table->GetToSelection(buffer.data(), kManyRows, -1, RowsFrom(0, kManyRows)); }, words},
         {[&] { table->GetFromHyperslabToSelection(buffer.data(), kManyRows, row.get(), 0, RowsFrom(1, kManyRows)); },
          words}});
}

TEST_F(Table, RowsFarOutsideItAreToldByTheTransfer)
{
    const auto table = root->CreateTable("t", kRows, row.get(), 0);
    Rows buffer(4);
    const hsize_t far = hsize_t{1} << 63U;
    const std::string reading = "Error reading data set to a memory selection!:";

    ExpectWords({{[&] {
                      table->GetFromSelection(buffer.data(), -1, {1, far});
                  },
                  "Error -1 while reading from dataset 't':"},
                 {[&] {
                      table->GetFromToSelection(buffer.data(), 4, -1, {0, 1}, {3, far});
                  },
                  reading},
                 {[&] {
                      table->GetFromHyperslabToSelection(buffer.data(), 4, row.get(), 0, {3, far});
                  },
                  reading}});
}

TEST_F(Table, WrittenWithItsOwnCompoundTypeStaysTheDataSetThatItIs)
{
    Rows rows = NumberedRows(4);
    const auto table = root->CreateTableFromBuffer("t", rows.data(), 4, row.get(), 0, -1, 2);
    const hid_t dataSet = table->LocationID();

    table->SetFromBuffer(rows.data(), 4, table->GetCompoundTypeID(), 0);

    EXPECT_EQ(table->LocationID(), dataSet);
    EXPECT_EQ(StorageOf(dataSet), " chunk [2]");
}

TEST_F(Table, HasNoColumnOutsideItsColumns)
{
    const auto table = root->CreateTable("t", row.get());
    Names texts;

    ExpectWords({{[&] { table->GetColumnType(2); }, "Invalid column index: 2 (2 columns)"},
                 {[&] { table->FeedStringVector(texts, -1); }, "Invalid column index: -1 (2 columns)"}});
}

TEST_F(Table, ReopenedOnAnotherKeepsItsColumnsAndTakesTheOthersNamesRowsAndParent)
{
    const ScopedType one = TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"id\"; }");
    const auto table = root->CreateGroup("group")->CreateTable("y", 2, row.get(), 0);
    root->CreateTable("z", one.get());

    table->ReOpen(root->LocationID(), "z");

    EXPECT_EQ(table->GetName(), "y");
    EXPECT_EQ(table->GetColumnName(0), "id");
    EXPECT_EQ(table->GetColumnName(1), "");
    EXPECT_EQ(table->GetNumberOfColumns(), 2U);
    EXPECT_EQ(H5Tget_class(table->GetColumnTypeID(1)), H5T_FLOAT);
    EXPECT_EQ(table->ParentID(), root->LocationID());
    EXPECT_EQ(table->GetNumberOfRows(), 0U);
}

} // namespace tarnwick::hdf::tests
