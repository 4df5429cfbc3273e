#pragma once

#include <hdf5.h>

#include <string>

namespace tarnwick::hdf
{

/// The name that HDF5 reports for a file id.
/// @throws std::runtime_error "Couldn't retrieve file name" (plain).
std::string FileNameOf(hid_t file);

} // namespace tarnwick::hdf
