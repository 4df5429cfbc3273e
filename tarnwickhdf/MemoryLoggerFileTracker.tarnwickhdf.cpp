#include <tarnwickhdf/MemoryLoggerFileTracker.h>
#include <tarnwickhdf/internal/FileName.h>

#include <tarnwick/heap.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <ios>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

namespace
{

using Json = nlohmann::ordered_json;

std::string LocalTimestamp()
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local = {};
    // std::localtime gives one buffer to all threads.
    // localtime_r alone may go on with the time zone that the process started with.
    tzset();
    localtime_r(&seconds, &local);
    // A stream would ignore that memory ran out and give a cut text.
    char text[64] = "";
    std::strftime(text, sizeof(text), "%FT%T%z", &local);
    return text;
}

Json SampleOf(hid_t file)
{
    Json sample = Json::object();
    sample["name"] = FileNameOf(file);
    sample["dataset_count"] = H5Fget_obj_count(file, H5F_OBJ_DATASET);
    sample["group_count"] = H5Fget_obj_count(file, H5F_OBJ_GROUP);
    sample["attr_count"] = H5Fget_obj_count(file, H5F_OBJ_ATTR);
    sample["object_count"] = H5Fget_obj_count(file, H5F_OBJ_ALL);
    sample["file_count"] = H5Fget_obj_count(file, H5F_OBJ_FILE);
    sample["datatype_count"] = H5Fget_obj_count(file, H5F_OBJ_DATATYPE);
    double hitRate = 0;
    H5Fget_mdc_hit_rate(file, &hitRate);
    size_t maxSize = 0;
    size_t minCleanSize = 0;
    size_t currentSize = 0;
    int entries = 0;
    H5Fget_mdc_size(file, &maxSize, &minCleanSize, &currentSize, &entries);
    sample["cache_hit_rate"] = hitRate;
    sample["cache_max_size"] = maxSize;
    sample["cache_min_clean_size"] = minCleanSize;
    sample["cache_size"] = currentSize;
    sample["cache_num_entries"] = entries;
    return sample;
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
    Json document = Json::object();
    document["index"] = index;
    document["timestamp"] = LocalTimestamp();
    document["total_heap_used_bytes"] = count_heap_used_bytes();
    document["files"] = Json::array();
    {
        const std::lock_guard<std::mutex> lock(openFilesMutex);
        for (const hid_t file : openFiles)
        {
            document["files"].push_back(SampleOf(file));
        }
    }
    std::ofstream log(name, std::ios::app);
    log << document << std::endl;
    log.close();
}

} // namespace tarnwick::hdf
