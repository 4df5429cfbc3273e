// What a work is and what works share. rows.py describes the rows, each of which names a work; to add one, describe it there
// and, if its work is new, add its sides here in the file of their family.
#pragma once

#include <tarnwickhdf/typed.h>

#include <H5Cpp.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench
{

using namespace tarnwick::hdf;
using Name = const std::string&;
using Names = std::vector<std::string>;
using Place = std::array<hsize_t, 2>; ///< Rows and columns.

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

/// What is asked of a side: the fields of a row's task (rows.py), and what follows from them.
struct Task
{
    std::string work;                  ///< "library", "plain" or "cpp" and the work's name.
    std::string kind;                  ///< What is listed.
    std::string path, mode;            ///< The file that the work is done on; "w" makes it anew.
    std::size_t rounds = 1, times = 1; ///< So many turns are taken, so often the work is done in each.
    bool isFirst = false;              ///< A side's first turn tells of the heap.
    hsize_t count = 0;                 ///< So many elements of the data or values are moved, or blocks of the data.
    std::string data, rows;            ///< The files with the data and with the numbers of the selected rows.
    int level = 0;                     ///< Of deflate, with shuffle; 0 for neither.
    hsize_t chunk = 0;                 ///< The elements or rows of a chunk, 0 for contiguous data sets.
    hsize_t stride = 1;                ///< Of each so many elements one is read.
    Place shape, block, distance;      ///< Of a new extensible array; of a block that is moved; from one to the next.
    Names groups, names, texts; ///< Groups with attributes; what the work is done for; a text for each attribute.

    std::vector<hsize_t> selection;                  ///< The selected rows.
    void* elements = nullptr;                        ///< The data,
    void* memory = nullptr;                          ///< and room for as many that are read.
    hsize_t length = 0;                              ///< Elements of the data.
    hid_t type = -1;                                 ///< Of an element.
    TDataType::TDataType number = TDataType::Double; ///< The same for numbers,
    bool isTable = false;                            ///< and whether the elements are rows.
};

/// What each side does for each work, by "side work".
inline std::map<std::string, std::function<void(const Task&)>>& Works()
{
    static std::map<std::string, std::function<void(const Task&)>> works;
    return works;
}

/// Measures the work: its time, and in a side's first turn the peak of the heap beyond what was allocated before.
void Measure(const Task& task, const std::function<void()>& work);

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

/// Has the list make data sets in chunks (of 0 elements: contiguous), with shuffle and deflate of a level above 0.
inline void SetStorage(hid_t list, int dimensions, const hsize_t* chunk, int level)
{
    if (chunk[0] > 0)
    {
        H5Pset_chunk(list, dimensions, chunk);
    }
    if (level > 0)
    {
        H5Pset_shuffle(list);
        H5Pset_deflate(list, static_cast<unsigned int>(level));
    }
}

// A file as each side has it. A plain one has what the library's have: the mark and a setting of the cache.
constexpr const char* kMark = "__vorl_api_version";
constexpr hsize_t kOne = 1;

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

inline Id PlainFileWith(hid_t access, Name path, Name mode)
{
    const unsigned int flags = mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    const bool isNew = mode == "w";
    const hid_t file =
        isNew ? H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access) : H5Fopen(path.c_str(), flags, access);
    unsigned int version = 1;
    H5AC_cache_config_t config;
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    config.lower_hr_threshold = 0.8;
    H5Fset_mdc_config(file, &config);
    if (isNew)
    {
        const Id space(H5Screate_simple(1, &kOne, nullptr));
        const Id mark(H5Acreate2(file, kMark, H5T_NATIVE_UINT, space, H5P_DEFAULT, H5P_DEFAULT));
        H5Awrite(mark, H5T_NATIVE_UINT, &version);
    }
    else
    {
        const Id mark(H5Aopen(file, kMark, H5P_DEFAULT));
        H5Aread(mark, H5T_NATIVE_UINT, &version);
    }
    return Id(file);
}

inline Id PlainFile(Name path, Name mode)
{
    return PlainFileWith(PlainAccessList(), path, mode);
}

inline H5::H5File CppFile(Name path, Name mode)
{
    const auto& type = H5::PredType::NATIVE_UINT;
    const unsigned int flags = mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    const bool isNew = mode == "w";
    H5::H5File file(path, isNew ? H5F_ACC_TRUNC : flags);
    unsigned int version = 1;
    if (isNew)
    {
        file.createAttribute(kMark, type, H5::DataSpace(1, &kOne)).write(type, &version);
    }
    else
    {
        file.openAttribute(kMark).read(type, &version);
    }
    return file;
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

template <typename Things, typename Work>
void ForEach(const Things& things, Work work)
{
    for (const auto& thing : things)
    {
        work(thing);
    }
}

// How often a work is done in a round: once,
constexpr auto kOnce = [](auto& thing, const Task& task, const auto& work)
{
    work(thing, task);
};
// or for each name.
constexpr auto kForEachName = [](auto& thing, const Task& task, const auto& work)
{
    ForEach(task.names, [&](Name name) { work(thing, name); });
};

/// Makes a work known. Works are constants, so that each stands with its sides in one place.
struct Side
{
    /// What is measured has nothing to open before it.
    Side(Name sideAndWork, const std::function<void(const Task&)>& work)
    {
        Works()[sideAndWork] = [=](const Task& task)
        {
            Measure(task, [&] { work(task); });
        };
    }

    /// `openFile(path, mode)` gives the file and `open(file, task)` what the work is done on; `howOften(thing, task, work)`
    /// is measured.
    template <typename OpenFile, typename Open, typename HowOften, typename Work>
    Side(Name sideAndWork, OpenFile openFile, Open open, HowOften howOften, Work work)
    {
        Works()[sideAndWork] = [=](const Task& task)
        {
            auto file = openFile(task.path, task.mode);
            auto thing = open(Object(file), task);
            Measure(task, [&] { howOften(Object(thing), task, work); });
        };
    }
};

/// The three sides of a work. `open` has an overload for each.
struct Work
{
    template <typename Open, typename HowOften, typename Library, typename Plain, typename Cpp>
    Work(Name name, Open open, HowOften howOften, Library library, Plain plain, Cpp cpp)
    {
        Side("library " + name, LibraryFile, open, howOften, library);
        Side("plain " + name, PlainFile, open, howOften, plain);
        Side("cpp " + name, CppFile, open, howOften, cpp);
    }
};

/// The root group, for `open`.
struct Root
{
    auto operator()(IFile& file, const Task& /*task*/) const { return file.GetRoot(); }
    auto operator()(hid_t file, const Task& /*task*/) const { return Id(H5Gopen2(file, "/", H5P_DEFAULT)); }
    auto operator()(H5::H5File& file, const Task& /*task*/) const { return file.openGroup("/"); }
};

} // namespace bench
