#pragma once

#include <tarnwickhdf/internal/ScopedId.h>

#include <string>

namespace tarnwick::hdf
{

/// Opens or creates a file as IFile::Open's modes say, with the access list that every file of the library has, and leaves
/// files that other processes have open alone.
/// @throws std::runtime_error what IFile::Open throws up to the open file.
ScopedFile OpenFile(const std::string& filename, const std::string& mode);

/// Whether a file can be opened for reading; a directory can't.
bool CanBeRead(const std::string& filename);

} // namespace tarnwick::hdf
