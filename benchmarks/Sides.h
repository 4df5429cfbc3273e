#pragma once

#include "Rows.h"

#include <tarnwickhdf/typed.h>

#include <benchmark/benchmark.h>

#include <H5Cpp.h>

#include <filesystem>

namespace bench
{

using namespace tarnwick::hdf;

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
struct Reading
{
    double time;
    double value;
    double error;
    int channel;
    int flags;
    char text[8];
};

/// The file that a row works on: a new one each turn (mode "w"), or one that is made when a size is first asked for.
/// `make` makes it, and for a new one the data that will be written.
struct Place
{
    std::string name;
    std::string mode = "w";
    std::function<void(Name path, std::size_t size)> make = {};

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

/// A file that the library makes: `make(root, size)`.
template <typename Make>
Place MadeByLibrary(Name name, const char* mode, Make make)
{
    return {name, mode,
            [=](Name path, std::size_t size)
            {
                make(*IFile::Open(path, "w", 0)->GetRoot(), size);
            }};
}

// A file as each side has it; a plain one has what the library's have: the mark and a setting of the cache.
constexpr const char* kMark = "__vorl_api_version";

inline boost::shared_ptr<IFile> LibraryFile(Name path, Name mode)
{
    return IFile::Open(path, mode, 0);
}

inline Id PlainAccessList()
{
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
    H5Pset_gc_references(access, 1);
    return Id(access);
}

inline void LowerHitRateThreshold(hid_t file)
{
    H5AC_cache_config_t config;
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    config.lower_hr_threshold = 0.8;
    H5Fset_mdc_config(file, &config);
}

inline void WriteMark(hid_t file)
{
    const hsize_t one = 1;
    const unsigned int version = 1;
    const Id space(H5Screate_simple(1, &one, nullptr));
    const Id mark(H5Acreate2(file, kMark, H5T_NATIVE_UINT, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(mark, H5T_NATIVE_UINT, &version);
}

inline Id PlainFile(Name path, Name mode)
{
    const Id access = PlainAccessList();
    const unsigned int flags = mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    const bool isNew = mode == "w";
    const hid_t file =
        isNew ? H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access) : H5Fopen(path.c_str(), flags, access);
    LowerHitRateThreshold(file);
    if (isNew)
    {
        WriteMark(file);
    }
    return Id(file);
}

inline H5::H5File CppFile(Name path, Name mode)
{
    const unsigned int reading = mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    return H5::H5File(path, mode == "w" ? H5F_ACC_TRUNC : reading);
}

/// A list for data sets in chunks (of 0 dimensions: contiguous), with shuffle and deflate of a level above 0.
inline Id CreationList(int dimensions, const hsize_t* chunk, int level)
{
    const hid_t list = H5Pcreate(H5P_DATASET_CREATE);
    if (dimensions > 0)
    {
        H5Pset_chunk(list, dimensions, chunk);
    }
    if (level > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, static_cast<unsigned int>(level));
    }
    return Id(list);
}

/// The space of a data set of one dimension with a selection.
inline Id SelectedSpace(hid_t set, hsize_t start, hsize_t stride, hsize_t count)
{
    const hid_t space = H5Dget_space(set);
    H5Sselect_hyperslab(space, H5S_SELECT_SET, &start, &stride, &count, nullptr);
    return Id(space);
}

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

/// A row of three sides. `open` and `work` have an overload for each: for objects of the library, for ids, and for
/// objects of HDF5's C++ API.
template <typename Open, typename Work>
Row On(Row row, const Place& place, Open open, Work work)
{
    row.library = OnFile(place, LibraryFile, open, work);
    row.plain = OnFile(place, PlainFile, open, work);
    row.cpp = OnFile(place, CppFile, open, work);
    return row;
}

/// The row of a library's work that stands beside another way of plain HDF5 than the best one.
inline Row Beside(Row row, Name way, double target, const Side& plain)
{
    row.name += ", beside " + way;
    row.target = target;
    row.plain = plain;
    row.cpp = {};
    return row;
}

/// The work for each of so many children of a group.
template <typename Work>
auto ForEachName(Work work)
{
    return [=](auto&& group, std::size_t count)
    {
        ForEach(Names("child", count), [&](Name name) { work(group, name); });
    };
}

/// The root group, for `open`.
struct Root
{
    boost::shared_ptr<IGroup> operator()(IFile& file, std::size_t /*size*/) const { return file.GetRoot(); }
    Id operator()(hid_t file, std::size_t /*size*/) const { return Id(H5Gopen2(file, "/", H5P_DEFAULT)); }
    H5::Group operator()(H5::H5File& file, std::size_t /*size*/) const { return file.openGroup("/"); }
};

// What a caller has to know of an array before reading it.
inline void AskNumberType(hid_t type)
{
    H5Tget_size(type);
    H5Tget_order(type);
    if (H5Tget_class(type) == H5T_INTEGER)
    {
        H5Tget_sign(type);
    }
}

inline void AskShape(hid_t set)
{
    hsize_t dimensions[2] = {0, 0};
    hsize_t maximum[2] = {0, 0};
    const Id space(H5Dget_space(set));
    if (H5Sget_simple_extent_ndims(space) <= 2)
    {
        H5Sget_simple_extent_dims(space, dimensions, maximum);
    }
    benchmark::DoNotOptimize(dimensions);
}

/// Opens an array by its name and asks for type and shape; the library's way is added where it is known.
struct OpenByName
{
    void operator()(hid_t root, Name name) const
    {
        const Id set(H5Dopen2(root, name.c_str(), H5P_DEFAULT));
        AskNumberType(Id(H5Dget_type(set)));
        AskShape(set);
    }
    void operator()(const H5::Group& root, Name name) const
    {
        hsize_t dimensions[2] = {0, 0};
        hsize_t maximum[2] = {0, 0};
        const H5::DataSet set = root.openDataSet(name);
        benchmark::DoNotOptimize(set.getDataType().getSize());
        set.getSpace().getSimpleExtentDims(dimensions, maximum);
    }
};

} // namespace bench
