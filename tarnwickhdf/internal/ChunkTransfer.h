#pragma once

#include <tarnwickhdf/internal/StorageLayout.h>

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

/// A read of all of a data set.
struct WholeRead
{
    hid_t dataSet;
    hid_t storedType;
    hid_t memoryType;
    hsize_t elements; ///< About as many as there are.
};

/// Reads a data set of shuffled and deflated chunks straight from the file, which is sooner unpacked so than by HDF5.
/// The chunks must lie one behind the other in the buffer: one chunk, one dimension, or chunks of all columns. What fits
/// HDF5's cache is read so once by a handle, and then by HDF5, from its cache.
///
/// Gives false where that can't be, doesn't pay or fails, for whatever reason: the caller goes HDF5's way then, for the
/// data or the words.
bool ReadPackedChunks(StorageTraits& remembered, const WholeRead& read, void* buffer);

} // namespace tarnwick::hdf
