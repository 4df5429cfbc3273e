#pragma once

#include <tarnwickhdf/TDataType.h>

#include <hdf5.h>

namespace tarnwick::hdf
{

/// The element type of an HDF5 type, Undefined if it has none; INode::HDFTypeToDataType without the exception.
TDataType::TDataType FindDataType(hid_t type);

/// Whether HDF5 says that two types are the same; not where it can't tell.
bool IsSameType(hid_t one, hid_t other);

} // namespace tarnwick::hdf
