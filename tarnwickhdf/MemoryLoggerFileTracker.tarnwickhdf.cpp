#include <tarnwickhdf/MemoryLoggerFileTracker.h>
#include <tarnwickhdf/internal/FileName.h>

#include <tarnwick/heap.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <ios>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

namespace
{

using Json = nlohmann::json;

std::string LocalTimestamp()
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local = {};
    // std::localtime would hand out one buffer to all threads.
    // localtime_r alone may go on with the time zone that the process started with.
    tzset();
    localtime_r(&seconds, &local);
    // A stream would pass over want of memory and give a cut text.
    char text[64] = "";
    std::strftime(text, sizeof(text), "%FT%T%z", &local);
    return text;
}

struct FileSample
{
    std::string name;
    hssize_t dataSets, groups, attributes, objects, files, dataTypes;
    double hitRate;
    size_t maxSize, minCleanSize, currentSize;
    int entries;
};

FileSample SampleOf(hid_t file)
{
    FileSample sample = {};
    sample.name = FileNameOf(file);
    sample.dataSets = H5Fget_obj_count(file, H5F_OBJ_DATASET);
    sample.groups = H5Fget_obj_count(file, H5F_OBJ_GROUP);
    sample.attributes = H5Fget_obj_count(file, H5F_OBJ_ATTR);
    sample.objects = H5Fget_obj_count(file, H5F_OBJ_ALL);
    sample.files = H5Fget_obj_count(file, H5F_OBJ_FILE);
    sample.dataTypes = H5Fget_obj_count(file, H5F_OBJ_DATATYPE);
    H5Fget_mdc_hit_rate(file, &sample.hitRate);
    H5Fget_mdc_size(file, &sample.maxSize, &sample.minCleanSize, &sample.currentSize, &sample.entries);
    return sample;
}

// The documents are put together here and only their values by the JSON library: the destructor of its objects and
// arrays allocates, so that want of memory would end the process.
void Write(std::ostream& out, const char* beforeKey, const Json& value)
{
    out << beforeKey << value;
}

void Write(std::ostream& out, const FileSample& sample)
{
    Write(out, "{\"name\":", sample.name);
    Write(out, ",\"dataset_count\":", sample.dataSets);
    Write(out, ",\"group_count\":", sample.groups);
    Write(out, ",\"attr_count\":", sample.attributes);
    Write(out, ",\"object_count\":", sample.objects);
    Write(out, ",\"file_count\":", sample.files);
    Write(out, ",\"datatype_count\":", sample.dataTypes);
    Write(out, ",\"cache_hit_rate\":", sample.hitRate);
    Write(out, ",\"cache_max_size\":", sample.maxSize);
    Write(out, ",\"cache_min_clean_size\":", sample.minCleanSize);
    Write(out, ",\"cache_size\":", sample.currentSize);
    Write(out, ",\"cache_num_entries\":", sample.entries);
    out << "}";
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
    const std::string timestamp = LocalTimestamp();
    const size_t heapUsed = count_heap_used_bytes();
    std::vector<FileSample> samples;
    {
        const std::lock_guard<std::mutex> lock(openFilesMutex);
        std::transform(openFiles.begin(), openFiles.end(), std::back_inserter(samples), &SampleOf);
    }
    std::ofstream log(name, std::ios::app);
    Write(log, "{\"index\":", index);
    Write(log, ",\"timestamp\":", timestamp);
    Write(log, ",\"total_heap_used_bytes\":", heapUsed);
    log << ",\"files\":[";
    for (const FileSample& sample : samples)
    {
        log << (&sample == samples.data() ? "" : ",");
        Write(log, sample);
    }
    log << "]}" << std::endl;
    log.close();
}

} // namespace tarnwick::hdf
