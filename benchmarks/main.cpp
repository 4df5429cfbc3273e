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

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Task, work, kind, path, mode, rounds, times, isFirst, count, data,
                                                level, chunk, stride, rows, shape, block, distance, groups, names,
                                                texts)

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

// The elements of the data set in a file that bench.py has made, and their type.
struct Data
{
    hid_t type = -1;
    std::vector<char> bytes;

    explicit Data(Name path)
    {
        const Id file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
        const Id set(H5Dopen2(file, "data", H5P_DEFAULT));
        type = H5Tget_native_type(Id(H5Dget_type(set)), H5T_DIR_DEFAULT);
        bytes.resize(H5Dget_storage_size(set));
        H5Dread(set, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
    }
};

// What was read serves all later tasks.
void Load(Task& task)
{
    static std::map<std::string, Data> loaded;
    static std::vector<char> memory;
    if (!task.data.empty())
    {
        Data& data = loaded.try_emplace(task.data, task.data).first->second;
        memory.resize(std::max(memory.size(), data.bytes.size()));
        task.elements = data.bytes.data();
        task.memory = memory.data();
        task.type = data.type;
        task.length = data.bytes.size() / H5Tget_size(task.type);
        task.isTable = H5Tget_class(task.type) == H5T_COMPOUND;
        task.number = task.isTable ? TDataType::Undefined : INode::HDFTypeToDataType(task.type);
    }
    if (!task.rows.empty())
    {
        const std::vector<char>& bytes = loaded.try_emplace(task.rows, task.rows).first->second.bytes;
        const auto* rows = reinterpret_cast<const hsize_t*>(bytes.data());
        task.selection.assign(rows, rows + bytes.size() / sizeof(hsize_t));
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

// NOLINTNEXTLINE(bugprone-exception-escape): bench.py tells at which work the program ended.
int main()
{
    std::cout << "HDF5 " << H5_VERS_MAJOR << "." << H5_VERS_MINOR << "." << H5_VERS_RELEASE << ", gcc " << __VERSION__
              << std::endl;
    for (std::string line; std::getline(std::cin, line);)
    {
        Task task = nlohmann::json::parse(line);
        H5Eset_auto2(H5E_DEFAULT, &EndAtAnError, nullptr);
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
