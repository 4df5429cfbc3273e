// Arrays and tables: for plain HDF5 both are data sets of one dimension, and so they share their rows.
#include "Sides.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <random>

using namespace bench;

namespace
{

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;
constexpr hsize_t kMillion = 1000000;
constexpr std::size_t kPickFrom = 20000;
constexpr hsize_t kRunStart = 100;
constexpr const char* kName = "data";

// What is stored: functions that give the i-th element. peers.py makes the same kinds of data.

std::mt19937 generator;

double Noise()
{
    static std::normal_distribution<double> noise(0, 8);
    return noise(generator);
}

// What a converter of 10 bits gives, kept in doubles.
double Counts(std::size_t /*i*/)
{
    return static_cast<double>(generator() % 1024);
}

int Walk(std::size_t /*i*/)
{
    static int at = 0;
    at += static_cast<int>(generator() % 17) - 8;
    return at;
}

double Sines(std::size_t i)
{
    const auto time = static_cast<double>(i);
    return 3 * std::sin(time / 1000) + std::sin(time / 77) + std::sin(time / 13) / 10;
}

// What a converter of 12 bits gives of a sine with noise, kept in shorts.
short NoisyCounts(std::size_t i)
{
    return static_cast<short>(std::lround(2048 + 1500 * std::sin(static_cast<double>(i) / 500) + Noise()));
}

// A time stamp, channels like those above and a short text.
Reading Measurements(std::size_t i)
{
    const std::string texts[] = {"ok", "ok", "ok", "low", "high"};
    Reading row = {1.7e9 + static_cast<double>(i) / 100, Sines(i), Noise(), Walk(i), NoisyCounts(i), ""};
    texts[generator() % 5].copy(row.text, sizeof(row.text));
    return row;
}

// Hardly more than a line number and texts that come again every thousand rows.
Reading RepeatedRows(std::size_t i)
{
    const int number = static_cast<int>(i);
    Reading row = {number / 100.0, Counts(i), 0, number % 16, 0, ""};
    ("row " + std::to_string(i % 1000)).copy(row.text, sizeof(row.text));
    return row;
}

template <auto Source>
using Element = decltype(Source(0));

// One buffer serves all sizes. What is read whole is what it holds already.
template <auto Source>
Element<Source>* Data(std::size_t count)
{
    static std::vector<Element<Source>> values;
    values.reserve(count);
    while (values.size() < count)
    {
        values.push_back(Source(values.size()));
    }
    return values.data();
}

// The elements of a data set of 16 MiB, of which parts are read, and the buffer for these.
template <typename T>
constexpr std::size_t kLength = 16 * kMiB / sizeof(T);

template <typename T>
T* Buffer()
{
    static std::vector<T> values(std::max<std::size_t>(kMillion, kLength<T>));
    return values.data();
}

hid_t TypeOf(const Reading* /*rows*/)
{
    static const hid_t type = []
    {
        const Id text(H5Tcopy(H5T_C_S1));
        H5Tset_size(text, sizeof(Reading::text));
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

template <typename T>
hid_t TypeOf(const T* /*values*/)
{
    static const hid_t type = H5Tcopy(INode::DataTypeToHDFType(ElementTypeOf<T>()));
    return type;
}

// What differs between the library's tables and its arrays.
struct Node
{
    static auto Open(IGroup& root, const Reading* /*rows*/) { return root.GetTable(kName); }
    static auto Open(IGroup& root, const void* /*values*/) { return root.GetArray(kName); }
    static void Store(IGroup& root, Reading* rows, std::size_t count, int level)
    {
        root.CreateTableFromBuffer(kName, rows, count, TypeOf(rows), level, -1, 0);
    }
    template <typename T>
    static void Store(IGroup& root, T* values, std::size_t count, int level)
    {
        root.SetDefaultCompression(level);
        root.CreateArrayFromBuffer(kName, values, ElementTypeOf<T>(), count, 1);
    }
    static void Read(const ITable& table, Reading* rows) { table.GetToBuffer(rows, -1); }
    template <typename T>
    static void Read(const IArray& array, T* values)
    {
        array.GetToBuffer(values, ElementTypeOf<T>());
    }
};

// How a data set is stored: chunks are of so many elements, none or all; with shuffle and deflate of a level above 0.
struct Storage
{
    const char* word;
    hsize_t chunk;
    int level;
};

constexpr Storage kContiguous = {"contiguous", 0, 0};
constexpr Storage kOneChunk = {"one-chunk", HSIZE_UNDEF, 0};
constexpr Storage kSmallChunks = {"small-chunks", 1024, 0};
constexpr Storage kDeflate1 = {"deflate-1", HSIZE_UNDEF, 1};
constexpr Storage kDeflate6 = {"deflate-6", HSIZE_UNDEF, 6};

// The data set of a file, for `open`.
template <typename T>
struct OpenData
{
    auto operator()(IFile& file, std::size_t /*size*/) const
    {
        return Node::Open(*file.GetRoot(), static_cast<T*>(nullptr));
    }
    Id operator()(hid_t file, std::size_t /*size*/) const { return Id(H5Dopen2(file, kName, H5P_DEFAULT)); }
    H5::DataSet operator()(H5::H5File& file, std::size_t /*size*/) const { return file.openDataSet(kName); }
};

// Makes a data set of so many bytes and writes it whole.
template <auto Source>
struct Write
{
    Storage storage;

    static hsize_t LengthOf(std::size_t bytes) { return bytes / sizeof(Element<Source>); }
    static auto* DataOf(std::size_t bytes) { return Data<Source>(LengthOf(bytes)); }

    void operator()(IGroup& root, std::size_t bytes) const
    {
        Node::Store(root, DataOf(bytes), LengthOf(bytes), storage.level);
    }
    void operator()(hid_t root, std::size_t bytes) const
    {
        const hsize_t length = LengthOf(bytes);
        const hsize_t chunk = std::min(storage.chunk, length);
        const hid_t type = TypeOf(DataOf(bytes));
        const Id space(H5Screate_simple(1, &length, nullptr));
        const Id list = CreationList(chunk == 0 ? 0 : 1, &chunk, storage.level);
        const Id set(H5Dcreate2(root, kName, type, space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, DataOf(bytes));
    }
    void operator()(const H5::Group& root, std::size_t bytes) const
    {
        const hsize_t length = LengthOf(bytes);
        const hsize_t chunk = std::min(storage.chunk, length);
        const H5::DataType type(TypeOf(DataOf(bytes)));
        H5::DSetCreatPropList list;
        if (chunk > 0)
        {
            list.setChunk(1, &chunk);
        }
        if (storage.level > 0)
        {
            list.setShuffle();
            list.setDeflate(storage.level);
        }
        root.createDataSet(kName, type, H5::DataSpace(1, &length), list).write(DataOf(bytes), type);
    }
};

// Reads a data set whole, into the memory that it came from.
template <auto Source>
struct Read
{
    template <typename LibraryNode>
    void operator()(const LibraryNode& node, std::size_t bytes) const
    {
        Node::Read(node, Write<Source>::DataOf(bytes));
    }
    void operator()(const Id& set, std::size_t bytes) const
    {
        auto* data = Write<Source>::DataOf(bytes);
        H5Dread(set, TypeOf(data), H5S_ALL, H5S_ALL, H5P_DEFAULT, data);
    }
    void operator()(const H5::DataSet& set, std::size_t bytes) const
    {
        auto* data = Write<Source>::DataOf(bytes);
        set.read(data, H5::DataType(TypeOf(data)));
    }
};

// A file with a data set of so many bytes, or of as many as are asked for. `name` says the kind of data.
template <auto Source>
Place Stored(Name name, const Storage& storage, std::size_t fixedBytes = 0)
{
    const auto make = [=](Name path, std::size_t bytes)
    {
        Write<Source>{storage}(PlainFile(path, "w").id, fixedBytes == 0 ? bytes : fixedBytes);
    };
    return {name + "-" + storage.word, "r+", make};
}

// So many elements of each stride-th, so many times.
struct Pattern
{
    std::size_t stride;
    std::size_t count;
    int times;
};

// Reads parts of an open data set, by selections of HDF5's.
template <typename T>
struct ReadPattern
{
    Pattern (*patternOf)(std::size_t size);

    template <typename Set>
    void operator()(Set& set, std::size_t size) const
    {
        const Pattern pattern = patternOf(size);
        for (int i = 0; i < pattern.times; ++i)
        {
            ReadOnce(set, pattern.stride, pattern.count);
        }
    }

    static void ReadOnce(const IArray& array, std::size_t stride, std::size_t count)
    {
        array.GetFromHyperslab(Buffer<T>(), 0, static_cast<int>(stride), static_cast<int>(count), ElementTypeOf<T>());
    }
    static void ReadOnce(const ITable& table, std::size_t stride, std::size_t count)
    {
        table.GetFromHyperslab(Buffer<T>(), 0, stride, count, TypeOf(Buffer<T>()));
    }
    static void ReadOnce(hid_t set, hsize_t stride, hsize_t count)
    {
        const Id file = SelectedSpace(set, 0, stride, count);
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Dread(set, TypeOf(Buffer<T>()), memory, file, H5P_DEFAULT, Buffer<T>());
    }
    static void ReadOnce(const H5::DataSet& set, hsize_t stride, hsize_t count)
    {
        const hsize_t start = 0;
        const H5::DataSpace file = set.getSpace();
        file.selectHyperslab(H5S_SELECT_SET, &count, &start, &stride);
        set.read(Buffer<T>(), H5::DataType(TypeOf(Buffer<T>())), H5::DataSpace(1, &count), file);
    }
};

// All elements of a data set, for programs that pick some.
template <typename T>
std::unique_ptr<T[]> ReadAll(hid_t set, std::size_t count)
{
    std::unique_ptr<T[]> all(new T[count]);
    H5Dread(set, TypeOf(all.get()), H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    return all;
}

// Who has measured HDF5's selections in a large chunk reads everything and picks.
template <typename T>
void ReadAllAndPick(hid_t set, std::size_t stride)
{
    const auto all = ReadAll<T>(set, kLength<T>);
    for (std::size_t i = 0; i < kLength<T> / stride; ++i)
    {
        Buffer<T>()[i] = all[i * stride];
    }
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

// The works on selected rows, with a buffer of a million rows: between them and a run of the table, or of the table itself.
struct ReadSelected
{
    static void Work(const ITable& table, const Selection& rows, Reading* buffer)
    {
        table.GetFromSelection(buffer, -1, rows);
    }
    // The faster of two ways: a selection of points for few rows, all rows for many.
    static void Work(hid_t set, const Selection& rows, Reading* buffer)
    {
        const hsize_t count = rows.size();
        if (count >= kPickFrom)
        {
            const auto all = ReadAll<Reading>(set, kMillion);
            std::transform(rows.begin(), rows.end(), buffer, [&](hsize_t row) { return all[row]; });
            return;
        }
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_elements(file, H5S_SELECT_SET, count, rows.data());
        H5Dread(set, TypeOf(buffer), memory, file, H5P_DEFAULT, buffer);
    }
    static void Work(const H5::DataSet& set, const Selection& rows, Reading* buffer)
    {
        const hsize_t count = rows.size();
        const H5::DataSpace file = set.getSpace();
        file.selectElements(H5S_SELECT_SET, count, rows.data());
        set.read(buffer, H5::DataType(TypeOf(buffer)), H5::DataSpace(1, &count), file);
    }
};

// The spaces of a transfer by HDF5's C++ API between a run of the table and selected rows of the buffer.
struct CppRun
{
    CppRun(const H5::DataSet& set, const Selection& rows) : file(set.getSpace())
    {
        const hsize_t count = rows.size();
        memory.selectElements(H5S_SELECT_SET, count, rows.data());
        file.selectHyperslab(H5S_SELECT_SET, &count, &kRunStart);
    }

    H5::DataSpace memory{1, &kMillion};
    H5::DataSpace file;
    H5::DataType type{TypeOf(Buffer<Reading>())};
};

struct Scatter
{
    static void Work(const ITable& table, const Selection& rows, Reading* buffer)
    {
        table.GetFromHyperslabToSelection(buffer, kMillion, TypeOf(buffer), kRunStart, rows);
    }
    static void Work(hid_t set, const Selection& rows, Reading* buffer)
    {
        const hsize_t count = rows.size();
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        const Id file = SelectedSpace(set, kRunStart, 1, count);
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Dread(set, TypeOf(buffer), memory, file, H5P_DEFAULT, run.get());
        for (std::size_t i = 0; i < count; ++i)
        {
            buffer[rows[i]] = run[i];
        }
    }
    static void Work(const H5::DataSet& set, const Selection& rows, Reading* buffer)
    {
        const CppRun run(set, rows);
        set.read(buffer, run.type, run.memory, run.file);
    }
};

struct Collect
{
    static void Work(ITable& table, const Selection& rows, Reading* buffer)
    {
        table.SetToHyperslabFromSelection(buffer, kMillion, TypeOf(buffer), kRunStart, rows);
    }
    static void Work(hid_t set, const Selection& rows, Reading* buffer)
    {
        const hsize_t count = rows.size();
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        std::transform(rows.begin(), rows.end(), run.get(), [&](hsize_t row) { return buffer[row]; });
        const Id file = SelectedSpace(set, kRunStart, 1, count);
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Dwrite(set, TypeOf(buffer), memory, file, H5P_DEFAULT, run.get());
    }
    static void Work(const H5::DataSet& set, const Selection& rows, Reading* buffer)
    {
        const CppRun run(set, rows);
        set.write(buffer, run.type, run.memory, run.file);
    }
};

// The column of texts alone, and a string of each.
struct ReadTexts
{
    template <typename ReadColumn>
    static void ReadEach(std::size_t bytes, ReadColumn readColumn)
    {
        constexpr std::size_t kText = sizeof(Reading::text);
        const std::size_t rows = bytes / sizeof(Reading);
        const Id text(H5Tcopy(H5T_C_S1));
        H5Tset_size(text, kText);
        const Id type(H5Tcreate(H5T_COMPOUND, kText));
        H5Tinsert(type, "text", 0, text);
        const std::unique_ptr<char[]> texts(new char[rows * kText]);
        readColumn(type.id, texts.get());
        std::vector<std::string> strings(rows);
        for (std::size_t i = 0; i < rows; ++i)
        {
            const char* begin = &texts[i * kText];
            strings[i].assign(begin, strnlen(begin, kText));
        }
    }

    void operator()(const ITable& table, std::size_t /*bytes*/) const
    {
        std::vector<std::string> strings;
        table.FeedStringVector(strings, 5);
    }
    void operator()(hid_t set, std::size_t bytes) const
    {
        ReadEach(bytes, [=](hid_t type, char* texts) { H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, texts); });
    }
    void operator()(const H5::DataSet& set, std::size_t bytes) const
    {
        ReadEach(bytes, [&](hid_t type, char* texts) { set.read(texts, H5::CompType(type)); });
    }
};

const Reason kFixedCost = {"*", "a fixed cost of each call, which larger data hide", 512 * kKiB};
const Reasons kWriteReasons = {
    {"*", "a chunk has an index in the file and each call a fixed cost, which larger data hide", 512 * kKiB}};
const Reasons kReadReasons = {
    {"*", "HDF5 copies a chunk of up to 1 MiB through its cache, and each call has a fixed cost", 512 * kKiB},
    {"h5py", "numpy's buffers lie on huge pages, which takes a tenth off a large read"},
    {"pytables", "numpy's buffers lie on huge pages, which takes a tenth off a large read"}};
const Reasons kDeflateReasons = {
    {"h5py", "its chunks fit the processor's cache, the library stores one chunk"},
    {"pytables", "its chunks fit the processor's cache, the library stores one chunk"},
    kFixedCost,
    {"*", "what libdeflate gains depends on the data: least for noise, and for long repeats, which zlib skips; from "
          "level 5 on the effort is the one that makes nothing larger than zlib does"}};
const Reasons kPickReasons = {
    {"plain", "the program reads the whole array into memory of its own; the library takes 0.6 MiB"}};
const Reasons kFewReasons = {{"*", "a fixed cost of each handle: it is asked whether its chunks are large", 256}};
const Reasons kSelectedReasons = {{"*", "each place is tested against the table's end"}};
const Reasons kRunReasons = {
    {"*",
     "the caller's type is compared with the stored one, each place is tested against the buffer's end, and the first "
     "read of a handle asks how the table lies in the file"}};
const Reasons kTextReasons = {{"*", "each text is tested for what has to be converted to UTF-8"}};

const Sizes kArraySizes = {8 * kKiB, 512 * kKiB, 8 * kMiB, 64 * kMiB, 512 * kMiB};
const Sizes kTableSizes = {512 * kKiB, 8 * kMiB, 64 * kMiB};
const Sizes kKindSizes = {256 * kKiB, 2 * kMiB, 16 * kMiB};

// Writing and reading whole; targets hold for data that are worth the name.
template <auto Source>
Row WriteRow(Name name, const Sizes& sizes, double target, const Reasons& reasons, const Storage& storage)
{
    const Place fresh = {"data", "w",
                         [](Name /*path*/, std::size_t bytes)
                         {
                             Write<Source>::DataOf(bytes);
                         }};
    return On({name, "bytes", sizes, target, reasons, 8 * kMiB}, fresh, Root{}, Write<Source>{storage});
}

template <auto Source>
Row ReadRow(Name name, Name kind, const Sizes& sizes, double target, const Reasons& reasons, const Storage& storage)
{
    return On({name, "bytes", sizes, target, reasons, 8 * kMiB}, Stored<Source>(kind, storage),
              OpenData<Element<Source>>{}, Read<Source>{});
}

// The library's one chunk stands against a contiguous data set, and beside one chunk.
template <auto Source>
void AddWhole(Rows& rows, Name family, const Sizes& sizes)
{
    const Row writeChunk = WriteRow<Source>(family + "/write", sizes, 0, {kFixedCost}, kOneChunk);
    const Row readChunk = ReadRow<Source>(family + "/read", family, sizes, 0, {kFixedCost}, kOneChunk);
    rows.push_back(WriteRow<Source>(family + "/write", sizes, 1.10, kWriteReasons, kContiguous));
    rows.push_back(ReadRow<Source>(family + "/read", family, sizes, 1.05, kReadReasons, kContiguous));
    rows.back().library = readChunk.library;
    rows.push_back(Beside(writeChunk, "one chunk", 1.02, writeChunk.plain));
    rows.push_back(Beside(readChunk, "one chunk", 1.02, readChunk.plain));
}

template <auto Source>
void AddDeflated(Rows& rows, Name family, Name kind, const Sizes& sizes)
{
    for (const Storage& storage : {kDeflate1, kDeflate6})
    {
        const std::string word = " with shuffle and deflate " + std::to_string(storage.level) + ", " + kind;
        const double target = storage.level == 1 ? 0.50 : 0.65;
        rows.push_back(WriteRow<Source>(family + "/write" + word, sizes, target, kDeflateReasons, storage));
        rows.push_back(ReadRow<Source>(family + "/read" + word, kind, sizes, 0.55, kDeflateReasons, storage));
    }
}

template <auto Source>
void AddParts(Rows& rows, Name family, Name element)
{
    using T = Element<Source>;
    Buffer<T>();
    const auto place = [=](const Storage& storage)
    {
        return Stored<Source>("parts of " + family, storage, kLength<T> * sizeof(T));
    };
    const auto add = [&](Name work, Name unit, const Sizes& sizes, double target, const Reasons& reasons,
                         const Storage& storage, Pattern (*patternOf)(std::size_t))
    {
        const Row row = {family + "/read " + work, unit, sizes, target, reasons};
        rows.push_back(On(row, place(storage), OpenData<T>{}, ReadPattern<T>{patternOf}));
    };
    add("every n-th " + element + " of 16 MiB", "n =", {16, 4, 2}, 1.02, kPickReasons, kOneChunk,
        [](std::size_t stride) {
            return Pattern{stride, kLength<T> / stride, 1};
        });
    const Row selected = Beside(rows.back(), "HDF5's selection", 1.02, rows.back().plain);
    rows.back().plain = OnFile(place(kOneChunk), PlainFile, OpenData<T>{}, ReadAllAndPick<T>);
    rows.push_back(selected);
    add("a run of " + element + "s", "bytes", {16 * kMiB}, 1.02, {}, kOneChunk,
        [](std::size_t bytes) {
            return Pattern{1, bytes / sizeof(T), 1};
        });
    add("every 500th " + element + " of a contiguous data set, 10 times", element + "s", {16, 256, kLength<T> / 512},
        1.05, kFewReasons, kContiguous,
        [](std::size_t count) {
            return Pattern{500, count, 10};
        });
    add("every 20th " + element + " in chunks of 1,024, 10 times", element + "s", {256, 4096, kLength<T> / 20}, 1.05,
        kFewReasons, kSmallChunks,
        [](std::size_t count) {
            return Pattern{20, count, 10};
        });
}

template <typename OnSelected>
Row SelectionRow(Name work, const Reasons& reasons, Selection (*make)(std::size_t count))
{
    const Sizes counts = {1000, 10000, 100000};
    std::map<std::size_t, Selection> made;
    for (const std::size_t count : counts)
    {
        made[count] = make(count);
    }
    return On({"tables/" + work, "rows", counts, 1.05, reasons},
              Stored<RepeatedRows>("million", kOneChunk, kMillion * sizeof(Reading)), OpenData<Reading>{},
              [=](auto& table, std::size_t count) { OnSelected::Work(table, made.at(count), Buffer<Reading>()); });
}

} // namespace

bench::Rows bench::DataSetRows()
{
    Rows rows;
    AddWhole<Counts>(rows, "arrays", kArraySizes);
    AddDeflated<Walk>(rows, "arrays", "random walk of ints", kKindSizes);
    AddDeflated<Sines>(rows, "arrays", "sines in doubles", kKindSizes);
    AddDeflated<NoisyCounts>(rows, "arrays", "noisy 12-bit counts in shorts", kKindSizes);
    AddDeflated<Counts>(rows, "arrays", "counts in doubles", kArraySizes);
    AddParts<Counts>(rows, "arrays", "element");
    AddWhole<RepeatedRows>(rows, "tables", kTableSizes);
    AddDeflated<Measurements>(rows, "tables", "measurements", kKindSizes);
    AddDeflated<RepeatedRows>(rows, "tables", "rows that repeat", kTableSizes);
    AddParts<RepeatedRows>(rows, "tables", "row");
    rows.push_back(On({"tables/read a column of texts", "bytes", kTableSizes, 1.10, kTextReasons},
                      Stored<RepeatedRows>("tables", kOneChunk), OpenData<Reading>{}, ReadTexts{}));
    const std::pair<std::string, Selection (*)(std::size_t)> orders[] = {
        {"sorted", Sorted}, {"shuffled", Shuffled}, {"each four times", Repeated}};
    for (const auto& [word, make] : orders)
    {
        rows.push_back(SelectionRow<ReadSelected>("read selected rows of a million, " + word, kSelectedReasons, make));
        rows.push_back(SelectionRow<Scatter>("read a run to selected rows of a buffer, " + word, kRunReasons, make));
        rows.push_back(SelectionRow<Collect>("write selected rows of a buffer to a run, " + word, kRunReasons, make));
    }
    return rows;
}
