#pragma once

#include <string>

namespace tarnwick::hdf
{

/// Judges a 32-bit HDF5 result (herr_t, htri_t, int): below zero throws std::runtime_error with `message`, ":\n" and
/// the traceback of HDF5's error stack. To report a broken rule of the library in the same shape, pass -1.
void CheckResult(int result, const std::string& message);

/// Judges a 64-bit HDF5 result (hid_t, ssize_t, hssize_t), on its full width.
void CheckResult(long long result, const std::string& message);

/// The 64-bit form for platforms whose hid_t is a `long`.
inline void CheckResult(long result, const std::string& message)
{
    CheckResult(static_cast<long long>(result), message);
}

/// The same with a message that becomes a string only for a failure.
template <typename Result>
void CheckResult(Result result, const char* message)
{
    if (result < 0)
    {
        CheckResult(result, std::string(message));
    }
}

/// The same with a message that is put together, before + name + behind, only for a failure.
template <typename Result>
void CheckResult(Result result, const char* before, const std::string& name, const char* behind = "")
{
    if (result < 0)
    {
        CheckResult(result, before + name + behind);
    }
}

/// Judges the read of a whole data set or of single rows: the message holds the status and the name of the node.
inline void CheckRead(int status, const std::string& name)
{
    if (status < 0)
    {
        CheckResult(status, "Error " + std::to_string(status) + " while reading from dataset '" + name + "'");
    }
}

} // namespace tarnwick::hdf
