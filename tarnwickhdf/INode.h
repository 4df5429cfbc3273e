#pragma once

#include <tarnwickhdf/IH5Object.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/export.h>

#include <boost/weak_ptr.hpp>

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

class IFile;

/// Base of everything inside a file: groups, arrays, extensible arrays, tables. It knows its file, its HDF5 id and the
/// name by which it was reached, and it carries named string attributes.
///
/// When the file closes, its nodes become invalid: IsValid is false, the id is -1, and every operation fails in its own
/// words, as HDF5 fails on that id. A node may be held on to and destroyed after its file.
///
/// Copies of a node share its HDF5 id through HDF5's reference count, so that copy and source may go in any order. A
/// copy isn't made invalid when the file closes: it keeps the old number, IsValid stays true, and every operation fails
/// as HDF5 fails on an id that is gone.
class TARNWICKHDF_EXPORT INode : public IH5Object
{
public:
    /// Copies file, id and name; the class of the copy takes its share of the id. The file doesn't make the
    /// copy invalid when it closes.
    INode(const INode& other);
    /// Takes over file, id and name of `other`; the class of the node gives back its old id and takes its share of the
    /// new one. A node that moves to another file leaves the old file's registry and enters the new file's, so that
    /// neither file ever reaches a destroyed node.
    INode& operator=(const INode& other);
    /// Leaves the registry of the file. The HDF5 id is closed by the class of the node.
    ~INode() override;

    /// Whether the node has an id: false once the file has closed.
    bool IsValid() const;
    /// The HDF5 id, -1 if the node is invalid. The id stays the node's.
    hid_t LocationID() const;
    /// The name by which the node was reached, character for character.
    std::string GetName() const;
    /// The absolute path that HDF5 knows for the object, cut to 1023 bytes; the empty string for an object that has
    /// none, because its last link was removed while the node stayed open.
    /// @throws std::runtime_error "Unable to get full name" with traceback, for example on an invalid node.
    std::string GetFullName() const;
    /// The file of the node; it can't be locked once the IFile object is gone.
    boost::weak_ptr<IFile> GetFile();
    /// Writes everything that HDF5 holds back of this node's file to the disk (H5F_SCOPE_LOCAL). What is held back of a
    /// data set is written at the latest when its last handle goes; a failure there, as on a full disk, is silent, so
    /// call this before.
    /// @throws std::runtime_error "Flush Fail!" with traceback. After a full disk HDF5 fails to close the file, too.
    void Flush();

    /// Stores a text under `name`: an attribute of one fixed-length string (simple space of one element, the bytes of
    /// `value` with no terminator, one NUL byte for an empty value), marked with the file's encoding. An attribute of
    /// that name, of whatever type, is deleted first; if a later step fails the old one is gone.
    /// @throws std::runtime_error with traceback: "Fail to delete an existing attribute named: " + name (also on an
    ///         invalid node), "could not create simple dataspace", "could not copy type for attribute: " + name, "could
    ///         not H5Tset_size for attribute: " + name, "could not set encoding for attribute: " + name, "fail to
    ///         create attribute: " + name, "could not write attribute".
    /// @throws tarnwick::IPreconditionException as GetEncoding does.
    void SetAttr(const std::string& name, const std::string& value);

    /// Reads a text attribute of any writer, fixed or variable length. One trailing NUL of a fixed-length value goes.
    /// Fixed-length text marked H5T_CSET_ASCII is cut at its first NUL, taken for Latin-1 and converted to UTF-8; other
    /// text comes back byte for byte. A variable-length value that is null, and an attribute without any element, give
    /// the empty string. An attribute of more than one element is refused, because it has no single value.
    /// @throws std::runtime_error "invalid attribute name: " + name with traceback if there is no such attribute,
    ///         "could not detect charset for attribute: " + name (plain) if it is no string, so for an array of
    ///         strings, "could not read attribute: " + name (plain) if it can't be read or has more than one element.
    std::string GetAttr(const std::string& name) const;

    /// The element type of an attribute.
    /// @throws std::runtime_error with traceback: "invalid attribute name: " + name if there is no such attribute,
    ///         "invalid HDF type" if its type has no TDataType.
    TDataType::TDataType GetAttrType(const std::string& name) const;

    /// The name of the attribute at a 0-based index that runs over all attributes, reserved ones too; cut to 511 bytes.
    /// @throws std::runtime_error with traceback: "could not open attribute by index", "could not get attribute name".
    std::string GetAttrName(int index) const;

    /// The number of all attributes, reserved ones too.
    /// @throws std::runtime_error "could not get number of attributes" with traceback.
    int GetNumberOfAttrs() const;

    /// The names of the attributes in HDF5's index order, without those that begin with the reserved "__vorl_". A name
    /// comes cut to 511 bytes. The cost grows with the number of attributes.
    /// @throws std::runtime_error with traceback: "could not get number of attributes", "could not open attribute by
    ///         index", "could not get attribute name".
    std::vector<std::string> ListAttrs() const;

    /// Whether there is an attribute of that name. True on an invalid node, where HDF5 can't tell.
    bool HasAttr(const std::string& name) const;

    /// Removes an attribute.
    /// @throws std::runtime_error "could not delete attribute " + name with traceback, also if there is none.
    void DelAttr(const std::string& name);

    /// The character set that the file gives to strings written now (IFile::GetEncoding); a closed IFile still answers.
    /// @throws tarnwick::IPreconditionException "INode::GetEncoding(): file is NULL" once the IFile object is gone.
    H5T_cset_t GetEncoding() const;

    /// The predefined HDF5 type of an element type. The id is HDF5's own: don't close it. It serves as file type and as
    /// memory type.
    /// @throws std::runtime_error "invalid TDataType" with traceback for Undefined, VarLenString and unknown values.
    static hid_t DataTypeToHDFType(TDataType::TDataType type);

    /// The element type of an HDF5 type. Every type of class H5T_STRING is String, a variable-length sequence of
    /// strings VarLenString. An id that is no type gives Char. Takes a look at class, size and sign and a single
    /// comparison.
    /// @throws std::runtime_error "invalid HDF type" with traceback for all other types, for example big-endian
    /// numbers.
    static TDataType::TDataType HDFTypeToDataType(hid_t& type);

    /// The bytes of one element. Long and ULong have the size of the platform's `long`, because HDF5 moves that many
    /// bytes for H5T_NATIVE_LONG: a smaller number would have callers allocate less than a read fills.
    /// @throws std::runtime_error "unknown datatype!" (plain) for Undefined, String, VarLenString and unknown values.
    static size_t GetDataTypeSize(TDataType::TDataType type);

protected:
    /// Stores the three fields and registers the node with its file, if that still exists.
    INode(boost::weak_ptr<IFile> file, hid_t location, const std::string& name);

    /// Leaves the registry of the file; harmless if the node isn't in it.
    void UnRegister();
    /// Sets the id to -1 and closes nothing.
    void Invalidate();

    boost::weak_ptr<IFile> m_file; ///< The file of the node; a node never keeps its file open.
    hid_t m_location;              ///< The HDF5 id of the object, -1 if invalid.
    std::string m_name;            ///< The name by which the node was reached.

private:
    friend class IFile;
};

} // namespace tarnwick::hdf
