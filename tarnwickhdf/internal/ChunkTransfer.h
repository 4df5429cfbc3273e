#pragma once

#include <hdf5.h>

#include <cstddef>

namespace tarnwick::hdf
{

/// How a data set lies in the file that is a single chunk, as the one who made it knows.
struct WholeChunk
{
    hsize_t elements = 0; ///< 0 for a data set that isn't a single chunk.
    int compression = 0;  ///< The level of deflate, with shuffle before it; 0 without filters.
};

/// Whether an element is all in its own bytes: it has no part of variable length and refers to nothing.
bool IsSelfContained(hid_t type);

/// Writes a new data set straight to the file: HDF5 would copy a chunk that is larger than its cache into it and out
/// again, and would keep a smaller one until its data set is closed, which tells nobody that the write failed. The bytes
/// of `buffer` are those of the stored type, `elementSize` of them an element.
///
/// Gives false, and has written nothing, if the data set isn't a single chunk or memory was lacking: the caller goes
/// HDF5's way then.
/// @throws std::runtime_error "error writing to dataset" with traceback if HDF5 can't write.
bool WriteWholeChunk(hid_t dataSet, const WholeChunk& chunk, size_t elementSize, const void* buffer);

} // namespace tarnwick::hdf
