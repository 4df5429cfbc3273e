#include <tarnwickhdf/internal/HyperslabGuard.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace tarnwick::hdf
{

namespace
{

// HDF5 looks at a selection's last element alone, and takes one that wraps around for one that ends inside. Only an
// unlimited one it knows as such and refuses.
bool WrapsAround(hsize_t start, hsize_t stride, hsize_t count)
{
    return count > 1 && count != H5S_UNLIMITED && stride > (std::numeric_limits<hsize_t>::max() - start) / (count - 1);
}

bool WrapsAround(const Hyperslab& slab, int entries)
{
    for (int i = 0; i < entries; ++i)
    {
        if (WrapsAround(slab.start[i], slab.stride[i], slab.count[i]))
        {
            return true;
        }
    }
    return false;
}

bool IsEmpty(const Hyperslab& slab, int entries)
{
    for (int i = 0; i < entries; ++i)
    {
        if (slab.count[i] == 0)
        {
            return true;
        }
    }
    return false;
}

bool RunsBackwardsInside(hsize_t start, hsize_t stride, hsize_t count, hsize_t extent)
{
    const hsize_t step = 0 - stride;
    return start < extent && step < stride && count - 1 <= start / step;
}

// Whether HDF5 can follow a selection that runs backwards. Across the border of a chunk it never comes to an end.
bool CanRunBackwards(hid_t dataSet, int rank, const hsize_t* extent)
{
    const StorageLayout layout = StorageLayoutOf(dataSet);
    if (layout.layout == H5D_CHUNKED)
    {
        return std::equal(extent, extent + rank, layout.chunk, std::less_equal<>());
    }
    return layout.layout == H5D_CONTIGUOUS || layout.layout == H5D_COMPACT;
}

} // namespace

bool StaysInside(const ScopedSpace& space, const Hyperslab& slab, hid_t dataSet)
{
    if (!WrapsAround(slab, Hyperslab::kMostDimensions))
    {
        return true;
    }
    const int rank = std::clamp(H5Sget_simple_extent_ndims(space.get()), 0, Hyperslab::kMostDimensions);
    if (IsEmpty(slab, rank) || !WrapsAround(slab, rank))
    {
        return true;
    }
    hsize_t extent[Hyperslab::kMostDimensions] = {0, 0};
    H5Sget_simple_extent_dims(space.get(), extent, nullptr);
    bool isInside = dataSet == -1 || CanRunBackwards(dataSet, rank, extent);
    for (int i = 0; i < rank; ++i)
    {
        isInside = isInside && (!WrapsAround(slab.start[i], slab.stride[i], slab.count[i]) ||
                                RunsBackwardsInside(slab.start[i], slab.stride[i], slab.count[i], extent[i]));
    }
    return isInside;
}

} // namespace tarnwick::hdf
