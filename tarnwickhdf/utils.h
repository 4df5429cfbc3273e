#pragma once

#include <tarnwickhdf/export.h>

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf::utils
{

/// Reads a data set of strings with a single H5Dread and fills `strings` with exactly `count` texts.
///
/// @param strings receives the texts; what it held goes. If it holds `count` texts, their memory is used again. Whatever
///        is thrown, it keeps what it held.
/// @param dataSet the HDF5 id of the data set.
/// @param storedType the HDF5 string type that tells the character set.
/// @param memoryType the HDF5 type of the read; for one column of a table a compound of that one member.
/// @param count the number of items.
/// @param itemSize the bytes of one item, the size of `memoryType`.
///
/// For a String array `array` the arguments are `array.LocationID()`, `array.GetTypeID()` twice, `array.GetLength()`
/// and `array.GetComponents()`. Each text is the item's bytes up to its first NUL. Variable-length
/// strings are read too: `itemSize` plays no part then, a null item is the empty text, and HDF5's memory is given back.
/// Text stored as H5T_CSET_ASCII is taken for Latin-1 and converted, so that the result is UTF-8; other text comes back
/// unchanged. Of a data set that holds more than `count` items the first `count` are read, in memory for `count` items;
/// items that it lacks are empty texts.
/// @throws std::runtime_error "error reading string buffer from dataset" with traceback if HDF5 can't read; then "could
///         not detect charset from dataset" with traceback if `storedType` is no string type, so for sequences and
///         arrays of strings. A damaged file may claim more bytes than memory has: std::bad_alloc or
///         std::length_error then, and "error reading string buffer from dataset" from 2^64 bytes on.
TARNWICKHDF_EXPORT void ReadStringDataSet(std::vector<std::string>& strings, hid_t dataSet, hid_t storedType,
                                          hid_t memoryType, size_t count, size_t itemSize);

} // namespace tarnwick::hdf::utils
