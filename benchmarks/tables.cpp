#include "Sides.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

using tarnwick::hdf::IFile;
using tarnwick::hdf::IGroup;
using tarnwick::hdf::ITable;

namespace
{

constexpr std::size_t kRows = 1000000;
constexpr std::size_t kPickFrom = 20000;
constexpr std::size_t kText = 8;
constexpr std::size_t kRunStart = 100;
constexpr const char* kName = "table";

// 40 bytes.
struct TableRow
{
    double time;
    double value;
    double error;
    int channel;
    int flags;
    char text[kText];
};

hid_t RowType()
{
    static const hid_t type = []
    {
        const bench::Id text(H5Tcopy(H5T_C_S1));
        H5Tset_size(text, kText);
        const hid_t compound = H5Tcreate(H5T_COMPOUND, sizeof(TableRow));
        H5Tinsert(compound, "time", HOFFSET(TableRow, time), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "value", HOFFSET(TableRow, value), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "error", HOFFSET(TableRow, error), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "channel", HOFFSET(TableRow, channel), H5T_NATIVE_INT);
        H5Tinsert(compound, "flags", HOFFSET(TableRow, flags), H5T_NATIVE_INT);
        H5Tinsert(compound, "text", HOFFSET(TableRow, text), text);
        return compound;
    }();
    return type;
}

const H5::CompType& CppRowType()
{
    static const H5::CompType type(RowType());
    return type;
}

// One buffer serves all sizes.
std::vector<TableRow>& Buffer(std::size_t count)
{
    static std::vector<TableRow> rows;
    while (rows.size() < count)
    {
        const std::size_t i = rows.size();
        TableRow row = {
            static_cast<double>(i) / 100, static_cast<double>(i % 1000), 0, static_cast<int>(i % 16), 0, ""};
        std::snprintf(row.text, sizeof(row.text), "row %d", static_cast<int>(i % 1000));
        rows.push_back(row);
    }
    return rows;
}

auto Write(int compression)
{
    return [=](IGroup& root, std::size_t rows)
    {
        root.CreateTableFromBuffer(kName, Buffer(rows).data(), rows, RowType(), compression, -1, 0);
    };
}

auto WriteTablePlainly(int storage)
{
    return [=](hid_t root, std::size_t rows)
    {
        bench::WritePlainly(root, kName, RowType(), rows, storage, Buffer(rows).data());
    };
}

auto WriteTableByCpp(int storage)
{
    return [=](const H5::Group& root, std::size_t rows)
    {
        bench::WriteByCpp(root, kName, CppRowType(), rows, storage, Buffer(rows).data());
    };
}

// The table of so many rows, open for writing too.
bench::Place Stored(const std::string& name, int compression)
{
    const auto make = [=](const std::string& path, std::size_t rows)
    {
        Write(compression)(*IFile::Open(path, "w", 0)->GetRoot(), rows);
    };
    return {name, "r+", make};
}

struct OpenTable : bench::DataSet
{
    OpenTable() : DataSet{kName} {}
    using DataSet::operator();
    boost::shared_ptr<ITable> operator()(IFile& file, std::size_t /*size*/) const
    {
        return file.GetRoot()->GetTable(kName);
    }
};

const auto readWhole = [](const ITable& table, std::size_t rows)
{
    table.GetToBuffer(Buffer(rows).data(), -1);
};

void ReadTablePlainly(hid_t set, std::size_t rows)
{
    H5Dread(set, RowType(), H5S_ALL, H5S_ALL, H5P_DEFAULT, Buffer(rows).data());
}

void ReadTableByCpp(const H5::DataSet& set, std::size_t rows)
{
    set.read(Buffer(rows).data(), CppRowType());
}

const auto readEveryFourth = [](const ITable& table, std::size_t rows)
{
    table.GetFromHyperslab(Buffer(rows).data(), 0, 4, rows / 4, RowType());
};

void SelectEveryFourthPlainly(hid_t set, std::size_t rows)
{
    bench::ReadPlainly(set, RowType(), 0, 4, rows / 4, Buffer(rows).data());
}

// All rows of a table, for programs that pick some.
std::unique_ptr<TableRow[]> ReadAllPlainly(hid_t set, std::size_t rows)
{
    std::unique_ptr<TableRow[]> all(new TableRow[rows]);
    H5Dread(set, RowType(), H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    return all;
}

void PickEveryFourthPlainly(hid_t set, std::size_t rows)
{
    const auto all = ReadAllPlainly(set, rows);
    std::vector<TableRow>& picked = Buffer(rows);
    for (std::size_t i = 0; i < rows / 4; ++i)
    {
        picked[i] = all[4 * i];
    }
}

void ReadEveryFourthByCpp(const H5::DataSet& set, std::size_t rows)
{
    bench::ReadByCpp(set, CppRowType(), 0, 4, rows / 4, Buffer(rows).data());
}

const auto readTexts = [](const ITable& table, std::size_t /*rows*/)
{
    std::vector<std::string> strings;
    table.FeedStringVector(strings, 5);
};

// The column of texts alone, and a string of each.
template <typename ReadColumn>
void ReadTexts(std::size_t rows, ReadColumn readColumn)
{
    const bench::Id text(H5Tcopy(H5T_C_S1));
    H5Tset_size(text, kText);
    const bench::Id type(H5Tcreate(H5T_COMPOUND, kText));
    H5Tinsert(type, "text", 0, text);
    const std::unique_ptr<char[]> bytes(new char[rows * kText]);
    readColumn(type, bytes.get());
    std::vector<std::string> strings(rows);
    for (std::size_t i = 0; i < rows; ++i)
    {
        const char* begin = &bytes[i * kText];
        strings[i].assign(begin, strnlen(begin, kText));
    }
}

void ReadTextsPlainly(hid_t set, std::size_t rows)
{
    ReadTexts(rows, [&](hid_t type, char* bytes) { H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes); });
}

void ReadTextsByCpp(const H5::DataSet& set, std::size_t rows)
{
    ReadTexts(rows, [&](hid_t type, char* bytes) { set.read(bytes, H5::CompType(type)); });
}

using Selection = std::vector<hsize_t>;

Selection Sorted(std::size_t count)
{
    Selection rows(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        rows[i] = i * (kRows / count) + i % 7 % (kRows / count);
    }
    return rows;
}

Selection Shuffled(std::size_t count)
{
    Selection rows = Sorted(count);
    unsigned long long state = 1;
    for (std::size_t i = count - 1; i > 0; --i)
    {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        std::swap(rows[i], rows[(state >> 33U) % (i + 1)]);
    }
    return rows;
}

// Each row four times, at different places.
Selection Repeated(std::size_t count)
{
    const Selection some = Shuffled(count / 4);
    Selection rows;
    for (int time = 0; time < 4; ++time)
    {
        rows.insert(rows.end(), some.begin(), some.end());
    }
    return rows;
}

// The selections of one kind, made once for each size.
struct Selections
{
    std::string word;
    std::function<Selection(std::size_t count)> make;

    const Selection& Of(std::size_t count) const
    {
        static std::map<std::pair<std::string, std::size_t>, Selection> made;
        Selection& selection = made[{word, count}];
        return selection.empty() ? selection = make(count) : selection;
    }
};

std::vector<TableRow>& Packed(std::size_t count)
{
    static std::vector<TableRow> packed;
    packed.resize(std::max(packed.size(), count));
    return packed;
}

auto ReadSelection(const Selections& selections)
{
    return [=](const ITable& table, std::size_t count)
    {
        table.GetFromSelection(Packed(count).data(), -1, selections.Of(count));
    };
}

// The faster of two plain ways: a selection of points for few rows, all rows for many.
auto ReadSelectionPlainly(const Selections& selections)
{
    return [=](hid_t set, std::size_t count)
    {
        const Selection& selection = selections.Of(count);
        std::vector<TableRow>& packed = Packed(count);
        if (count >= kPickFrom)
        {
            const auto all = ReadAllPlainly(set, kRows);
            std::transform(selection.begin(), selection.end(), packed.begin(), [&](hsize_t row) { return all[row]; });
            return;
        }
        const hsize_t length = count;
        const bench::Id file(H5Dget_space(set));
        const bench::Id memory(H5Screate_simple(1, &length, nullptr));
        H5Sselect_elements(file, H5S_SELECT_SET, count, selection.data());
        H5Dread(set, RowType(), memory, file, H5P_DEFAULT, packed.data());
    };
}

auto ReadSelectionByCpp(const Selections& selections)
{
    return [=](const H5::DataSet& set, std::size_t count)
    {
        const hsize_t length = count;
        const H5::DataSpace file = set.getSpace();
        file.selectElements(H5S_SELECT_SET, count, selections.Of(count).data());
        set.read(Packed(count).data(), CppRowType(), H5::DataSpace(1, &length), file);
    };
}

auto Scatter(const Selections& selections)
{
    return [=](const ITable& table, std::size_t count)
    {
        table.GetFromHyperslabToSelection(Buffer(kRows).data(), kRows, RowType(), kRunStart, selections.Of(count));
    };
}

// Reads the run and puts each row in its place.
auto ScatterPlainly(const Selections& selections)
{
    return [=](hid_t set, std::size_t count)
    {
        const std::unique_ptr<TableRow[]> run(new TableRow[count]);
        bench::ReadPlainly(set, RowType(), kRunStart, 1, count, run.get());
        const Selection& selection = selections.Of(count);
        std::vector<TableRow>& rows = Buffer(kRows);
        for (std::size_t i = 0; i < count; ++i)
        {
            rows[selection[i]] = run[i];
        }
    };
}

auto ScatterByCpp(const Selections& selections)
{
    return [=](const H5::DataSet& set, std::size_t count)
    {
        const hsize_t length = count;
        const hsize_t start = kRunStart;
        const hsize_t rows = kRows;
        const H5::DataSpace file = set.getSpace();
        file.selectHyperslab(H5S_SELECT_SET, &length, &start);
        const H5::DataSpace memory(1, &rows);
        memory.selectElements(H5S_SELECT_SET, count, selections.Of(count).data());
        set.read(Buffer(kRows).data(), CppRowType(), memory, file);
    };
}

auto Collect(const Selections& selections)
{
    return [=](ITable& table, std::size_t count)
    {
        table.SetToHyperslabFromSelection(Buffer(kRows).data(), kRows, RowType(), kRunStart, selections.Of(count));
    };
}

// Collects the rows and writes the run.
auto CollectPlainly(const Selections& selections)
{
    return [=](hid_t set, std::size_t count)
    {
        const std::unique_ptr<TableRow[]> run(new TableRow[count]);
        const Selection& selection = selections.Of(count);
        const std::vector<TableRow>& rows = Buffer(kRows);
        std::transform(selection.begin(), selection.end(), run.get(), [&](hsize_t row) { return rows[row]; });
        const hsize_t length = count;
        const hsize_t start = kRunStart;
        const bench::Id file(H5Dget_space(set));
        const bench::Id memory(H5Screate_simple(1, &length, nullptr));
        H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, nullptr, &length, nullptr);
        H5Dwrite(set, RowType(), memory, file, H5P_DEFAULT, run.get());
    };
}

auto CollectByCpp(const Selections& selections)
{
    return [=](const H5::DataSet& set, std::size_t count)
    {
        const hsize_t length = count;
        const hsize_t start = kRunStart;
        const hsize_t rows = kRows;
        const H5::DataSpace file = set.getSpace();
        file.selectHyperslab(H5S_SELECT_SET, &length, &start);
        const H5::DataSpace memory(1, &rows);
        memory.selectElements(H5S_SELECT_SET, count, selections.Of(count).data());
        set.write(Buffer(kRows).data(), CppRowType(), memory, file);
    };
}

void AddSelectionRows(bench::Rows& rows, const Selections& selections)
{
    const auto make = [](const std::string& path, std::size_t /*count*/)
    {
        Write(0)(*IFile::Open(path, "w", 0)->GetRoot(), kRows);
    };
    const bench::Place place = {"table-of-a-million", "r+", make};
    const auto add = [&](const std::string& work, auto library, auto plain, auto cpp)
    {
        const bench::Row row = {"tables/" + work + ", " + selections.word, "rows", {1000, 10000, 100000}, 1.05};
        rows.push_back(bench::On(row, place, OpenTable{}, library, plain, cpp));
    };
    add("read selected rows of a million", ReadSelection(selections), ReadSelectionPlainly(selections),
        ReadSelectionByCpp(selections));
    add("read a run to selected rows of a buffer", Scatter(selections), ScatterPlainly(selections),
        ScatterByCpp(selections));
    add("write selected rows of a buffer to a run", Collect(selections), CollectPlainly(selections),
        CollectByCpp(selections));
}

} // namespace

bench::Rows bench::TableRows()
{
    // 0.4, 8 and 64 MiB.
    const std::vector<std::size_t> counts = {10000, 210000, 1680000};
    const std::size_t large = counts[1];
    const Place fresh = {"table", "w",
                         [](const std::string& /*path*/, std::size_t rows)
                         {
                             Buffer(rows);
                         }};
    const Place inOneChunk = Stored("table-chunk", 0);
    const auto make = [](const std::string& path, std::size_t count)
    {
        WriteTablePlainly(kContiguous)(PlainFile(path, "w"), count);
    };
    const Place contiguous = {"table-contiguous", "r", make};
    const OpenTable open;
    Row read = {"tables/read", "rows", counts, 1.05, large};
    read.library = Library(inOneChunk, open, readWhole);
    read.plain = Plain(contiguous, open, ReadTablePlainly);
    read.cpp = Cpp(contiguous, open, ReadTableByCpp);
    Rows rows = {
        On({"tables/write", "rows", counts, 1.10, large}, fresh, Root{}, Write(0), WriteTablePlainly(kContiguous),
           WriteTableByCpp(kContiguous)),
        On({"tables/write, beside H5Dwrite of one chunk", "rows", counts, 1.02, large}, fresh, Root{}, Write(0),
           WriteTablePlainly(kOneChunk)),
        On({"tables/write with shuffle and deflate 1", "rows", counts, 0.50, large}, fresh, Root{}, Write(1),
           WriteTablePlainly(1), WriteTableByCpp(1)),
        read,
        On({"tables/read, beside H5Dread of one chunk", "rows", counts, 1.02, large}, inOneChunk, open, readWhole,
           ReadTablePlainly),
        On({"tables/read with shuffle and deflate 1", "rows", counts, 0.55, large}, Stored("table-deflate", 1), open,
           readWhole, ReadTablePlainly, ReadTableByCpp),
        On({"tables/read every 4th row", "rows", counts, 1.02, large}, inOneChunk, open, readEveryFourth,
           PickEveryFourthPlainly, ReadEveryFourthByCpp),
        On({"tables/read every 4th row, beside HDF5's selection", "rows", counts, 1.02, large}, inOneChunk, open,
           readEveryFourth, SelectEveryFourthPlainly),
        On({"tables/read a column of texts", "rows", counts, 1.10}, inOneChunk, open, readTexts, ReadTextsPlainly,
           ReadTextsByCpp),
    };
    AddSelectionRows(rows, {"sorted", Sorted});
    AddSelectionRows(rows, {"shuffled", Shuffled});
    AddSelectionRows(rows, {"each four times", Repeated});
    return rows;
}
