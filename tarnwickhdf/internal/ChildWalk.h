#pragma once

#include <hdf5.h>

#include <functional>
#include <string>

namespace tarnwick::hdf
{

/// Gives a child's name, cut to 511 bytes; asked only where the name is needed.
/// @throws std::runtime_error "error getting object name" with traceback.
using ChildName = std::function<std::string()>;

/// Sees a child; returns whether the walk goes on.
using ChildVisitor = std::function<bool(const ChildName& name)>;

/// The number of links in a group.
/// @throws std::runtime_error "error getting number of objects in group" with traceback.
hsize_t CountChildren(hid_t group);

/// Shows the children of one kind, an H5G_obj_t value, in the order of HDF5's name index. The cost grows with the number
/// of children, where asking HDF5 for one child after the other by index grows with its square; that way is kept for
/// groups that HDF5 can't iterate, so that what can still be read of a damaged group is shown. It begins anew then:
/// `restart` is called in between.
/// @throws what `visit` throws.
void WalkChildren(hid_t group, int kind, const ChildVisitor& visit, const std::function<void()>& restart);

} // namespace tarnwick::hdf
