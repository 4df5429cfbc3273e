#pragma once

#include <tarnwickhdf/IFileTracker.h>
#include <tarnwickhdf/export.h>

#include <hdf5.h>

#include <mutex>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

/// A tracker that keeps the ids of the open files and, when asked, appends one sample of the process's memory and of
/// HDF5's open objects to a log file. Make one, install it before the first file opens, and call AppendToMemoryLog at
/// the moments to sample: nothing in the library calls it.
///
/// Several threads may open, close and sample at once: the list of files has a mutex of its own. A sample that meets a
/// file in the very moment of its closing fails as AppendToMemoryLog tells, and nothing is lost by trying again.
///
/// A sample holds that mutex while it asks HDF5. So while another thread samples, open and close no file inside a
/// callback of HDF5, which holds HDF5's own lock: both would wait for each other.
class TARNWICKHDF_EXPORT MemoryLoggerFileTracker : public IFileTracker
{
public:
    /// Starts with no open file.
    MemoryLoggerFileTracker();
    /// Frees the list; files still open are not touched.
    ~MemoryLoggerFileTracker() override;
    /// A tracker can't be copied, because of its mutex.
    MemoryLoggerFileTracker(const MemoryLoggerFileTracker&) = delete;
    /// A tracker can't be assigned, because of its mutex.
    MemoryLoggerFileTracker& operator=(const MemoryLoggerFileTracker&) = delete;

    /// Appends `file` to the list; `name` is not used.
    void OnOpen(hid_t file, const std::string& name) override;

    /// Takes the first entry equal to `file` out of the list.
    /// @throws std::logic_error "Error closing file: " + `name` + ": HDF5 file id was not registered." if there is
    ///         none, as for a file that was opened before the tracker was installed; the list doesn't change.
    void OnClose(hid_t file, const std::string& name) override;

    /// Appends one line to the log file `name`, which is created if missing and never truncated: a JSON object in
    /// compact form with the keys, in this order, "index" (`index`, a number of the caller's choosing), "timestamp"
    /// (local time in whole seconds with its offset from UTC), "total_heap_used_bytes" and "files". "files" has one
    /// object for each open file in the order of opening, with "name", "dataset_count", "group_count", "attr_count",
    /// "object_count", "file_count", "datatype_count", "cache_hit_rate", "cache_max_size", "cache_min_clean_size",
    /// "cache_size" and "cache_num_entries". The cache numbers are zeros where HDF5 can't tell them.
    ///
    /// A log file that can't be opened or written is passed over in silence. Lines of concurrent calls on one log file
    /// may mix; give each thread a log of its own or sample from one thread.
    /// @throws std::runtime_error "Couldn't retrieve file name" (plain) if HDF5 can't name a file of the list, for
    ///         example one that another thread is closing; no line is written. On a thread that has opened no file
    ///         HDF5 prints this failure as well.
    /// @throws nlohmann::json::type_error number 316, "invalid UTF-8 byte at index ..." in its text, if a file's name
    ///         isn't UTF-8; what was written up to there stays in the log as an unfinished line.
    void AppendToMemoryLog(int index, const std::string& name);

private:
    std::mutex openFilesMutex;
    std::vector<hid_t> openFiles;
};

} // namespace tarnwick::hdf
