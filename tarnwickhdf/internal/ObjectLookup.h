#pragma once

#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

/// Whether a path leads to an object of the wanted type. A missing level, a dangling link or a data set in the middle
/// is no failure but the answer false. HDF5's error stack then tells of the first level that is missing: its link, or the
/// object behind the link. Time and memory grow with the length of the path.
/// @throws std::runtime_error "could not get info for " + name with traceback if everything on the path exists and HDF5
///         can't tell what it is; so for the empty name.
bool HasObjectOfType(hid_t location, const std::string& name, H5O_type_t type);

/// @throws std::runtime_error `kind` + " does not exist" with traceback if HasObjectOfType says no, and what that
/// throws.
void CheckObjectOfType(const std::string& kind, hid_t location, const std::string& name, H5O_type_t type);

/// The paths to every level of a name: "/a//b" gives "/", "/a", "/a/b". Each is made when it is asked for: all of them
/// together would take memory that grows with the square of the name.
class CumulativePathPrefixes
{
public:
    explicit CumulativePathPrefixes(const std::string& name);

    size_t size() const { return m_ends.size(); }
    std::string operator[](size_t level) const { return m_path.substr(0, m_ends[level]); }

    /// How many levels there are before the first ".", all if there is none.
    size_t LevelsBeforeDot() const;

private:
    std::string m_path;
    std::vector<size_t> m_ends;
};

/// Whether a level of a path is ".": HDF5 passes over it when it opens, but knows no link of that name.
bool HasDotComponent(const std::string& name);

/// Opens the data set at a path. That it opens answers CheckObjectOfType's question too, so that the object is looked
/// up once; only where it doesn't is CheckObjectOfType asked, for the words of its failure. A negative id comes back
/// with the traceback of H5Dopen1 still on the stack, for the caller's message.
ScopedDataSet OpenDataSetAt(const std::string& kind, hid_t parent, const std::string& name,
                            hid_t accessList = H5P_DEFAULT);

/// The same for a group, with the kind word "Group".
ScopedGroup OpenGroupAt(hid_t parent, const std::string& name);

} // namespace tarnwick::hdf
