#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/FileClosing.h>
#include <tarnwickhdf/internal/FileModes.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarnwick::hdf
{

namespace
{

bool IsMissing(const std::string& filename)
{
    std::error_code error;
    return std::filesystem::status(filename, error).type() == std::filesystem::file_type::not_found;
}

// Whether HDF5 would find, here or in another process, a lock against its own for writing.
bool IsLocked(const std::string& filename)
{
    const int file = ::open(filename.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
    {
        return false;
    }
    struct stat status = {};
    const bool isLocked = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
                          ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(file);
    return isLocked;
}

ScopedPropertyList CreateFileAccessList()
{
    ScopedPropertyList list(H5Pcreate(H5P_FILE_ACCESS));
    CheckResult(list.get(), "could not create property list for file access");
    CheckResult(H5Pset_fclose_degree(list.get(), H5F_CLOSE_STRONG), "could not set fclose degree");
    CheckResult(H5Pset_gc_references(list.get(), 1), "Error while calling H5Pset_gc_reference");
    SetOldestForms(list.get());
    return list;
}

// Whether this process has a file open already: then an id for it isn't the only one on that file.
bool IsOpenHere(const std::string& filename, hid_t accessList)
{
    const QuietErrors quiet;
    ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList));
    if (file.get() < 0)
    {
        file.reset(H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList));
    }
    return H5Fget_obj_count(file.get(), H5F_OBJ_ALL) > 1;
}

// HDF5 empties a file before it takes its lock, and a process that has the file open would lose it. So a file that is
// locked is opened first: that fails as HDF5 fails on the lock, or works, if HDF5 is told to do without locks. What
// this process itself has open HDF5 refuses without harm. A process that opens the file between the look at the lock
// and HDF5's own open isn't seen.
ScopedFile CreateOrEmpty(const std::string& filename, hid_t accessList)
{
    if (IsLocked(filename) && !IsOpenHere(filename, accessList))
    {
        ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList));
        if (file.get() < 0)
        {
            return file;
        }
    }
    return ScopedFile(H5Fcreate(filename.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, accessList));
}

// HDF5 takes a file that is empty when it opens it for new, and writes its own over what another process has made of it
// by the time that it gets the lock. Opening it for reading fails on the other's lock too, but never writes.
ScopedFile OpenToWrite(const std::string& filename, hid_t accessList)
{
    std::error_code error;
    if (std::filesystem::file_size(filename, error) == 0 && IsLocked(filename))
    {
        ScopedFile file(H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList));
        if (file.get() < 0)
        {
            return file;
        }
    }
    return ScopedFile(H5Fopen(filename.c_str(), H5F_ACC_RDWR, accessList));
}

// Makes a file that the others see only when it is whole. HDF5 makes it empty, takes its lock and writes it when it
// closes, and who opens it in between may write over another's work. A link never takes the place of a file.
bool MakeWhole(const std::string& filename, hid_t accessList)
{
    const std::string unfinished = filename + ".new-" + std::to_string(::getpid());
    const QuietErrors quiet;
    ScopedFile file(H5Fcreate(unfinished.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, accessList));
    if (file.get() < 0)
    {
        return false;
    }
    const bool isMade = CloseFile(file.release()) >= 0 && ::link(unfinished.c_str(), filename.c_str()) == 0;
    ::unlink(unfinished.c_str());
    return isMade;
}

// For file systems without links.
ScopedFile CreateNew(const std::string& filename, hid_t accessList)
{
    const QuietErrors quiet;
    return ScopedFile(H5Fcreate(filename.c_str(), H5F_ACC_EXCL, H5P_DEFAULT, accessList));
}

// A file that was made by somebody else in the meantime is opened, never emptied. What can't be made is tried in the way
// of mode "w": for its words, and for a symbolic link that leads nowhere yet.
ScopedFile CreateMissing(const std::string& filename, hid_t accessList)
{
    if (MakeWhole(filename, accessList) || !IsMissing(filename))
    {
        return OpenToWrite(filename, accessList);
    }
    ScopedFile file = CreateNew(filename, accessList);
    return file.get() >= 0 ? std::move(file) : CreateOrEmpty(filename, accessList);
}

ScopedFile OpenOrCreate(const std::string& filename, const std::string& mode, hid_t accessList)
{
    if (mode == "w")
    {
        return CreateOrEmpty(filename, accessList);
    }
    if (mode == "r")
    {
        return ScopedFile(H5Fopen(filename.c_str(), H5F_ACC_RDONLY, accessList));
    }
    if (mode == "r+")
    {
        // A file that is there but can't be read must not be taken for missing.
        const bool isMissing = !CanBeRead(filename) && IsMissing(filename);
        return isMissing ? CreateMissing(filename, accessList) : OpenToWrite(filename, accessList);
    }
    throw std::runtime_error("invalid file mode: " + mode);
}

} // namespace

// File streams take no wide path here, and they open directories; a pipe without a writer would block them.
bool CanBeRead(const std::string& filename)
{
    const int file = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
    {
        return false;
    }
    struct stat status = {};
    const bool readable = ::fstat(file, &status) == 0 && !S_ISDIR(status.st_mode);
    ::close(file);
    return readable;
}

ScopedFile OpenFile(const std::string& filename, const std::string& mode)
{
    const ScopedPropertyList accessList = CreateFileAccessList();
    ScopedFile file = OpenOrCreate(filename, mode, accessList.get());
    CheckResult(file.get(), "Failed to obtain a valid file handle for filename: ", filename);
    return file;
}

} // namespace tarnwick::hdf
