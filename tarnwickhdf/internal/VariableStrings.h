#pragma once

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

/// ReadStringDataSet for variable-length items, whose memory it gives back to HDF5 on every way out. A null item is the
/// empty text.
void ReadVariableStringDataSet(std::vector<std::string>& strings, hid_t dataSet, hid_t storedType, hid_t memoryType,
                               size_t count);

} // namespace tarnwick::hdf
