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
constexpr std::size_t kMillion = 1000000;
constexpr std::size_t kPickFrom = 20000;
constexpr std::size_t kRunStart = 100;
constexpr const char* kName = "data";

// What is stored. Each gives the next of its elements; peers.py makes the same kinds of data.

// What a converter of 10 bits gives, kept in doubles.
struct Counts
{
    static constexpr const char* kWord = "counts in doubles";
    unsigned int state = 1;

    double operator()(std::size_t /*i*/)
    {
        state = state * 1664525U + 1013904223U;
        return static_cast<double>(state >> 22U);
    }
};

// Each int differs from the one before by 8 at most.
struct Walk
{
    static constexpr const char* kWord = "random walk of ints";
    std::mt19937 random{1};
    int at = 0;

    int operator()(std::size_t /*i*/)
    {
        at += static_cast<int>(random() % 17) - 8;
        return at;
    }
};

// Smooth signals: all bits of a double differ.
struct Sines
{
    static constexpr const char* kWord = "sines in doubles";
    double operator()(std::size_t i) const
    {
        const auto time = static_cast<double>(i);
        return 3 * std::sin(time / 1000) + std::sin(time / 77) + std::sin(time / 13) / 10;
    }
};

// What a converter of 12 bits gives of a sine with noise, kept in shorts.
struct NoisyCounts
{
    static constexpr const char* kWord = "noisy 12-bit counts in shorts";
    std::mt19937 random{1};
    std::normal_distribution<double> noise{0, 8};

    short operator()(std::size_t i)
    {
        const double signal = 2048 + 1500 * std::sin(static_cast<double>(i) / 500);
        return static_cast<short>(std::clamp(std::lround(signal + noise(random)), 0L, 4095L));
    }
};

// A time stamp, channels like those above and a short text.
struct Measurements
{
    static constexpr const char* kWord = "measurements";
    Walk walk;
    Sines sines;
    NoisyCounts counts;

    Reading operator()(std::size_t i)
    {
        const char* const texts[] = {"ok", "ok", "ok", "low", "high"};
        Reading row = {
            1.7e9 + static_cast<double>(i) / 100, sines(i), counts.noise(counts.random), walk(i), counts(i), ""};
        std::strcpy(row.text, texts[counts.random() % 5]);
        return row;
    }
};

// A line number, a count and texts that come again every thousand rows.
struct RepeatedRows
{
    static constexpr const char* kWord = "rows that repeat";
    Counts counts;

    Reading operator()(std::size_t i)
    {
        const int number = static_cast<int>(i);
        Reading row = {number / 100.0, counts(i), 0, number % 16, 0, ""};
        ("row " + std::to_string(i % 1000)).copy(row.text, sizeof(row.text));
        return row;
    }
};

template <typename Source>
using Element = decltype(Source()(0));

template <typename Source>
constexpr std::size_t kSize = sizeof(Element<Source>);

template <typename Source>
constexpr bool kIsTable = std::is_same_v<Element<Source>, Reading>;

// One buffer serves all sizes. What is read whole is what it holds already.
template <typename Source>
Element<Source>* Data(std::size_t count)
{
    static Source source;
    static std::vector<Element<Source>> values;
    values.reserve(count);
    while (values.size() < count)
    {
        values.push_back(source(values.size()));
    }
    return values.data();
}

// The elements of a data set of 16 MiB, of which parts are read.
template <typename T>
constexpr std::size_t kLength = 16 * kMiB / sizeof(T);

// Where parts are read to.
template <typename T>
T* Buffer()
{
    static std::vector<T> values(std::max(kMillion, kLength<T>));
    return values.data();
}

hid_t TypeOfReading()
{
    const Id text(H5Tcopy(H5T_C_S1));
    H5Tset_size(text, sizeof(Reading::text));
    const hid_t type = H5Tcreate(H5T_COMPOUND, sizeof(Reading));
    H5Tinsert(type, "time", HOFFSET(Reading, time), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "value", HOFFSET(Reading, value), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "error", HOFFSET(Reading, error), H5T_NATIVE_DOUBLE);
    H5Tinsert(type, "channel", HOFFSET(Reading, channel), H5T_NATIVE_INT);
    H5Tinsert(type, "flags", HOFFSET(Reading, flags), H5T_NATIVE_INT);
    H5Tinsert(type, "text", HOFFSET(Reading, text), text);
    return type;
}

template <typename T>
hid_t TypeOf()
{
    if constexpr (std::is_same_v<T, Reading>)
    {
        static const hid_t type = TypeOfReading();
        return type;
    }
    else
    {
        static const hid_t type = INode::DataTypeToHDFType(ElementTypeOf<T>());
        return type;
    }
}

template <typename T>
H5::DataType CppTypeOf()
{
    return H5::DataType(TypeOf<T>());
}

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
template <typename Source>
struct OpenData
{
    auto operator()(IFile& file, std::size_t /*size*/) const
    {
        if constexpr (kIsTable<Source>)
        {
            return file.GetRoot()->GetTable(kName);
        }
        else
        {
            return file.GetRoot()->GetArray(kName);
        }
    }
    Id operator()(hid_t file, std::size_t /*size*/) const { return Id(H5Dopen2(file, kName, H5P_DEFAULT)); }
    H5::DataSet operator()(H5::H5File& file, std::size_t /*size*/) const { return file.openDataSet(kName); }
};

// Makes a data set of so many bytes and writes it whole.
template <typename Source>
struct Write
{
    using T = Element<Source>;
    Storage storage;

    void operator()(IGroup& root, std::size_t bytes) const
    {
        const std::size_t count = bytes / sizeof(T);
        if constexpr (kIsTable<Source>)
        {
            root.CreateTableFromBuffer(kName, Data<Source>(count), count, TypeOf<T>(), storage.level, -1, 0);
        }
        else
        {
            root.SetDefaultCompression(storage.level);
            root.CreateArrayFromBuffer(kName, Data<Source>(count), ElementTypeOf<T>(), count, 1);
        }
    }
    void operator()(hid_t root, std::size_t bytes) const
    {
        const hsize_t length = bytes / sizeof(T);
        const hsize_t chunk = std::min(storage.chunk, length);
        const Id space(H5Screate_simple(1, &length, nullptr));
        const Id list(H5Pcreate(H5P_DATASET_CREATE));
        if (chunk > 0)
        {
            H5Pset_chunk(list, 1, &chunk);
        }
        if (storage.level > 0)
        {
            H5Pset_shuffle(list);
            H5Pset_deflate(list, static_cast<unsigned int>(storage.level));
        }
        const Id set(H5Dcreate2(root, kName, TypeOf<T>(), space, H5P_DEFAULT, list, H5P_DEFAULT));
        H5Dwrite(set, TypeOf<T>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, Data<Source>(length));
    }
    void operator()(const H5::Group& root, std::size_t bytes) const
    {
        const hsize_t length = bytes / sizeof(T);
        const hsize_t chunk = std::min(storage.chunk, length);
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
        const H5::DataSet set = root.createDataSet(kName, CppTypeOf<T>(), H5::DataSpace(1, &length), list);
        set.write(Data<Source>(length), CppTypeOf<T>());
    }
};

// A file with a data set of so many bytes, or of as many as are asked for.
template <typename Source>
Place Stored(Name name, const Storage& storage, std::size_t fixedBytes = 0)
{
    const auto make = [=](Name path, std::size_t bytes)
    {
        Write<Source>{storage}(PlainFile(path, "w").id, fixedBytes == 0 ? bytes : fixedBytes);
    };
    return {name + "-" + storage.word + "-" + Source::kWord, "r+", make};
}

// Reads a data set whole.
template <typename Source>
struct Read
{
    using T = Element<Source>;

    void operator()(const IArray& array, std::size_t bytes) const
    {
        array.GetToBuffer(Data<Source>(bytes / sizeof(T)), ElementTypeOf<T>());
    }
    void operator()(const ITable& table, std::size_t bytes) const
    {
        table.GetToBuffer(Data<Source>(bytes / sizeof(T)), -1);
    }
    void operator()(hid_t set, std::size_t bytes) const
    {
        H5Dread(set, TypeOf<T>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, Data<Source>(bytes / sizeof(T)));
    }
    void operator()(const H5::DataSet& set, std::size_t bytes) const
    {
        set.read(Data<Source>(bytes / sizeof(T)), CppTypeOf<T>());
    }
};

// So many elements of each stride-th, so many times.
struct Pattern
{
    std::size_t stride;
    std::size_t count;
    int times;
};

// Reads parts of an open data set, by selections of HDF5's.
template <typename Source>
struct ReadPattern
{
    using T = Element<Source>;
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
        table.GetFromHyperslab(Buffer<T>(), 0, stride, count, TypeOf<T>());
    }
    static void ReadOnce(hid_t set, hsize_t stride, hsize_t count)
    {
        const hsize_t start = 0;
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, &stride, &count, nullptr);
        H5Dread(set, TypeOf<T>(), memory, file, H5P_DEFAULT, Buffer<T>());
    }
    static void ReadOnce(const H5::DataSet& set, hsize_t stride, hsize_t count)
    {
        const hsize_t start = 0;
        const H5::DataSpace file = set.getSpace();
        file.selectHyperslab(H5S_SELECT_SET, &count, &start, &stride);
        set.read(Buffer<T>(), CppTypeOf<T>(), H5::DataSpace(1, &count), file);
    }
};

// All elements of a data set, for programs that pick some.
template <typename T>
std::unique_ptr<T[]> ReadAll(hid_t set, std::size_t count)
{
    std::unique_ptr<T[]> all(new T[count]);
    H5Dread(set, TypeOf<T>(), H5S_ALL, H5S_ALL, H5P_DEFAULT, all.get());
    return all;
}

// Who has measured HDF5's selections in a large chunk reads everything and picks.
template <typename T>
void ReadAllAndPick(hid_t set, std::size_t stride)
{
    const auto all = ReadAll<T>(set, kLength<T>);
    T* picked = Buffer<T>();
    for (std::size_t i = 0; i < kLength<T> / stride; ++i)
    {
        picked[i] = all[i * stride];
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

// The spaces in memory and in the file between the run of a table and selected rows of the buffer.
std::pair<H5::DataSpace, H5::DataSpace> SpacesOfARun(const H5::DataSet& set, const Selection& rows)
{
    const hsize_t count = rows.size();
    const hsize_t start = kRunStart;
    const hsize_t all = kMillion;
    const H5::DataSpace memory(1, &all);
    const H5::DataSpace file = set.getSpace();
    memory.selectElements(H5S_SELECT_SET, count, rows.data());
    file.selectHyperslab(H5S_SELECT_SET, &count, &start);
    return {memory, file};
}

// The works on selected rows, with a buffer of a million rows.
struct ReadSelected
{
    static constexpr const char* kWord = "read selected rows of a million";

    void operator()(const ITable& table, const Selection& rows, Reading* buffer) const
    {
        table.GetFromSelection(buffer, -1, rows);
    }
    // The faster of two ways: a selection of points for few rows, all rows for many.
    void operator()(hid_t set, const Selection& rows, Reading* buffer) const
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
        H5Dread(set, TypeOf<Reading>(), memory, file, H5P_DEFAULT, buffer);
    }
    void operator()(const H5::DataSet& set, const Selection& rows, Reading* buffer) const
    {
        const hsize_t count = rows.size();
        const H5::DataSpace file = set.getSpace();
        file.selectElements(H5S_SELECT_SET, count, rows.data());
        set.read(buffer, CppTypeOf<Reading>(), H5::DataSpace(1, &count), file);
    }
};

struct Scatter
{
    static constexpr const char* kWord = "read a run to selected rows of a buffer";

    void operator()(const ITable& table, const Selection& rows, Reading* buffer) const
    {
        table.GetFromHyperslabToSelection(buffer, kMillion, TypeOf<Reading>(), kRunStart, rows);
    }
    void operator()(hid_t set, const Selection& rows, Reading* buffer) const
    {
        const hsize_t count = rows.size();
        const hsize_t start = kRunStart;
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, nullptr, &count, nullptr);
        H5Dread(set, TypeOf<Reading>(), memory, file, H5P_DEFAULT, run.get());
        for (std::size_t i = 0; i < count; ++i)
        {
            buffer[rows[i]] = run[i];
        }
    }
    void operator()(const H5::DataSet& set, const Selection& rows, Reading* buffer) const
    {
        const auto [memory, file] = SpacesOfARun(set, rows);
        set.read(buffer, CppTypeOf<Reading>(), memory, file);
    }
};

struct Collect
{
    static constexpr const char* kWord = "write selected rows of a buffer to a run";

    void operator()(ITable& table, const Selection& rows, Reading* buffer) const
    {
        table.SetToHyperslabFromSelection(buffer, kMillion, TypeOf<Reading>(), kRunStart, rows);
    }
    void operator()(hid_t set, const Selection& rows, Reading* buffer) const
    {
        const hsize_t count = rows.size();
        const hsize_t start = kRunStart;
        const std::unique_ptr<Reading[]> run(new Reading[count]);
        std::transform(rows.begin(), rows.end(), run.get(), [&](hsize_t row) { return buffer[row]; });
        const Id file(H5Dget_space(set));
        const Id memory(H5Screate_simple(1, &count, nullptr));
        H5Sselect_hyperslab(file, H5S_SELECT_SET, &start, nullptr, &count, nullptr);
        H5Dwrite(set, TypeOf<Reading>(), memory, file, H5P_DEFAULT, run.get());
    }
    void operator()(const H5::DataSet& set, const Selection& rows, Reading* buffer) const
    {
        const auto [memory, file] = SpacesOfARun(set, rows);
        set.write(buffer, CppTypeOf<Reading>(), memory, file);
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
const std::vector<Reason> kWriteReasons = {
    {"*", "a chunk has an index in the file and each call a fixed cost, which larger data hide", 512 * kKiB}};
const std::vector<Reason> kReadReasons = {
    {"*", "HDF5 copies a chunk of up to 1 MiB through its cache, and each call has a fixed cost", 512 * kKiB},
    {"h5py", "numpy's buffers lie on huge pages, which takes a tenth off a large read"},
    {"pytables", "numpy's buffers lie on huge pages, which takes a tenth off a large read"}};
const std::vector<Reason> kDeflateReasons = {
    {"h5py", "its chunks fit the processor's cache, the library stores one chunk"},
    {"pytables", "its chunks fit the processor's cache, the library stores one chunk"},
    kFixedCost};
const std::vector<Reason> kPickReasons = {
    {"plain", "the program reads the whole array into memory of its own; the library takes 0.6 MiB"}};
const std::vector<Reason> kFewReasons = {
    {"*", "a fixed cost of each call: the type is named and the arguments are tested", 256}};
const std::vector<Reason> kSelectedReasons = {{"*", "each place is tested against the table's end"}};
const std::vector<Reason> kRunReasons = {
    {"*", "the caller's type is compared with the stored one, and each place is tested against the buffer's end"}};
const std::vector<Reason> kTextReasons = {{"*", "each text is tested for what has to be converted to UTF-8"}};

const std::vector<std::size_t> kArraySizes = {8 * kKiB, 512 * kKiB, 8 * kMiB, 64 * kMiB, 512 * kMiB};
const std::vector<std::size_t> kTableSizes = {512 * kKiB, 8 * kMiB, 64 * kMiB};

template <typename Source>
Row WriteRow(Name name, const std::vector<std::size_t>& sizes, double target, const std::vector<Reason>& reasons,
             const Storage& storage)
{
    const Place fresh = {"data", "w",
                         [](Name /*path*/, std::size_t bytes)
                         {
                             Data<Source>(bytes / kSize<Source>);
                         }};
    return On({name, "bytes", sizes, target, reasons, 8 * kMiB}, fresh, Root{}, Write<Source>{storage});
}

template <typename Source>
Row ReadRow(Name name, const std::vector<std::size_t>& sizes, double target, const std::vector<Reason>& reasons,
            const Storage& storage)
{
    return On({name, "bytes", sizes, target, reasons, 8 * kMiB}, Stored<Source>("whole", storage), OpenData<Source>{},
              Read<Source>{});
}

// Writing and reading whole. The library's one chunk stands against a contiguous data set, and beside one chunk.
template <typename Source>
void AddWhole(Rows& rows, Name family, const std::vector<std::size_t>& sizes)
{
    const Row writeContiguous = WriteRow<Source>(family + "/write", sizes, 1.10, kWriteReasons, kContiguous);
    const Row readContiguous = ReadRow<Source>(family + "/read", sizes, 1.05, kReadReasons, kContiguous);
    const Row writeChunk = WriteRow<Source>(family + "/write", sizes, 1.02, {kFixedCost}, kOneChunk);
    const Row readChunk = ReadRow<Source>(family + "/read", sizes, 1.02, {kFixedCost}, kOneChunk);
    rows.push_back(writeContiguous);
    rows.push_back(readContiguous);
    rows.back().library = readChunk.library;
    rows.push_back(Beside(writeChunk, "one chunk", 1.02, writeChunk.plain));
    rows.push_back(Beside(readChunk, "one chunk", 1.02, readChunk.plain));
}

// Writing and reading whole with shuffle and deflate, for one kind of data.
template <typename Source>
void AddDeflated(Rows& rows, Name family, const std::vector<std::size_t>& sizes)
{
    for (const auto& [storage, writeTarget] : {std::pair(kDeflate1, 0.50), std::pair(kDeflate6, 0.65)})
    {
        const std::string word = " with shuffle and deflate " + std::to_string(storage.level) + ", " + Source::kWord;
        rows.push_back(WriteRow<Source>(family + "/write" + word, sizes, writeTarget, kDeflateReasons, storage));
        rows.push_back(ReadRow<Source>(family + "/read" + word, sizes, 0.55, kDeflateReasons, storage));
    }
}

template <typename Source>
void AddParts(Rows& rows, Name family, Name element)
{
    using T = Element<Source>;
    Buffer<T>();
    constexpr std::size_t kBytes = kLength<T> * sizeof(T);
    const auto add = [&](Name work, Name unit, const std::vector<std::size_t>& sizes, double target,
                         const std::vector<Reason>& reasons, const Storage& storage, Pattern (*patternOf)(std::size_t))
    {
        rows.push_back(On({family + "/" + work, unit, sizes, target, reasons}, Stored<Source>("parts", storage, kBytes),
                          OpenData<Source>{}, ReadPattern<Source>{patternOf}));
    };
    add("read every n-th " + element + " of 16 MiB", "n =", {16, 4, 2}, 1.02, kPickReasons, kOneChunk,
        [](std::size_t stride) {
            return Pattern{stride, kLength<T> / stride, 1};
        });
    const Row selected = Beside(rows.back(), "HDF5's selection", 1.02, rows.back().plain);
    rows.back().plain =
        OnFile(Stored<Source>("parts", kOneChunk, kBytes), PlainFile, OpenData<Source>{}, ReadAllAndPick<T>);
    rows.push_back(selected);
    add("read a run of " + element + "s", "bytes", {16 * kMiB}, 1.02, {}, kOneChunk,
        [](std::size_t bytes) {
            return Pattern{1, bytes / sizeof(T), 1};
        });
    add("read every 500th " + element + " of a contiguous data set, 10 times", element + "s",
        {16, 256, kLength<T> / 512}, 1.05, kFewReasons, kContiguous,
        [](std::size_t count) {
            return Pattern{500, count, 10};
        });
    add("read every 20th " + element + " in chunks of 1,024, 10 times", element + "s", {256, 4096, kLength<T> / 20},
        1.05, kFewReasons, kSmallChunks,
        [](std::size_t count) {
            return Pattern{20, count, 10};
        });
}

template <typename Work>
void AddSelected(Rows& rows, Name word, const std::vector<Reason>& reasons, Selection (*make)(std::size_t count))
{
    const std::vector<std::size_t> counts = {1000, 10000, 100000};
    const auto made = std::make_shared<std::map<std::size_t, Selection>>();
    for (const std::size_t count : counts)
    {
        (*made)[count] = make(count);
    }
    rows.push_back(On({std::string("tables/") + Work::kWord + ", " + word, "rows", counts, 1.05, reasons},
                      Stored<RepeatedRows>("million", kOneChunk, kMillion * sizeof(Reading)), OpenData<RepeatedRows>{},
                      [=](auto& table, std::size_t count) { Work{}(table, made->at(count), Buffer<Reading>()); }));
}

} // namespace

bench::Rows bench::DataSetRows()
{
    Rows rows;
    AddWhole<Counts>(rows, "arrays", kArraySizes);
    AddDeflated<Walk>(rows, "arrays", kTableSizes);
    AddDeflated<Sines>(rows, "arrays", kTableSizes);
    AddDeflated<NoisyCounts>(rows, "arrays", kTableSizes);
    AddDeflated<Counts>(rows, "arrays", kArraySizes);
    AddParts<Counts>(rows, "arrays", "element");
    AddWhole<RepeatedRows>(rows, "tables", kTableSizes);
    AddDeflated<Measurements>(rows, "tables", kTableSizes);
    AddDeflated<RepeatedRows>(rows, "tables", kTableSizes);
    AddParts<RepeatedRows>(rows, "tables", "row");
    rows.push_back(On({"tables/read a column of texts", "bytes", kTableSizes, 1.10, kTextReasons},
                      Stored<RepeatedRows>("whole", kOneChunk), OpenData<RepeatedRows>{}, ReadTexts{}));
    for (const auto& [word, make] :
         {std::pair("sorted", Sorted), {"shuffled", Shuffled}, {"each four times", Repeated}})
    {
        AddSelected<ReadSelected>(rows, word, kSelectedReasons, make);
        AddSelected<Scatter>(rows, word, kRunReasons, make);
        AddSelected<Collect>(rows, word, kRunReasons, make);
    }
    return rows;
}
