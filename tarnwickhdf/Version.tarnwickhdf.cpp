#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/version.h>

#include <hdf5.h>

namespace tarnwick::hdf
{

TVersions GetVersions()
{
    unsigned int major = 0;
    unsigned int minor = 0;
    unsigned int release = 0;
    hbool_t isThreadSafe = false;
    CheckResult(H5get_libversion(&major, &minor, &release), "could not get HDF5's version");
    CheckResult(H5is_library_threadsafe(&isThreadSafe), "could not get HDF5's version");
    const std::string hdf5 = std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(release);
    return {TARNWICKHDF_VERSION, hdf5, isThreadSafe};
}

std::string DescribeVersions()
{
    const TVersions versions = GetVersions();
    return "tarnwickhdf " + versions.library + ", HDF5 " + versions.hdf5 +
           (versions.isHdf5ThreadSafe ? ", thread-safe" : ", not thread-safe");
}

} // namespace tarnwick::hdf
