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

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Task, work, kind, path, mode, rounds, times, isFirst, count, dataPath,
                                                element, level, chunk, stride, rowsPath, shape, block, distance, groups,
                                                names, texts)

} // namespace bench

using namespace bench;

namespace
{

constexpr const char* kMark = "__vorl_api_version";
constexpr hsize_t kOne = 1;
unsigned int version = 1;
double seconds = 0; // Of the task at hand.

unsigned int FlagsOf(Name mode)
{
    static const std::map<std::string, unsigned int> flags = {
        {"w", H5F_ACC_TRUNC}, {"r", H5F_ACC_RDONLY}, {"r+", H5F_ACC_RDWR}};
    return flags.at(mode);
}

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
    static std::vector<char> memory;
    if (!task.dataPath.empty())
    {
        std::vector<char>& bytes = Bytes(task.dataPath);
        memory.resize(std::max(memory.size(), bytes.size()));
        std::tie(task.type, task.number) = types.at(task.element);
        task.data = bytes.data();
        task.memory = memory.data();
        task.length = bytes.size() / H5Tget_size(task.type);
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
    void* __libc_calloc(std::size_t nmemb, std::size_t size);
    void* __libc_realloc(void* ptr, std::size_t size);
    void __libc_free(void* ptr);
    // NOLINTEND(bugprone-reserved-identifier)

    void* malloc(std::size_t size)
    {
        return Count(__libc_malloc(size), 1);
    }

    void* calloc(std::size_t nmemb, std::size_t size)
    {
        return Count(__libc_calloc(nmemb, size), 1);
    }

    void* realloc(void* ptr, std::size_t size)
    {
        Count(ptr, -1);
        void* moved = __libc_realloc(ptr, size);
        Count(moved == nullptr && size != 0 ? ptr : moved, 1);
        return moved;
    }

    void free(void* ptr)
    {
        __libc_free(Count(ptr, -1));
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

boost::shared_ptr<IFile> bench::LibraryFile(Name path, Name mode)
{
    return IFile::Open(path, mode, 0);
}

Id bench::PlainAccessList()
{
    const hid_t access = H5Pcreate(H5P_FILE_ACCESS);
    H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
    H5Pset_gc_references(access, 1);
    return Id(access);
}

Id bench::PlainFileWith(hid_t access, Name path, Name mode)
{
    const bool isNew = mode == "w";
    const unsigned int flags = FlagsOf(mode);
    const hid_t file =
        isNew ? H5Fcreate(path.c_str(), flags, H5P_DEFAULT, access) : H5Fopen(path.c_str(), flags, access);
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

Id bench::PlainFile(Name path, Name mode)
{
    return PlainFileWith(PlainAccessList(), path, mode);
}

H5::H5File bench::CppFile(Name path, Name mode)
{
    const auto& type = H5::PredType::NATIVE_UINT;
    H5::H5File file(path, FlagsOf(mode));
    if (mode == "w")
    {
        file.createAttribute(kMark, type, H5::DataSpace(1, &kOne)).write(type, &version);
    }
    else
    {
        file.openAttribute(kMark).read(type, &version);
    }
    return file;
}

// NOLINTNEXTLINE(bugprone-exception-escape): bench.py tells at which work the program ended.
int main()
{
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
            Works().at(task.work)(task);
        }
        const bool isFile = std::filesystem::is_regular_file(task.path);
        std::cout << seconds / static_cast<double>(task.rounds) << " " << heap.peak << " "
                  << (isFile ? std::filesystem::file_size(task.path) : 0) << std::endl;
    }
    return 0;
}
