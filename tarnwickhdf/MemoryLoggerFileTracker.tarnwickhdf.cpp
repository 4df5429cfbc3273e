#include <tarnwickhdf/MemoryLoggerFileTracker.h>
#include <tarnwickhdf/internal/FileName.h>

#include <tarnwick/heap.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <ios>
#include <sstream>
#include <stdexcept>

namespace tarnwick::hdf
{

namespace
{

using Json = nlohmann::ordered_json;

std::string LocalTimestamp()
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local = {};
    // std::localtime would hand out one buffer to all threads.
#if defined(_WIN32)
    localtime_s(&local, &seconds);
#else
    // localtime_r alone may go on with the time zone that the process started with.
    tzset();
    localtime_r(&seconds, &local);
#endif
    std::ostringstream text;
    text << std::put_time(&local, "%FT%T%z");
    return text.str();
}

Json DescribeFile(hid_t file)
{
    Json description;
    description["name"] = FileNameOf(file);
    description["dataset_count"] = H5Fget_obj_count(file, H5F_OBJ_DATASET);
    description["group_count"] = H5Fget_obj_count(file, H5F_OBJ_GROUP);
    description["attr_count"] = H5Fget_obj_count(file, H5F_OBJ_ATTR);
    description["object_count"] = H5Fget_obj_count(file, H5F_OBJ_ALL);
    description["file_count"] = H5Fget_obj_count(file, H5F_OBJ_FILE);
    description["datatype_count"] = H5Fget_obj_count(file, H5F_OBJ_DATATYPE);
    double hitRate = 0;
    size_t maxSize = 0;
    size_t minCleanSize = 0;
    size_t currentSize = 0;
    int entries = 0;
    H5Fget_mdc_hit_rate(file, &hitRate);
    H5Fget_mdc_size(file, &maxSize, &minCleanSize, &currentSize, &entries);
    description["cache_hit_rate"] = hitRate;
    description["cache_max_size"] = maxSize;
    description["cache_min_clean_size"] = minCleanSize;
    description["cache_size"] = currentSize;
    description["cache_num_entries"] = entries;
    return description;
}

} // namespace

IFileTracker::~IFileTracker() = default;

MemoryLoggerFileTracker::MemoryLoggerFileTracker() = default;
MemoryLoggerFileTracker::~MemoryLoggerFileTracker() = default;

void MemoryLoggerFileTracker::OnOpen(hid_t file, const std::string& /*name*/)
{
    const std::lock_guard<std::mutex> lock(openFilesMutex);
    openFiles.push_back(file);
}

void MemoryLoggerFileTracker::OnClose(hid_t file, const std::string& name)
{
    {
        const std::lock_guard<std::mutex> lock(openFilesMutex);
        const auto entry = std::find(openFiles.begin(), openFiles.end(), file);
        if (entry != openFiles.end())
        {
            openFiles.erase(entry);
            return;
        }
    }
    throw std::logic_error("Error closing file: " + name + ": HDF5 file id was not registered.");
}

void MemoryLoggerFileTracker::AppendToMemoryLog(int index, const std::string& name)
{
    Json sample;
    sample["index"] = index;
    sample["timestamp"] = LocalTimestamp();
    sample["total_heap_used_bytes"] = count_heap_used_bytes();
    Json& files = sample["files"] = Json::array();
    {
        const std::lock_guard<std::mutex> lock(openFilesMutex);
        for (const hid_t file : openFiles)
        {
            files.push_back(DescribeFile(file));
        }
    }
    std::ofstream log(name, std::ios::app);
    log << sample << std::endl;
    log.close();
}

} // namespace tarnwick::hdf
