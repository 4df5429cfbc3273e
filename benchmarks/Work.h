// What a work is and what works share. rows.py describes the rows, each of which names a work; to add one, describe it there
// and, if its work is new, add the three sides here in the file of their family.
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
using Selection = std::vector<hsize_t>;
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
    std::string kind;                  ///< Which of several, for a work that has them.
    std::string path, mode;            ///< The file that the work is done on; "w" makes it anew.
    std::size_t size = 0;              ///< The row's.
    std::size_t rounds = 1, times = 1; ///< So many turns are taken, so often the work is done in each.
    bool isFirst = false;              ///< A side's first turn tells of the heap.
    std::string dataPath, element;     ///< The file with the data, and their type as numpy names it or "reading".
    int level = 0;                     ///< Of deflate, with shuffle; 0 for neither.
    hsize_t chunk = 0;                 ///< The elements or rows of a chunk, 0 for contiguous data sets.
    hsize_t stride = 1, picked = 0;    ///< Of each so many elements one is read, and so many are.
    std::string rowsPath;              ///< The file with the numbers of the selected rows.
    Place shape, block, distance;      ///< Of a new extensible array; of a block that is moved; from one to the next.
    std::size_t blocks = 0;            ///< So many blocks are moved.
    Names groups, names, texts; ///< Groups with attributes; what the work is done for; a text for each attribute.

    Selection rows;                                  ///< The selected ones.
    void* data = nullptr;                            ///< The elements, or memory for them.
    hsize_t count = 0;                               ///< So many elements.
    hid_t type = -1;                                 ///< Of an element.
    TDataType::TDataType number = TDataType::Double; ///< The same, for numbers.
};

/// The works of each side, by "side work". Each family of works has its file.
using Works = std::map<std::string, std::function<void(const Task&)>>;

void AddObjectWorks(Works& works);
void AddDataSetWorks(Works& works);
void AddExtensibleArrayWorks(Works& works);
void AddTypedWorks(Works& works);

/// Measures the work: its time, and in a side's first turn the peak of the heap beyond what was allocated before.
void Measure(const Task& task, const std::function<void()>& work);

template <typename Things, typename Work>
void ForEach(const Things& things, Work work)
{
    for (const auto& thing : things)
    {
        work(thing);
    }
}

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

// A file as each side has it; a plain one has what the library's have: the mark and a setting of the cache.
constexpr const char* kMark = "__vorl_api_version";
boost::shared_ptr<IFile> LibraryFile(const Task& task);
Id PlainFile(const Task& task);
H5::H5File CppFile(const Task& task);

// What a plain file is made with.
Id PlainAccessList();
void LowerHitRateThreshold(hid_t file);
void WriteMark(hid_t file);

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

/// A side of a work: `openFile(task)` gives the file, `open(file, task)` what the work is done on, and `work(thing, task)`
/// is measured.
template <typename OpenFile, typename Open, typename Work>
void AddSide(Works& works, Name sideAndWork, OpenFile openFile, Open open, Work work)
{
    works[sideAndWork] = [=](const Task& task)
    {
        auto file = openFile(task);
        auto thing = open(Object(file), task);
        Measure(task, [&] { work(Object(thing), task); });
    };
}

/// The three sides of a work. `open` and `work` have an overload for each.
template <typename Open, typename Work>
void AddWork(Works& works, Name name, Open open, Work work)
{
    AddSide(works, "library " + name, LibraryFile, open, work);
    AddSide(works, "plain " + name, PlainFile, open, work);
    AddSide(works, "cpp " + name, CppFile, open, work);
}

/// The root group, for `open`.
struct Root
{
    auto operator()(IFile& file, const Task& /*task*/) const { return file.GetRoot(); }
    auto operator()(hid_t file, const Task& /*task*/) const { return Id(H5Gopen2(file, "/", H5P_DEFAULT)); }
    auto operator()(H5::H5File& file, const Task& /*task*/) const { return file.openGroup("/"); }
};

} // namespace bench
