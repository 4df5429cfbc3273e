#pragma once

#include <hdf5.h>

#include <cstdint>

namespace tarnwick::hdf
{

/// The library's vocabulary of element types. INode translates it to and from HDF5 types.
namespace TDataType
{

/// An element type. The values are part of the interface, and where two of them are the same HDF5 type on a platform, a
/// stored type reads back as the lower one: a 64-bit little-endian integer is Int64, never Long or LongLong.
enum TDataType : std::int32_t
{
    Undefined = 0,     ///< No type. As an argument: the array's own type. As a column's type: a nested type.
    Char = 1,          ///< H5T_NATIVE_SCHAR
    UChar = 2,         ///< H5T_NATIVE_UCHAR
    Short = 3,         ///< H5T_NATIVE_SHORT
    UShort = 4,        ///< H5T_NATIVE_USHORT
    Int = 5,           ///< H5T_NATIVE_INT
    UInt = 6,          ///< H5T_NATIVE_UINT
    Int64 = 7,         ///< H5T_STD_I64LE
    UInt64 = 8,        ///< H5T_STD_U64LE
    Long = 9,          ///< H5T_NATIVE_LONG
    ULong = 10,        ///< H5T_NATIVE_ULONG
    LongLong = 11,     ///< H5T_NATIVE_LLONG
    ULongLong = 12,    ///< H5T_NATIVE_ULLONG
    Float = 13,        ///< H5T_NATIVE_FLOAT
    Double = 14,       ///< H5T_NATIVE_DOUBLE
    Float32 = 15,      ///< H5T_IEEE_F32LE
    Float64 = 16,      ///< H5T_IEEE_F64LE
    String = 17,       ///< Fixed-length string, H5T_C_S1 made as long as the items are
    VarLenString = 18, ///< Variable-length sequence of strings; can be read from a file, never written
};

/// A column of a table: its element type and the HDF5 id of its member type. The id stays the table's.
struct THDFAndDataType
{
    TDataType dataType; ///< The element type, Undefined for a nested type
    hid_t hdfType;      ///< The HDF5 id of the member type
};

} // namespace TDataType

} // namespace tarnwick::hdf
