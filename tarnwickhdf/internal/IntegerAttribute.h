#pragma once

#include <tarnwickhdf/TDataType.h>

#include <string>

namespace tarnwick::hdf
{

class INode;

/// Attribute names that begin with it belong to the library.
extern const std::string reservedAttributePrefix;

/// Reads an integer attribute of a node.
/// @throws std::runtime_error with traceback: "invalid attribute name: " + name if there is none, "could not read
///         attribute: " + name if it can't be read as one number.
unsigned int GetIntAttr(const INode& node, const std::string& name, TDataType::TDataType type);

/// Writes an integer attribute of a node: a simple space of one element.
/// @throws std::runtime_error with traceback: "could not create simple dataspace", "could not open attribute", "could
///         not create attribute", "could not write attribute".
void SetIntAttr(const INode& node, const std::string& name, unsigned int value, TDataType::TDataType type);

} // namespace tarnwick::hdf
