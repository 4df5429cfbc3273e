#pragma once

#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

namespace tarnwick::hdf
{

/// Refuses to move a whole data set that holds more elements than its handle tells, because the caller's buffer has the
/// size that the handle told: the data set has grown through another handle, or has a dimension that the handle's sizes
/// leave out. To be asked only where that can be. A closed data set is left to HDF5's words.
inline void CheckOwnSizes(hid_t dataSet, hsize_t elements)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    const bool holdsMore =
        space.get() > 0 && static_cast<hsize_t>(H5Sget_simple_extent_npoints(space.get())) > elements;
    CheckResult(holdsMore ? -1 : 0, "Invalid buffer size: the dataset holds more elements than this object tells!");
}

/// Whether a dimension may become larger than it is.
inline bool MayGrow(int rank, const hsize_t* dimensions, const hsize_t* maximum)
{
    for (int i = 0; i < rank; ++i)
    {
        if (maximum[i] > dimensions[i])
        {
            return true;
        }
    }
    return false;
}

} // namespace tarnwick::hdf
