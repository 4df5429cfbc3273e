#pragma once

#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

namespace tarnwick::hdf
{

/// The arguments of a selection of blocks of one element.
struct Hyperslab
{
    static constexpr int kMostDimensions = 2;

    hsize_t start[kMostDimensions];
    hsize_t stride[kMostDimensions];
    hsize_t count[kMostDimensions];
};

/// Whether HDF5 stays inside a space with what it has selected there, or refuses it by itself. HDF5 looks at a
/// selection's last element alone: one whose arguments wrap around may seem to end inside, and HDF5 would crash over it, or
/// never come to an end. `dataSet` is -1 for a space in memory.
bool StaysInside(const ScopedSpace& space, const Hyperslab& slab, hid_t dataSet);

} // namespace tarnwick::hdf
