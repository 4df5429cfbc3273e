#include "Fixture.h"

#include <tarnwickhdf/version.h>

namespace tarnwick::hdf::tests
{

TEST(Version, HeadersLibraryCMakeAndPkgConfigAgree)
{
    const std::string parts = std::to_string(TARNWICKHDF_VERSION_MAJOR) + "." +
                              std::to_string(TARNWICKHDF_VERSION_MINOR) + "." +
                              std::to_string(TARNWICKHDF_VERSION_PATCH);
    std::ifstream stream(TARNWICKHDF_PC);
    const std::string pkgConfig(std::istreambuf_iterator<char>(stream), {});

    EXPECT_EQ(TARNWICKHDF_VERSION, parts);
    EXPECT_EQ(GetVersions().library, parts);
    EXPECT_EQ(TARNWICKHDF_PROJECT_VERSION, parts);
    EXPECT_NE(pkgConfig.find("\nVersion: " + parts + "\n"), std::string::npos) << pkgConfig;
}

TEST(Version, TheOneOfHdf5IsThatOfTheLoadedLibrary)
{
    unsigned int numbers[3] = {};
    hbool_t isThreadSafe = false;
    H5get_libversion(&numbers[0], &numbers[1], &numbers[2]);
    H5is_library_threadsafe(&isThreadSafe);
    const std::string hdf5 =
        std::to_string(numbers[0]) + "." + std::to_string(numbers[1]) + "." + std::to_string(numbers[2]);

    EXPECT_EQ(GetVersions().hdf5, hdf5);
    EXPECT_EQ(GetVersions().isHdf5ThreadSafe, isThreadSafe);
    EXPECT_EQ(DescribeVersions(), std::string("tarnwickhdf ") + TARNWICKHDF_VERSION + ", HDF5 " + hdf5 +
                                      (isThreadSafe ? ", thread-safe" : ", not thread-safe"));
}

} // namespace tarnwick::hdf::tests
