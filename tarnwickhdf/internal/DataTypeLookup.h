#pragma once

#include <tarnwickhdf/TDataType.h>

#include <hdf5.h>

namespace tarnwick::hdf
{

/// The element type of an HDF5 type, Undefined if it has none; INode::HDFTypeToDataType without the exception.
TDataType::TDataType FindDataType(hid_t type);

} // namespace tarnwick::hdf
