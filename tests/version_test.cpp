#include "Fixture.h"

#include <tarnwickhdf/version.h>

namespace tarnwick::hdf::tests
{

std::string Dotted(unsigned int major, unsigned int minor, unsigned int patch)
{
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

TEST(Version, IsTheSameInHeadersCMakeAndPkgConfig)
{
    const std::string version = TARNWICKHDF_PROJECT_VERSION;

    EXPECT_EQ(TARNWICKHDF_VERSION, version);
    EXPECT_EQ(Dotted(TARNWICKHDF_VERSION_MAJOR, TARNWICKHDF_VERSION_MINOR, TARNWICKHDF_VERSION_PATCH), version);
    EXPECT_EQ(std::system(("grep -qx 'Version: " + version + "' " TARNWICKHDF_PC).c_str()), 0);
}

TEST(Version, IsToldOfTheLibraryAndOfTheHdf5ThatIsLoaded)
{
    unsigned int numbers[3] = {};
    hbool_t isThreadSafe = false;
    H5get_libversion(&numbers[0], &numbers[1], &numbers[2]);
    H5is_library_threadsafe(&isThreadSafe);

    EXPECT_EQ(DescribeVersions(), "tarnwickhdf " TARNWICKHDF_VERSION ", HDF5 " +
                                      Dotted(numbers[0], numbers[1], numbers[2]) +
                                      (isThreadSafe ? ", thread-safe" : ", not thread-safe"));
}

} // namespace tarnwick::hdf::tests
