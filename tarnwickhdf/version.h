#pragma once

#include <tarnwickhdf/export.h>

#include <string>

/// The version that these headers belong to; CMake's package and the pkg-config file tell the same one.
#define TARNWICKHDF_VERSION "1.1.0"
/// Goes up when a program must be changed or compiled again.
#define TARNWICKHDF_VERSION_MAJOR 1
/// Goes up when operations are added.
#define TARNWICKHDF_VERSION_MINOR 1
/// Goes up when something is mended.
#define TARNWICKHDF_VERSION_PATCH 0

namespace tarnwick::hdf
{

/// What a program runs with, which may be newer than what it was compiled with.
struct TVersions
{
    std::string library;   ///< The version of tarnwickhdf, as "1.1.0".
    std::string hdf5;      ///< The version of HDF5, as "1.10.8".
    bool isHdf5ThreadSafe; ///< Whether threads may work on files of their own at the same time.
};

/// The versions of the libraries that are loaded.
/// @throws std::runtime_error "could not get HDF5's version" with traceback if HDF5 can't tell.
TARNWICKHDF_EXPORT TVersions GetVersions();

/// The same in one line, for logs and bug reports: "tarnwickhdf 1.1.0, HDF5 1.10.8, thread-safe".
/// @throws as GetVersions.
TARNWICKHDF_EXPORT std::string DescribeVersions();

} // namespace tarnwick::hdf
