#pragma once

#include "Rows.h"

#include <tarnwickhdf/tarnwickhdf.h>

#include <benchmark/benchmark.h>

#include <H5Cpp.h>

#include <filesystem>

namespace bench
{

/// Gives back an id of plain HDF5.
struct Id
{
    explicit Id(hid_t opened) : id(opened) {}
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;
    ~Id() { H5Idec_ref(id); }
    operator hid_t() const { return id; }

    const hid_t id;
};

/// A row of a table, 40 bytes.
constexpr std::size_t kText = 8;
struct Reading
{
    double time;
    double value;
    double error;
    int channel;
    int flags;
    char text[kText];
};

/// The file that a row works on: a new one each turn (mode "w"), or one that is made when a size is first asked for.
/// `make` makes it, and for a new one the data that will be written.
struct Place
{
    std::string name;
    std::string mode = "w";
    std::function<void(const std::string& path, std::size_t size)> make = {};

    std::string Ready(std::size_t size) const
    {
        const std::string path = PathOf(name + (mode == "w" ? "" : "-" + std::to_string(size)) + ".h5");
        if (make && (mode == "w" || !std::filesystem::exists(path)))
        {
            make(path, size);
        }
        return path;
    }
};

constexpr const char* kMark = "__vorl_api_version";

// What a plain file has in common with one of the library's.
Id PlainAccessList();
void LowerHitRateThreshold(hid_t file);
void WriteMark(hid_t file);
Id PlainFile(const std::string& path, const std::string& mode);
H5::H5File CppFile(const std::string& path, const std::string& mode);

template <typename T>
T& Object(boost::shared_ptr<T>& pointer)
{
    return *pointer;
}

template <typename T>
T& Object(T& thing)
{
    return thing;
}

/// A side of a row on a file: `openFile(path, mode)` gives the file, `open(file, size)` what the work is done on, and
/// `work(thing, size)` is measured.
template <typename OpenFile, typename Open, typename Work>
Side OnFile(Place place, OpenFile openFile, Open open, Work work)
{
    return [=](std::size_t size)
    {
        const std::string path = place.Ready(size);
        Turn turn;
        {
            auto file = openFile(path, place.mode);
            auto thing = open(Object(file), size);
            turn = Measured([&] { work(Object(thing), size); });
        }
        turn.fileBytes = std::filesystem::file_size(path);
        return turn;
    };
}

/// Things are objects of the library, ids, or objects of HDF5's C++ API.
template <typename Open, typename Work>
Side Library(Place place, Open open, Work work)
{
    return OnFile(
        place,
        [](const std::string& path, const std::string& mode) { return tarnwick::hdf::IFile::Open(path, mode, 0); },
        open, work);
}

template <typename Open, typename Work>
Side Plain(Place place, Open open, Work work)
{
    return OnFile(place, PlainFile, open, work);
}

template <typename Open, typename Work>
Side Cpp(Place place, Open open, Work work)
{
    return OnFile(place, CppFile, open, work);
}

/// A row whose sides open things on one place in one way, or plain HDF5 in another.
template <typename Open, typename LibraryWork, typename PlainWork>
Row On(Row row, const Place& place, Open open, LibraryWork library, PlainWork plain)
{
    row.library = Library(place, open, library);
    row.plain = Plain(place, open, plain);
    return row;
}

template <typename Open, typename LibraryWork, typename PlainWork, typename CppWork>
Row On(Row row, const Place& place, Open open, LibraryWork library, PlainWork plain, CppWork cpp)
{
    row = On(row, place, open, library, plain);
    row.cpp = Cpp(place, open, cpp);
    return row;
}

/// How a data set of one dimension is stored: chunks are of so many elements, none or all; with shuffle and deflate of a
/// level above 0.
struct Storage
{
    const char* word;
    hsize_t chunk;
    int level;
};

constexpr hsize_t kAll = HSIZE_UNDEF;
constexpr Storage kContiguous = {"contiguous", 0, 0};
constexpr Storage kOneChunk = {"one-chunk", kAll, 0};
constexpr Storage kSmallChunks = {"small-chunks", 1024, 0};
constexpr Storage kDeflate1 = {"deflate-1", kAll, 1};
constexpr Storage kDeflate6 = {"deflate-6", kAll, 6};

/// Makes a data set and writes it whole.
void WritePlainly(hid_t group, const char* name, hid_t type, hsize_t length, const Storage& storage,
                  const void* values);
void WriteByCpp(const H5::Group& group, const char* name, const H5::DataType& type, hsize_t length,
                const Storage& storage, const void* values);

/// Reads `count` elements, every stride-th, by a selection of HDF5's.
void ReadPlainly(hid_t set, hid_t type, hsize_t start, hsize_t stride, hsize_t count, void* values);
void ReadByCpp(const H5::DataSet& set, const H5::DataType& type, hsize_t start, hsize_t stride, hsize_t count,
               void* values);

/// The work for each of so many children of a group.
template <typename Work>
auto ForEachName(Work work)
{
    return [=](auto&& group, std::size_t count)
    {
        for (const std::string& name : Names("child", count))
        {
            work(group, name);
        }
    };
}

/// The root group, for `open`.
struct Root
{
    boost::shared_ptr<tarnwick::hdf::IGroup> operator()(tarnwick::hdf::IFile& file, std::size_t /*size*/) const
    {
        return file.GetRoot();
    }
    Id operator()(hid_t file, std::size_t /*size*/) const { return Id(H5Gopen2(file, "/", H5P_DEFAULT)); }
    H5::Group operator()(H5::H5File& file, std::size_t /*size*/) const { return file.openGroup("/"); }
};

/// The data set of a name, for `open`: what the library opens it as is added where that is known.
struct DataSet
{
    std::string name;

    Id operator()(hid_t file, std::size_t /*size*/) const { return Id(H5Dopen2(file, name.c_str(), H5P_DEFAULT)); }
    H5::DataSet operator()(H5::H5File& file, std::size_t /*size*/) const { return file.openDataSet(name); }
};

} // namespace bench
