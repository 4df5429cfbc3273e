// Takes the turns of the sides in C++: reads tasks in JSON, a line each, and answers with the seconds of a round, the peak of
// the heap and the bytes of the file.
#include "Work.h"

#include <malloc.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace bench
{

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Task, work, kind, path, mode, size, rounds, times, isFirst, element,
                                                dataPath, chunk, level, stride, picked, rowsPath, shape, block,
                                                distance, blocks, groups, names, texts)

} // namespace bench

using namespace bench;

namespace
{

double seconds = 0; // Of the task at hand.

// Every block of the process's heap goes through here, the library's and HDF5's.
struct Heap
{
    bool isCounted;
    std::ptrdiff_t inUse;
    std::ptrdiff_t peak;
} heap = {};

// Counts a block that came (sign 1) or goes (sign -1).
void* Count(void* block, int sign)
{
    if (heap.isCounted && block != nullptr)
    {
        heap.inUse += sign * static_cast<std::ptrdiff_t>(malloc_usable_size(block));
        heap.peak = std::max(heap.peak, heap.inUse);
    }
    return block;
}

// A side that HDF5 refuses would be measured as a fast one.
herr_t EndAtAnError(hid_t stack, void* /*data*/)
{
    H5Eprint2(stack, stderr);
    std::abort();
}

hid_t ReadingType()
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

// What was read from a file serves all later tasks.
std::vector<char>& Bytes(Name path)
{
    static std::map<std::string, std::vector<char>> loaded;
    std::vector<char>& bytes = loaded[path];
    if (bytes.empty())
    {
        bytes.resize(std::filesystem::file_size(path));
        std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    return bytes;
}

void Load(Task& task)
{
    static const std::map<std::string, std::pair<hid_t, TDataType::TDataType>> types = {
        {"<f8", {H5Tcopy(H5T_NATIVE_DOUBLE), TDataType::Double}},
        {"<i4", {H5Tcopy(H5T_NATIVE_INT), TDataType::Int}},
        {"<i2", {H5Tcopy(H5T_NATIVE_SHORT), TDataType::Short}},
        {"reading", {ReadingType(), {}}}};
    if (!task.dataPath.empty())
    {
        std::vector<char>& bytes = Bytes(task.dataPath);
        std::tie(task.type, task.number) = types.at(task.element);
        task.data = bytes.data();
        task.count = bytes.size() / H5Tget_size(task.type);
    }
    if (!task.rowsPath.empty())
    {
        const std::vector<char>& bytes = Bytes(task.rowsPath);
        const auto* rows = reinterpret_cast<const hsize_t*>(bytes.data());
        task.rows.assign(rows, rows + bytes.size() / sizeof(hsize_t));
    }
}

} // namespace

extern "C"
{
    // NOLINTBEGIN(bugprone-reserved-identifier): these are glibc's names.
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void __libc_free(void* block);
    // NOLINTEND(bugprone-reserved-identifier)

    void* malloc(std::size_t size)
    {
        return Count(__libc_malloc(size), 1);
    }

    void* calloc(std::size_t count, std::size_t size)
    {
        return Count(__libc_calloc(count, size), 1);
    }

    void* realloc(void* block, std::size_t size)
    {
        Count(block, -1);
        void* moved = __libc_realloc(block, size);
        Count(moved == nullptr && size != 0 ? block : moved, 1);
        return moved;
    }

    void free(void* block)
    {
        __libc_free(Count(block, -1));
    }
}

void bench::Measure(const Task& task, const std::function<void()>& work)
{
    if (task.isFirst)
    {
        H5garbage_collect();
    }
    heap = {task.isFirst, 0, 0};
    const auto begin = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < task.times; ++i)
    {
        work();
    }
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    heap.isCounted = false;
}

boost::shared_ptr<IFile> bench::LibraryFile(const Task& task)
{
    return IFile::Open(task.path, task.mode, 0);
}

Id bench::PlainAccessList()
{
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
    H5Pset_gc_references(access, 1);
    return Id(access);
}

void bench::LowerHitRateThreshold(hid_t file)
{
    H5AC_cache_config_t config;
    config.version = H5AC__CURR_CACHE_CONFIG_VERSION;
    H5Fget_mdc_config(file, &config);
    config.lower_hr_threshold = 0.8;
    H5Fset_mdc_config(file, &config);
}

void bench::WriteMark(hid_t file)
{
    const hsize_t one = 1;
    const unsigned int version = 1;
    const Id space(H5Screate_simple(1, &one, nullptr));
    const Id mark(H5Acreate2(file, kMark, H5T_NATIVE_UINT, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(mark, H5T_NATIVE_UINT, &version);
}

Id bench::PlainFile(const Task& task)
{
    const Id access = PlainAccessList();
    const bool isNew = task.mode == "w";
    const unsigned int flags = task.mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    const hid_t file = isNew ? H5Fcreate(task.path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access)
                             : H5Fopen(task.path.c_str(), flags, access);
    LowerHitRateThreshold(file);
    if (isNew)
    {
        WriteMark(file);
    }
    return Id(file);
}

H5::H5File bench::CppFile(const Task& task)
{
    const unsigned int reading = task.mode == "r" ? H5F_ACC_RDONLY : H5F_ACC_RDWR;
    return H5::H5File(task.path, task.mode == "w" ? H5F_ACC_TRUNC : reading);
}

// NOLINTNEXTLINE(bugprone-exception-escape): bench.py tells at which work the program ended.
int main()
{
    Works works;
    AddObjectWorks(works);
    AddDataSetWorks(works);
    AddExtensibleArrayWorks(works);
    AddTypedWorks(works);
    std::cout << "HDF5 " << H5_VERS_MAJOR << "." << H5_VERS_MINOR << "." << H5_VERS_RELEASE << ", gcc " << __VERSION__
              << std::endl;
    for (std::string line; std::getline(std::cin, line);)
    {
        Task task = nlohmann::json::parse(line);
        Load(task);
        seconds = 0;
        H5Eset_auto2(H5E_DEFAULT, task.work.find("plain") == 0 ? &EndAtAnError : nullptr, nullptr);
        for (std::size_t round = 0; round < task.rounds; ++round)
        {
            works.at(task.work)(task);
        }
        const bool isFile = std::filesystem::is_regular_file(task.path);
        std::cout << seconds / static_cast<double>(task.rounds) << " " << heap.peak << " "
                  << (isFile ? std::filesystem::file_size(task.path) : 0) << std::endl;
    }
    return 0;
}
