#include "Fixture.h"

#include <hdf5.h>

#include <unistd.h>

#include <cstdint>

// H5Inmembers refuses HDF5's own kinds of id; this is what stands behind it.
extern "C" std::int64_t H5I_nmembers(H5I_type_t kind);

namespace tarnwick::hdf::tests
{

namespace
{

constexpr std::array<H5I_type_t, 7> kKinds = {H5I_FILE,     H5I_GROUP, H5I_DATASET,    H5I_DATASPACE,
                                              H5I_DATATYPE, H5I_ATTR,  H5I_GENPROP_LST};
constexpr std::array<const char*, 7> kKindNames = {"files", "groups",     "data sets",     "spaces",
                                                   "types", "attributes", "property lists"};

} // namespace

IdCounts IdCounts::Now()
{
    IdCounts ids;
    for (size_t i = 0; i < kKinds.size(); ++i)
    {
        // A conversion that HDF5 remembers keeps types of its own, which aren't among those that it counts for callers.
        ids.counts[i] =
            static_cast<hsize_t>(kKinds[i] == H5I_DATATYPE ? H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_DATATYPE)
                                                           : H5I_nmembers(kKinds[i]));
    }
    return ids;
}

bool operator==(const IdCounts& one, const IdCounts& other)
{
    return one.counts == other.counts;
}

std::ostream& operator<<(std::ostream& out, const IdCounts& ids)
{
    for (size_t i = 0; i < kKinds.size(); ++i)
    {
        out << ids.counts[i] << " " << kKindNames[i] << (i + 1 < kKinds.size() ? ", " : "");
    }
    return out;
}

HdfTest::HdfTest()
    : m_directory(std::filesystem::temp_directory_path() / ("tarnwickhdf-test-" + std::to_string(getpid())))
{
    std::filesystem::remove_all(m_directory);
    std::filesystem::create_directory(m_directory);
    H5open();
    H5Eset_auto1(nullptr, nullptr);
    m_idsBefore = IdCounts::Now();
}

HdfTest::~HdfTest()
{
    std::filesystem::remove_all(m_directory);
}

void HdfTest::TearDown()
{
    EXPECT_EQ(m_idsBefore, IdCounts::Now());
    EXPECT_EQ(H5Fget_obj_count(H5F_OBJ_ALL, H5F_OBJ_ALL), 0);
}

void OpenFileTest::Reopen(const std::string& mode)
{
    root.reset();
    file->Close();
    file = IFile::Open(Path("test.h5"), mode, 0);
    root = file->GetRoot();
}

} // namespace tarnwick::hdf::tests
