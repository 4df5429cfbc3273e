#pragma once

#include <hdf5.h>

#include <cstdint>

namespace tarnwick::hdf
{

// Where HDF5 1.10 to 2.2 differ, so that the library's answers and files don't.

/// What H5Oget_info1 and 2 and H5Oget_info_by_name1 and 2 fill.
#if H5_VERSION_GE(1, 12, 0)
using ObjectInfo = H5O_info1_t;
#else
using ObjectInfo = H5O_info_t;
#endif

/// The kind of a link that isn't a hard one, for which the object tells its kind.
inline int KindOfLink(H5L_type_t link)
{
    return link == H5L_TYPE_SOFT ? H5G_LINK : H5G_UDLINK;
}

/// The kind of a group's child by its index, H5G_UNKNOWN where HDF5 can't tell. A link is a link, wherever it leads:
/// from 1.12 on H5Gget_objtype_by_idx follows it.
inline int KindOfChildAt(hid_t group, hsize_t index)
{
#if H5_VERSION_GE(1, 12, 0)
    H5L_info_t link = {};
    if (H5Lget_info_by_idx(group, ".", H5_INDEX_NAME, H5_ITER_INC, index, &link, H5P_DEFAULT) < 0)
    {
        return H5G_UNKNOWN;
    }
    if (link.type != H5L_TYPE_HARD)
    {
        return KindOfLink(link.type);
    }
#endif
    return H5Gget_objtype_by_idx(group, index);
}

/// Reads a chunk as it is stored; the buffer must hold what H5Dget_chunk_storage_size says. From 2.0 on the function of
/// this name takes the buffer's size too.
inline herr_t ReadStoredChunk(hid_t dataSet, const hsize_t* offset, std::uint32_t& skippedFilters, void* buffer)
{
#ifdef H5Dread_chunk_vers
    return H5Dread_chunk1(dataSet, H5P_DEFAULT, offset, &skippedFilters, buffer);
#else
    return H5Dread_chunk(dataSet, H5P_DEFAULT, offset, &skippedFilters, buffer);
#endif
}

/// Lets new objects have the oldest form that can hold them, which is the default up to 1.14: files then are as small,
/// and list attributes in the same order, on every HDF5. What HDF5 doesn't grant stays at its default.
inline void SetOldestForms(hid_t fileAccessList)
{
    H5Pset_libver_bounds(fileAccessList, H5F_LIBVER_EARLIEST, H5F_LIBVER_LATEST);
}

} // namespace tarnwick::hdf
