#pragma once

#include <hdf5.h>

#include <array>
#include <cstdint>

// H5Inmembers refuses HDF5's own kinds of id; this is what stands behind it.
extern "C" std::int64_t H5I_nmembers(H5I_type_t kind);

namespace tarnwick::hdf::tests
{

using IdCounts = std::array<std::int64_t, 7>;

/// How many files, groups, data sets, spaces, attributes, property lists and types are open in this process. A
/// conversion that HDF5 remembers keeps types of its own, which aren't among those that it counts for callers.
inline IdCounts CountIds()
{
    return {{H5I_nmembers(H5I_FILE), H5I_nmembers(H5I_GROUP), H5I_nmembers(H5I_DATASET), H5I_nmembers(H5I_DATASPACE),
             H5I_nmembers(H5I_ATTR), H5I_nmembers(H5I_GENPROP_LST),
             H5Fget_obj_count(hid_t{H5F_OBJ_ALL}, H5F_OBJ_DATATYPE)}};
}

} // namespace tarnwick::hdf::tests
