#pragma once

#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/export.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

class IArray;
class IExtensibleArray2D;
class IFile;
class ITable;

/// A group of a file: it makes, finds, lists and removes groups and data sets.
///
/// Nothing is cached: every call that returns a node makes a new object with an HDF5 id of its own, owned by the
/// caller. A group passes its default compression to the groups and data sets that are made or opened through it.
///
/// Names may be paths. Except in CreateGroup they go to HDF5 unchanged: a leading slash starts at the root of the file,
/// and no operation but CreateGroup makes missing levels. Opening and testing walk the path level by level: a missing
/// level, a dangling link or a data set in the middle counts as "does not exist". The empty name has no answer: opening
/// and testing it throw "could not get info for " with traceback.
///
/// Where a factory has a `compression` argument, a value below 0 stands for the group's default, 0 for none, and a
/// value above 0 for that deflate level, behind the shuffle filter.
class TARNWICKHDF_EXPORT IGroup : public INode
{
public:
    /// A second view of the same group; copy and source share the HDF5 id and may go in any order.
    IGroup(const IGroup& other);
    /// Gives back this handle's id and shares the one of `other`; takes its name, file and default compression.
    IGroup& operator=(const IGroup& other);
    /// Closes this handle's share of the group.
    ~IGroup() override;

    /// The deflate level for what is made through this handle; 0 is none.
    int GetDefaultCompression() const;
    /// Sets the deflate level for what this handle makes or opens from now on, without a test. Nodes that are open
    /// already and the file itself don't change.
    void SetDefaultCompression(int compression);

    /// Opens or makes a group at every level of a path and returns the last one, whose name is the last component.
    /// Leading, trailing and doubled slashes are dropped: the path starts at this group, also with a slash in front. A
    /// name without any component gives a null pointer. Levels made before a failure stay in the file.
    /// @throws std::runtime_error "could not create group '" + level + "'" with traceback if a level can't be made, for
    ///         example because a data set has its name; "could not open group '" + level + "'" if it can't be opened.
    boost::shared_ptr<IGroup> CreateGroup(const std::string& name);

    /// Opens an existing group; its name is the whole path.
    /// @throws std::runtime_error with traceback: "Group does not exist" if no group is at the name, "could not open
    ///         group '" + name + "'" if HDF5 can't open it, "could not get info for " + name if HDF5 can't tell what is
    ///         there.
    boost::shared_ptr<IGroup> GetGroup(const std::string& name);

    /// Whether a group is at the name; false on an invalid node.
    /// @throws std::runtime_error "could not get info for " + name with traceback for the empty name.
    bool HasGroup(const std::string& name) const;

    /// Removes the name, whatever it stands for. Open handles of the object stay valid and keep working.
    /// @throws std::runtime_error "could not remove group '" + name + "'" with traceback.
    void DelGroup(const std::string& name);

    /// Opens all groups in this group, in the order of HDF5's name index. Links that aren't hard are passed over. A
    /// name comes cut to 511 bytes, so a group with a longer name can't be listed. The cost grows with the number of
    /// children.
    /// @throws std::runtime_error with traceback: "error getting number of objects in group" (also on an invalid node),
    ///         "error getting object name", and what GetGroup throws for a group that can't be opened.
    std::vector<boost::shared_ptr<IGroup>> ListGroups() const;

    /// Opens all data sets in this group that open as arrays, in the order of HDF5's name index; the others are passed
    /// over. Links that aren't hard are passed over. The cost grows with the number of children.
    /// @throws std::runtime_error with traceback: "error getting number of objects in group" (also on an invalid node),
    ///         "error getting object name".
    std::vector<boost::shared_ptr<IArray>> ListArrays() const;
    /// Like ListArrays for extensible arrays. A data set with a single unlimited dimension out of two is in both lists.
    std::vector<boost::shared_ptr<IExtensibleArray2D>> ListExtensibleArrays2D() const;
    /// Like ListArrays for tables.
    std::vector<boost::shared_ptr<ITable>> ListTables() const;

    /// The name of the child at a 0-based index, cut to 511 bytes. HDF5 walks the group for each call: to see all
    /// children use the lists.
    /// @throws std::runtime_error "error getting object name" with traceback, also for a bad index.
    std::string GetChildName(int index) const;

    /// What the child at a 0-based index is, an H5G_obj_t value: H5G_GROUP (0), H5G_DATASET (1), H5G_TYPE (2), H5G_LINK
    /// (3), H5G_UDLINK (4); H5G_UNKNOWN (-1) for a bad index. Nothing is thrown. HDF5 walks the group for each call.
    int GetChildType(int index) const;

    /// The number of children of every kind, links included.
    /// @throws std::runtime_error "error getting number of objects in group" with traceback.
    size_t GetNumberOfChildren() const;

    /// The number of groups in this group, links to groups not counted. The cost grows with the number of children.
    /// @throws std::runtime_error "error getting number of objects in group" with traceback.
    size_t GetNumberOfGroups() const;

    /// Whether this group has a data set of any kind; the walk stops at the first.
    /// @throws std::runtime_error "error getting number of objects in group" with traceback.
    bool HasDataSet() const;

    /// Makes an empty array: a data set with a null data space and no filters. The default compression is remembered
    /// for its first write. A data set that has the name is removed first and lost even if the creation fails.
    /// @throws std::runtime_error with traceback: "Fail to remove array: '" + name + "'", and what IArray::CreateEmpty
    ///         throws.
    boost::shared_ptr<IArray> CreateArray(const std::string& name, TDataType::TDataType type, size_t unused);

    /// Stores `length` x `components` elements as an array with the default compression. A data set that has the name
    /// is opened as an array and written with IArray::SetFromBuffer, in place if type and shape are equal.
    /// @throws what IArray::CreateFromBuffer, IArray::Open and IArray::SetFromBuffer throw.
    boost::shared_ptr<IArray> CreateArrayFromBuffer(const std::string& name, void* buffer, TDataType::TDataType type,
                                                    size_t length, size_t components);

    /// Makes an extensible array, see IExtensibleArray2D::Create. A name that is taken isn't seen here: the node that
    /// comes back has a negative id, and its first read or write fails.
    /// @throws what IExtensibleArray2D::Create throws.
    boost::shared_ptr<IExtensibleArray2D> CreateExtensibleArray2D(const std::string& name, TDataType::TDataType type,
                                                                  unsigned int rows, unsigned int columns,
                                                                  unsigned int chunkRows, unsigned int chunkColumns,
                                                                  int compression);

    /// Makes an empty table with a null data space, see ITable::CreateEmpty. `type` stays the caller's.
    /// @throws std::runtime_error "Fail to create an already existing table: " + name with traceback if a data set has
    ///         the name; and what ITable::CreateEmpty throws.
    boost::shared_ptr<ITable> CreateTable(const std::string& name, hid_t type);

    /// Makes a table of `rows` rows without writing any, see ITable::Create. `type` stays the caller's.
    /// @throws std::runtime_error "Fail to create an already existing table: " + name with traceback if a data set has
    ///         the name; and what ITable::Create throws.
    boost::shared_ptr<ITable> CreateTable(const std::string& name, size_t rows, hid_t type, int compression);

    /// Stores `rows` rows as a table, see ITable::CreateFromBuffer. A data set that has the name is opened as a table
    /// and written with ITable::SetFromBuffer; `memoryType` and `chunkRows` aren't used then.
    /// @throws what ITable::CreateFromBuffer, ITable::Open and ITable::SetFromBuffer throw.
    boost::shared_ptr<ITable> CreateTableFromBuffer(const std::string& name, void* buffer, size_t rows, hid_t type,
                                                    int compression, hid_t memoryType, size_t chunkRows);

    /// Stores the selected rows of a buffer of `memoryRows` rows as a table, see ITable::CreateFromSelection. A data
    /// set that has the name is opened as a table and written with ITable::SetFromSelection; `memoryType` isn't used
    /// then.
    /// @throws what ITable::CreateFromSelection, ITable::Open and ITable::SetFromSelection throw.
    boost::shared_ptr<ITable> CreateTableFromSelection(const std::string& name, void* buffer, size_t memoryRows,
                                                       const std::vector<hsize_t>& selection, hid_t type,
                                                       int compression, hid_t memoryType, size_t chunkRows);

    /// Opens an array. @throws what IArray::Open throws.
    boost::shared_ptr<IArray> GetArray(const std::string& name) const;
    /// Opens an extensible array. @throws what IExtensibleArray2D::Open throws.
    boost::shared_ptr<IExtensibleArray2D> GetExtensibleArray2D(const std::string& name) const;
    /// Opens a table. @throws what ITable::Open throws.
    boost::shared_ptr<ITable> GetTable(const std::string& name) const;

    /// Whether a data set of any kind is at the name; false on an invalid node.
    /// @throws std::runtime_error "could not get info for " + name with traceback for the empty name.
    bool HasArray(const std::string& name) const;
    /// The same test as HasArray.
    bool HasTable(const std::string& name) const;
    /// Whether the name opens as an extensible array. The one test of a kind: it opens the data set.
    bool HasExtensibleArray2D(const std::string& name) const;

    /// Removes the name, whatever it stands for; the way to remove a table too.
    /// @throws std::runtime_error "could not remove array '" + name + "'" with traceback.
    void DelArray(const std::string& name);
    /// Removes the name, whatever it stands for.
    /// @throws std::runtime_error "could not remove extensible array '" + name + "'" with traceback.
    void DelExtensibleArray2D(const std::string& name);

protected:
    /// Makes a new group. @throws std::runtime_error "could not create group '" + name + "'" with traceback.
    static boost::shared_ptr<IGroup> Create(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                            int compression);
    /// Opens an existing group. @throws what GetGroup throws.
    static boost::shared_ptr<IGroup> Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                          int compression);

    /// Opens a group or makes it, with the whole name passed to HDF5: the levels above the last must exist.
    /// @throws as CreateGroup, and "could not get info for " for the empty name.
    boost::shared_ptr<IGroup> CreateSubGroup(const std::string& name);

    /// Removes a name. @throws std::runtime_error "could not remove " + kind + " '" + name + "'" with traceback.
    void Delete(const std::string& name, const std::string& kind);

    /// Replaces `names` by the names of the children of one kind, an H5G_obj_t value, in the order of HDF5's name index
    /// and cut to 511 bytes. The cost grows with the number of children.
    /// @throws as the lists.
    void ListNames(int kind, std::vector<std::string>& names) const;

private:
    IGroup(boost::weak_ptr<IFile> file, hid_t location, const std::string& name, int compression);

    int SettleCompression(int compression) const;

    int m_default_compression;

    friend class IFile;
};

} // namespace tarnwick::hdf
