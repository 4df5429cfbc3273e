#pragma once

#include <tarnwickhdf/export.h>

#include <hdf5.h>

#include <string>

namespace tarnwick::hdf
{

/// An observer that is called for each file that the library opens and closes. It is installed once for the whole process
/// with IFile::InstallGlobalFileTracker. It is called on the thread that opens or closes the file, and the library
/// holds no lock during the call: a tracker that serves several threads protects itself.
class TARNWICKHDF_EXPORT IFileTracker
{
public:
    /// Does nothing.
    virtual ~IFileTracker();

    /// A file was opened. `file` is its new HDF5 id, `name` the file name as the caller gave it to IFile::Open. The
    /// root group is not open yet. An exception from here reaches the caller of IFile::Open; the file is closed again
    /// without OnClose.
    virtual void OnOpen(hid_t file, const std::string& name) = 0;

    /// A file was closed. `file` is the id that it had, no more than a key now; `name` is the name that HDF5 reported
    /// before the close. An exception from here reaches the caller of IFile::Close; inside the destructor of IFile it
    /// is swallowed. If HDF5 couldn't tell the name while the destructor of IFile closed the file, `name` is empty.
    virtual void OnClose(hid_t file, const std::string& name) = 0;
};

} // namespace tarnwick::hdf
