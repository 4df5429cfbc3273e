#pragma once

#include <string>

namespace tarnwick::hdf
{

/// Judges a 32-bit HDF5 result (herr_t, htri_t, int): below zero throws std::runtime_error with `message`, ":\n" and
/// the traceback of HDF5's error stack. To report a broken rule of the library in the same shape, hand over -1.
void CheckResult(int result, const std::string& message);

/// Judges a 64-bit HDF5 result (hid_t, ssize_t, hssize_t), on its full width.
void CheckResult(long long result, const std::string& message);

/// The 64-bit form for platforms whose hid_t is a `long`.
inline void CheckResult(long result, const std::string& message)
{
    CheckResult(static_cast<long long>(result), message);
}

} // namespace tarnwick::hdf
