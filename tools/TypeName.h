#pragma once

#include <tarnwickhdf/TDataType.h>

#include <array>
#include <string>

/// The name of an element type.
inline std::string TypeName(tarnwick::hdf::TDataType::TDataType type)
{
    static const std::array<const char*, 19> names = {
        "Undefined", "Char",     "UChar",     "Short", "UShort", "Int",     "UInt",    "Int64",  "UInt64",      "Long",
        "ULong",     "LongLong", "ULongLong", "Float", "Double", "Float32", "Float64", "String", "VarLenString"};
    return names.at(static_cast<size_t>(type));
}
