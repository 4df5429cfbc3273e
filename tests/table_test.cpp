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

constexpr size_t kRows = 1000;
constexpr hsize_t kRowsInChunk = 100;
// As many as the library moves by blocks.
constexpr hsize_t kManyRows = 300;

ScopedType RowType()
{
    return TypeOf("H5T_COMPOUND { H5T_NATIVE_INT \"number\"; H5T_NATIVE_FLOAT \"half\"; }");
}

std::vector<Row> NumberedRows(size_t count)
{
    std::vector<Row> rows(count);
    for (size_t i = 0; i < count; ++i)
    {
        rows[i] = {static_cast<int>(i), static_cast<float>(i) / 2};
    }
    return rows;
}

/// The rows `first` to `first` + `count` - 1.
std::vector<hsize_t> RowsFrom(hsize_t first, hsize_t count)
{
    std::vector<hsize_t> run(count);
    std::iota(run.begin(), run.end(), first);
    return run;
}

/// kManyRows rows in equal parts from before and behind the chunk that begins with `hole`.
std::vector<hsize_t> RowsAround(hsize_t hole)
{
    std::vector<hsize_t> rows = RowsFrom(hole - kManyRows / 2, kManyRows / 2);
    const std::vector<hsize_t> behind = RowsFrom(hole + kRowsInChunk, kManyRows / 2);
    rows.insert(rows.end(), behind.begin(), behind.end());
    return rows;
}

std::vector<Row> Picked(const std::vector<Row>& rows, const std::vector<hsize_t>& selection)
{
    std::vector<Row> picked;
    for (const hsize_t row : selection)
    {
        picked.push_back(rows[row]);
    }
    return picked;
}

void OverwriteChunk(hid_t dataSet, hsize_t firstRow, const std::string& bytes)
{
    ASSERT_GE(H5Dwrite_chunk(dataSet, H5P_DEFAULT, 0, &firstRow, bytes.size(), bytes.data()), 0);
}

} // namespace

struct TableRows : OpenFileTest
{
    boost::shared_ptr<ITable> StoreTable(const std::string& name, std::vector<Row> rows, int compression)
    {
        return root->CreateTableFromBuffer(name, rows.data(), rows.size(), rowType.get(), compression, -1,
                                           kRowsInChunk);
    }

    /// A table that plain HDF5 makes and that nobody has written a row to.
    boost::shared_ptr<ITable> CreateUnwrittenTable(const std::string& name, const ScopedPropertyList& list) const
    {
        const hsize_t rows = kRows;
        const ScopedSpace space(H5Screate_simple(1, &rows, nullptr));
        ScopedDataSet(H5Dcreate2(root->LocationID(), name.c_str(), rowType.get(), space.get(), H5P_DEFAULT, list.get(),
                                 H5P_DEFAULT));
        return root->GetTable(name);
    }

    const ScopedType rowType = RowType();
    const std::vector<Row> stored = NumberedRows(kRows);
};

TEST_F(TableRows, ManyRowsAreReadAroundADamagedChunk)
{
    const hsize_t damaged = 4 * kRowsInChunk;
    const std::vector<hsize_t> selection = RowsAround(damaged);
    StoreTable("t", stored, 6);
    OverwriteChunk(root->GetTable("t")->LocationID(), damaged, "no deflated bytes");
    std::vector<Row> read(kManyRows);

    root->GetTable("t")->GetFromSelection(read.data(), -1, selection);

    EXPECT_EQ(read, Picked(stored, selection));
}

TEST_F(TableRows, ManyRowsAreReadFromOneExternalFileWhereAnotherIsMissing)
{
    const size_t bytesInFile = kRows / 2 * sizeof(Row);
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_external(list.get(), Path("first").c_str(), 0, bytesInFile);
    H5Pset_external(list.get(), Path("second").c_str(), 0, bytesInFile);
    const auto table = CreateUnwrittenTable("t", list);
    table->SetFromBuffer(NumberedRows(kRows).data(), kRows, -1, 0);
    std::filesystem::remove(Path("second"));
    std::vector<hsize_t> backwards = RowsFrom(0, kManyRows);
    std::reverse(backwards.begin(), backwards.end());
    std::vector<Row> read(kManyRows);

    table->GetFromSelection(read.data(), -1, backwards);

    EXPECT_EQ(read, Picked(stored, backwards));
    EXPECT_EQ(WordsOf(
                  [&]
                  {
                      table->GetFromHyperslabToSelection(read.data(), kManyRows, rowType.get(), kRows - kManyRows,
                                                         RowsFrom(0, kManyRows));
                  }),
              "Error reading data set to a memory selection!:");
}

TEST_F(TableRows, RowsThatWereNeverWrittenAndHaveNoFillValueLeaveTheBufferAsItIs)
{
    const hsize_t chunk = kRowsInChunk;
    const ScopedPropertyList neverFilled(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(neverFilled.get(), 1, &chunk);
    H5Pset_fill_time(neverFilled.get(), H5D_FILL_TIME_NEVER);
    const ScopedPropertyList withoutValue(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(withoutValue.get(), 1, &chunk);
    H5Pset_fill_value(withoutValue.get(), rowType.get(), nullptr);
    for (const auto& table :
         {CreateUnwrittenTable("never filled", neverFilled), CreateUnwrittenTable("without a value", withoutValue)})
    {
        SCOPED_TRACE(table->GetName());
        Row first = {1, 1}; // without any row HDF5 refuses to read what has no value
        table->SetToHyperslabFromSelection(&first, 1, rowType.get(), 0, {0});
        const std::vector<Row> before(kManyRows, Row{7, 7});
        std::vector<Row> read = before;

        table->GetFromSelection(read.data(), -1, RowsFrom(100, kManyRows));
        table->GetFromHyperslabToSelection(read.data(), kManyRows, rowType.get(), 100, RowsFrom(0, kManyRows));

        EXPECT_EQ(read, before);
    }
}

TEST_F(TableRows, OutsideTheTableOrTheBufferAreToldByTheTransfer)
{
    const auto table = StoreTable("t", stored, 0);
    std::vector<Row> buffer(4);
    const std::string reading = "Error reading data set to a memory selection!:";
    const hsize_t far = hsize_t{1} << 63U;

    for (const hsize_t row : {hsize_t{kRows}, hsize_t{kRows} + 1, far})
    {
        const std::string read = "Error -1 while reading from dataset 't':";
        ExpectWords({{[&] {
                          table->GetFromSelection(buffer.data(), -1, {1, row});
                      },
                      read},
                     {[&] {
                          table->GetFromToSelection(buffer.data(), 4, -1, {1, row}, {0, 1});
                      },
                      reading}});
    }
    for (const hsize_t place : {hsize_t{4}, hsize_t{5}, far})
    {
        ExpectWords({{[&] {
                          table->GetFromToSelection(buffer.data(), 4, -1, {0, 1}, {3, place});
                      },
                      reading},
                     {[&] {
                          table->GetFromHyperslabToSelection(buffer.data(), 4, rowType.get(), 0, {3, place});
                      },
                      reading},
                     {[&] {
                          table->SetToHyperslabFromSelection(buffer.data(), 4, rowType.get(), 0, {3, place});
                      },
                      "error writing to dataset:"}});
    }
}

TEST_F(TableRows, OutsideTheBufferLeaveANewTableWithoutRowsInTheFile)
{
    std::vector<Row> buffer = NumberedRows(4);
    for (const hsize_t place : {4U, 5U})
    {
        const std::string name = "t" + std::to_string(place);

        EXPECT_EQ(WordsOf(
                      [&] {
                          root->CreateTableFromSelection(name, buffer.data(), 4, {0, place}, rowType.get(), 0, -1, 0);
                      }),
                  "error writing to dataset:");

        EXPECT_EQ(root->GetTable(name)->GetNumberOfRows(), 2U);
    }
}

TEST_F(TableRows, GrownThroughAnotherHandleAreMovedAgainAfterTheTableIsReopened)
{
    const hsize_t before = 3;
    const hsize_t after = 5;
    const hsize_t unlimited = H5S_UNLIMITED;
    const ScopedSpace space(H5Screate_simple(1, &before, &unlimited));
    const ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_chunk(list.get(), 1, &before);
    const ScopedDataSet grown(
        H5Dcreate2(root->LocationID(), "t", rowType.get(), space.get(), H5P_DEFAULT, list.get(), H5P_DEFAULT));
    const auto table = root->GetTable("t");
    std::vector<Row> rows = NumberedRows(before);
    table->SetFromBuffer(rows.data(), before, -1, 0);
    H5Dset_extent(grown.get(), &after);
    const std::string words = "Invalid buffer size: the dataset holds more elements than this object tells!:";

    ExpectWords({{[&] { table->GetToBuffer(rows.data(), -1); }, words},
                 {[&] { ITable(*table).GetToBuffer(rows.data(), -1); }, words},
                 {[&] { table->SetFromBuffer(rows.data(), before, -1, 0); }, words},
                 {[&] { table->SetFromSelection(rows.data(), before, {0}, -1, 0, 0); }, words}});

    table->ReOpen(root->LocationID(), "t");
    rows.resize(after, {7, 7});
    table->GetToBuffer(rows.data(), -1);
    EXPECT_EQ(rows, (std::vector<Row>{{0, 0}, {1, 0.5F}, {2, 1}, {0, 0}, {0, 0}}));
}

} // namespace tarnwick::hdf::tests
