// Arrays of doubles and tables: for plain HDF5 both are data sets of one dimension, and so they share their rows.
#include "Sides.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>

using namespace tarnwick::hdf;
using bench::kText;
using bench::Reading;

namespace
{

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;
constexpr std::size_t kMillion = 1000000;
constexpr std::size_t kPickFrom = 20000;
constexpr std::size_t kRunStart = 100;
constexpr const char* kName = "data";

hid_t ReadingType()
{
    static const hid_t type = []
    {
        const bench::Id text(H5Tcopy(H5T_C_S1));
        H5Tset_size(text, kText);
        const hid_t compound = H5Tcreate(H5T_COMPOUND, sizeof(Reading));
        H5Tinsert(compound, "time", HOFFSET(Reading, time), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "value", HOFFSET(Reading, value), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "error", HOFFSET(Reading, error), H5T_NATIVE_DOUBLE);
        H5Tinsert(compound, "channel", HOFFSET(Reading, channel), H5T_NATIVE_INT);
        H5Tinsert(compound, "flags", HOFFSET(Reading, flags), H5T_NATIVE_INT);
        H5Tinsert(compound, "text", HOFFSET(Reading, text), text);
        return compound;
    }();
    return type;
}

// What arrays and tables don't share: their elements, of which one buffer serves all sizes, and the library's calls. An
// object opens the data set for each side.
struct Arrays : bench::DataSet
{
    using Element = double;
    using Node = IArray;

    Arrays() : DataSet{kName} {}
    using DataSet::operator();
    boost::shared_ptr<IArray> operator()(IFile& file, std::size_t /*size*/) const
    {
        return file.GetRoot()->GetArray(kName);
    }

    // Counts as a converter gives them, which deflate makes smaller but not nothing.
    static std::vector<std::size_t> Sizes() { return {8 * kKiB, 512 * kKiB, 8 * kMiB, 64 * kMiB, 512 * kMiB}; }
    static double* Data(std::size_t count)
    {
        static std::vector<double> values;
        static unsigned int state = 1;
        while (values.size() < count)
        {
            state = state * 1664525U + 1013904223U;
            values.push_back(static_cast<double>(state >> 22U));
        }
        return values.data();
    }
    static hid_t Type() { return H5T_NATIVE_DOUBLE; }
    static H5::DataType CppType() { return H5::PredType::NATIVE_DOUBLE; }

    static void Store(IGroup& root, std::size_t count, int level)
    {
        root.SetDefaultCompression(level);
        root.CreateArrayFromBuffer(kName, Data(count), TDataType::Double, count, 1);
    }
    static void Read(const IArray& array, std::size_t count) { array.GetToBuffer(Data(count), TDataType::Double); }
    static void ReadEvery(const IArray& array, std::size_t stride, std::size_t count)
    {
        array.GetFromHyperslab(Data(count), 0, static_cast<int>(stride), static_cast<int>(count), TDataType::Double);
    }
};

struct Tables : bench::DataSet
{
    using Element = Reading;
    using Node = ITable;

    Tables() : DataSet{kName} {}
    using DataSet::operator();
    boost::shared_ptr<ITable> operator()(IFile& file, std::size_t /*size*/) const
    {
        return file.GetRoot()->GetTable(kName);
    }

    static std::vector<std::size_t> Sizes() { return {512 * kKiB, 8 * kMiB, 64 * kMiB}; }
    static Reading* Data(std::size_t count)
    {
        static std::vector<Reading> rows;
        while (rows.size() < count)
        {
            const auto i = static_cast<int>(rows.size());
            Reading row = {i / 100.0, Arrays::Data(rows.size() + 1)[i], 0, i % 16, 0, ""};
            ("row " + std::to_string(i % 1000)).copy(row.text, kText);
            rows.push_back(row);
        }
        return rows.data();
    }
    static hid_t Type() { return ReadingType(); }
    static H5::DataType CppType() { return H5::CompType(ReadingType()); }

    static void Store(IGroup& root, std::size_t count, int level)
    {
        root.CreateTableFromBuffer(kName, Data(count), count, Type(), level, -1, 0);
    }
    static void Read(const ITable& table, std::size_t count) { table.GetToBuffer(Data(count), -1); }
    static void ReadEvery(const ITable& table, std::size_t stride, std::size_t count)
    {
        table.GetFromHyperslab(Data(count), 0, stride, count, Type());
    }
};

template <typename Kind>
constexpr std::size_t kSize = sizeof(typename Kind::Element);

// A new file, for data that are there.
template <typename Kind>
bench::Place Fresh()
{
    return {"data", "w",
            [](const std::string& /*path*/, std::size_t bytes)
            {
                Kind::Data(bytes / kSize<Kind>);
            }};
}

// A file with a data set of so many elements, or of as many as fill the size that is asked for.
template <typename Kind>
bench::Place Stored(const std::string& name, const bench::Storage& storage, std::size_t elements = 0)
{
    const auto make = [=](const std::string& path, std::size_t bytes)
    {
        const std::size_t count = elements == 0 ? bytes / kSize<Kind> : elements;
        bench::WritePlainly(bench::PlainFile(path, "w"), kName, Kind::Type(), count, storage, Kind::Data(count));
    };
    return {name + "-" + storage.word + "-" + std::to_string(kSize<Kind>), "r+", make};
}

// Writing and reading whole, beside plain HDF5 with a storage of its own.
template <typename Kind>
void AddWhole(bench::Rows& rows, const std::string& family, const std::string& word, const bench::Storage& storage,
              double writeTarget, double readTarget)
{
    rows.push_back(bench::On(
        {family + "/write" + word, "bytes", Kind::Sizes(), writeTarget, 8 * kMiB}, Fresh<Kind>(), bench::Root{},
        [=](IGroup& root, std::size_t bytes) { Kind::Store(root, bytes / kSize<Kind>, storage.level); },
        [=](hid_t root, std::size_t bytes)
        {
            const std::size_t count = bytes / kSize<Kind>;
            bench::WritePlainly(root, kName, Kind::Type(), count, storage, Kind::Data(count));
        },
        [=](const H5::Group& root, std::size_t bytes)
        {
            const std::size_t count = bytes / kSize<Kind>;
            bench::WriteByCpp(root, kName, Kind::CppType(), count, storage, Kind::Data(count));
        }));
    const auto read = [](const typename Kind::Node& node, std::size_t bytes)
    {
        Kind::Read(node, bytes / kSize<Kind>);
    };
    rows.push_back(bench::On(
        {family + "/read" + word, "bytes", Kind::Sizes(), readTarget, 8 * kMiB}, Stored<Kind>("whole", storage), Kind(),
        read,
        [](hid_t set, std::size_t bytes)
        { H5Dread(set, Kind::Type(), H5S_ALL, H5S_ALL, H5P_DEFAULT, Kind::Data(bytes / kSize<Kind>)); },
        [](const H5::DataSet& set, std::size_t bytes) { set.read(Kind::Data(bytes / kSize<Kind>), Kind::CppType()); }));
    if (storage.chunk == 0)
    {
        rows.back().library = bench::Library(Stored<Kind>("whole", bench::kOneChunk), Kind(), read);
    }
}

// Reading `count(size)` elements, every `stride(size)`-th, by selections of HDF5's; some times from an open data set.
template <typename Kind, typename Count, typename Stride>
bench::Row Strided(const bench::Row& row, const bench::Place& place, int times, Count count, Stride stride)
{
    const auto repeat = [=](auto readOnce)
    {
        return [=](auto&& set, std::size_t size)
        {
            for (int i = 0; i < times; ++i)
            {
                readOnce(set, stride(size), count(size));
            }
        };
    };
    return bench::On(row, place, Kind(), repeat(Kind::ReadEvery),
                     repeat([](hid_t set, std::size_t every, std::size_t length)
                            { bench::ReadPlainly(set, Kind::Type(), 0, every, length, Kind::Data(length)); }),
                     repeat([](const H5::DataSet& set, std::size_t every, std::size_t length)
                            { bench::ReadByCpp(set, Kind::CppType(), 0, every, length, Kind::Data(length)); }));
}

// All elements of a data set, for programs that pick some.
template <typename Kind>
std::unique_ptr<typename Kind::Element[]> ReadAll(hid_t set, std::size_t count)
{
    std::unique_ptr<typename Kind::Element[]> all(new typename Kind::Element[count]);
    H5Dread(set, Kind::Type(), H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    return all;
}

// Who has measured HDF5's selections in a large chunk reads everything and picks.
template <typename Kind>
void AddStrided(bench::Rows& rows, const std::string& family, const std::string& element)
{
    const std::string name = family + "/read every n-th " + element + " of 16 MiB";
    constexpr std::size_t kLength = 16 * kMiB / kSize<Kind>;
    const auto count = [](std::size_t stride)
    {
        return kLength / stride;
    };
    const auto itself = [](std::size_t stride)
    {
        return stride;
    };
    const bench::Place place = Stored<Kind>("strided", bench::kOneChunk, kLength);
    const std::vector<std::size_t> strides = {16, 4, 2};
    bench::Row selected = Strided<Kind>({name, "n =", strides, 1.02}, place, 1, count, itself);
    rows.push_back(selected);
    rows.back().plain = bench::Plain(place, Kind(),
                                     [](hid_t set, std::size_t stride)
                                     {
                                         const auto all = ReadAll<Kind>(set, kLength);
                                         auto* picked = Kind::Data(kLength);
                                         for (std::size_t i = 0; i < kLength / stride; ++i)
                                         {
                                             picked[i] = all[i * stride];
                                         }
                                     });
    selected.name += ", beside HDF5's selection";
    selected.cpp = {};
    rows.push_back(selected);
    const auto constant = [](std::size_t stride)
    {
        return [=](std::size_t /*size*/)
        {
            return stride;
        };
    };
    rows.push_back(Strided<Kind>(
        {family + "/read a run of " + element + "s", "bytes", {16 * kMiB}, 1.02}, place, 1,
        [](std::size_t bytes) { return bytes / kSize<Kind>; }, constant(1)));
    const auto few = [&](const std::string& where, const bench::Storage& storage, std::size_t stride,
                         const std::vector<std::size_t>& counts)
    {
        const std::string work = "/read every " + std::to_string(stride) + "th " + element + where + ", 10 times";
        rows.push_back(Strided<Kind>({family + work, element + "s", counts, 1.05},
                                     Stored<Kind>("strided", storage, kLength), 10, itself, constant(stride)));
    };
    few(" of a contiguous data set", bench::kContiguous, 500, {16, 256, kLength / 512});
    few(" in chunks of 1,024", bench::kSmallChunks, 20, {256, 4096, kLength / 20});
}

using Selection = std::vector<hsize_t>;

Selection Sorted(std::size_t count)
{
    Selection rows(count);
    for (std::size_t i = 0; i < count; ++i)
    {
        rows[i] = i * (kMillion / count) + i % 7 % (kMillion / count);
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

// The spaces of a transfer between a run of a table's rows and selected rows of a buffer, or of selected rows of a table.
template <typename Transfer>
void WithSelection(const H5::DataSet& set, const Selection& selection, bool isRun, Transfer transfer)
{
    const hsize_t count = selection.size();
    const hsize_t start = kRunStart;
    const hsize_t all = kMillion;
    const H5::DataSpace file = set.getSpace();
    const H5::DataSpace memory(1, isRun ? &all : &count);
    if (isRun)
    {
        file.selectHyperslab(H5S_SELECT_SET, &count, &start);
    }
    (isRun ? memory : file).selectElements(H5S_SELECT_SET, count, selection.data());
    transfer(memory, file);
}

// The faster of two plain ways: a selection of points for few rows, all rows for many.
void ReadSelected(hid_t set, const Selection& selection, Reading* packed)
{
    const hsize_t count = selection.size();
    if (count >= kPickFrom)
    {
        const auto all = ReadAll<Tables>(set, kMillion);
        std::transform(selection.begin(), selection.end(), packed, [&](hsize_t row) { return all[row]; });
        return;
    }
    const bench::Id file(H5Dget_space(set));
    const bench::Id memory(H5Screate_simple(1, &count, nullptr));
    H5Sselect_elements(file, H5S_SELECT_SET, count, selection.data());
    H5Dread(set, ReadingType(), memory, file, H5P_DEFAULT, packed);
}

// Reads the run and puts each row in its place.
void Scatter(hid_t set, const Selection& selection, Reading* buffer)
{
    const std::unique_ptr<Reading[]> run(new Reading[selection.size()]);
    bench::ReadPlainly(set, ReadingType(), kRunStart, 1, selection.size(), run.get());
    for (std::size_t i = 0; i < selection.size(); ++i)
    {
        buffer[selection[i]] = run[i];
    }
}

// Collects the rows and writes the run.
void Collect(hid_t set, const Selection& selection, const Reading* buffer)
{
    const hsize_t count = selection.size();
    const hsize_t start = kRunStart;
    const std::unique_ptr<Reading[]> run(new Reading[count]);
    std::transform(selection.begin(), selection.end(), run.get(), [&](hsize_t row) { return buffer[row]; });
    const bench::Id file(H5Dget_space(set));
    const bench::Id memory(H5Screate_simple(1, &count, nullptr));
    H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, nullptr, &count, nullptr);
    H5Dwrite(set, ReadingType(), memory, file, H5P_DEFAULT, run.get());
}

void AddSelections(bench::Rows& rows, const std::string& word, Selection (*make)(std::size_t count))
{
    const bench::Place place = Stored<Tables>("million", bench::kOneChunk, kMillion);
    const std::vector<std::size_t> counts = {1000, 10000, 100000};
    const auto made = std::make_shared<std::map<std::size_t, Selection>>();
    for (const std::size_t count : counts)
    {
        (*made)[count] = make(count);
    }
    const auto add = [&](const std::string& work, auto library, auto plain, bool isRun, auto cpp)
    {
        rows.push_back(bench::On(
            {"tables/" + work + ", " + word, "rows", counts, 1.05}, place, Tables(),
            [=](ITable& table, std::size_t count) { library(table, made->at(count), Tables::Data(kMillion)); },
            [=](hid_t set, std::size_t count) { plain(set, made->at(count), Tables::Data(kMillion)); },
            [=](const H5::DataSet& set, std::size_t count)
            {
                WithSelection(set, made->at(count), isRun,
                              [&](const H5::DataSpace& memory, const H5::DataSpace& file)
                              { cpp(set, Tables::Data(kMillion), memory, file); });
            }));
    };
    const auto read =
        [](const H5::DataSet& set, Reading* buffer, const H5::DataSpace& memory, const H5::DataSpace& file)
    {
        set.read(buffer, Tables::CppType(), memory, file);
    };
    const auto write =
        [](const H5::DataSet& set, Reading* buffer, const H5::DataSpace& memory, const H5::DataSpace& file)
    {
        set.write(buffer, Tables::CppType(), memory, file);
    };
    add(
        "read selected rows of a million",
        [](const ITable& table, const Selection& selection, Reading* buffer)
        { table.GetFromSelection(buffer, -1, selection); },
        ReadSelected, false, read);
    add(
        "read a run to selected rows of a buffer",
        [](const ITable& table, const Selection& selection, Reading* buffer)
        { table.GetFromHyperslabToSelection(buffer, kMillion, ReadingType(), kRunStart, selection); },
        Scatter, true, read);
    add(
        "write selected rows of a buffer to a run",
        [](ITable& table, const Selection& selection, Reading* buffer)
        { table.SetToHyperslabFromSelection(buffer, kMillion, ReadingType(), kRunStart, selection); },
        Collect, true, write);
}

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

bench::Row TextsRow()
{
    return bench::On(
        {"tables/read a column of texts", "bytes", Tables::Sizes(), 1.10}, Stored<Tables>("whole", bench::kOneChunk),
        Tables(),
        [](const ITable& table, std::size_t /*bytes*/)
        {
            std::vector<std::string> strings;
            table.FeedStringVector(strings, 5);
        },
        [](hid_t set, std::size_t bytes)
        {
            ReadTexts(bytes / sizeof(Reading),
                      [&](hid_t type, char* texts) { H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, texts); });
        },
        [](const H5::DataSet& set, std::size_t bytes)
        { ReadTexts(bytes / sizeof(Reading), [&](hid_t type, char* texts) { set.read(texts, H5::CompType(type)); }); });
}

template <typename Kind>
void AddKind(bench::Rows& rows, const std::string& family, const std::string& element)
{
    AddWhole<Kind>(rows, family, "", bench::kContiguous, 1.10, 1.05);
    AddWhole<Kind>(rows, family, ", beside one chunk", bench::kOneChunk, 1.02, 1.02);
    AddWhole<Kind>(rows, family, " with shuffle and deflate 1", bench::kDeflate1, 0.50, 0.55);
    AddWhole<Kind>(rows, family, " with shuffle and deflate 6", bench::kDeflate6, 0.65, 0.55);
    AddStrided<Kind>(rows, family, element);
}

} // namespace

bench::Rows bench::DataSetRows()
{
    Rows rows;
    AddKind<Arrays>(rows, "arrays", "element");
    AddKind<Tables>(rows, "tables", "row");
    rows.push_back(TextsRow());
    AddSelections(rows, "sorted", Sorted);
    AddSelections(rows, "shuffled", Shuffled);
    AddSelections(rows, "each four times", Repeated);
    return rows;
}
