#pragma once

/// Umbrella of tarnwickhdf: an object model over HDF5 files. Start at tarnwick::hdf::IFile::Open.
#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/IFileTracker.h>
#include <tarnwickhdf/IGroup.h>
#include <tarnwickhdf/IH5Object.h>
#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/MemoryLoggerFileTracker.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/utils.h>
