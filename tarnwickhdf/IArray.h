#pragma once

#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/export.h>

#include <boost/shared_array.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

class IFile;
enum class StorageTraits : std::uint8_t;
struct Refusal;

/// A data set of at most two dimensions whose elements are numbers or strings, written and read as a whole or by
/// hyperslabs.
///
/// Shape: a one-dimensional data set has `length` elements and 1 component; a two-dimensional one `length` rows of
/// `components` values, row-major. An array of fixed-length strings has `length` strings of `components` bytes each. A
/// data set with a null or scalar data space has length 0 and components 0; a read of a scalar still moves its one
/// element.
///
/// Buffers are flat memory of the caller, and the library doesn't measure them: they have the size that the array tells.
/// A read or a write in place that would move more is refused: the data set has grown through another handle, or its
/// strings have a second dimension, which the sizes leave out. Strings lie in a buffer one behind the
/// other, `components` bytes each, padded with NUL bytes, with no terminator required.
///
/// What is written is always chunked, as one chunk up to 2 GiB and in the fewest equal pieces above, with shuffle and
/// deflate if a compression is given. A new array that is one chunk is in the file when the call that writes it returns,
/// and not in HDF5's cache. The extent is fixed: a write of another shape replaces the data set.
class TARNWICKHDF_EXPORT IArray : public INode
{
public:
    /// A second view of the same data set; copy and source share the HDF5 ids and may go in any order.
    IArray(const IArray& other);
    /// Gives back this array's ids and shares those of `other`; takes every other field.
    IArray& operator=(const IArray& other);
    /// Closes this array's share of the data set and of the type.
    ~IArray() override;

    /// Makes an array with a null data space, no chunks and no filters; `compression` is remembered for the first
    /// SetFromBuffer. `parent` stays the caller's.
    /// @throws std::runtime_error with traceback: "invalid TDataType" if the type has no HDF5 type, "could not create
    ///         dataset" if HDF5 refuses, for example because the name is taken.
    static boost::shared_ptr<IArray> CreateEmpty(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                 TDataType::TDataType type, int compression);

    /// Makes an array of `length` x `components` elements (for String: `length` strings of `components` bytes, marked
    /// with the file's encoding, padding H5T_STR_NULLPAD) and writes `buffer` to it. With `components` 1 the data set
    /// has one dimension, with any other number two; strings have one. A `compression` of 0 or less stores no filters.
    /// String with `components` 0 stores strings of one byte: pass at least one byte an item, as
    /// CreateBufferFromStringVector does.
    /// @throws tarnwick::IPreconditionException "file must not be NULL" if the file object is gone.
    /// @throws std::runtime_error with traceback: "invalid TDataType" if the type has no HDF5 type, "could not create
    ///         dataset" if HDF5 refuses, "error writing to dataset" if the write fails (the data set stays in the
    ///         file), "could not H5Tcopy to write array: " + name, "error calling H5Tset_size of array: " + name,
    ///         "error calling H5Tset_strpad of array: " + name, "error calling H5Tset_cset for array: " + name.
    static boost::shared_ptr<IArray> CreateFromBuffer(boost::weak_ptr<IFile> file, hid_t parent,
                                                      const std::string& name, void* buffer, TDataType::TDataType type,
                                                      size_t length, size_t components, int compression);

    /// Opens an existing data set as an array. Its compression for a later rewrite is 0.
    /// @throws std::runtime_error with traceback: "Array does not exist" if no data set is at the name, "could not get
    ///         info for " + name if HDF5 can't tell what is there (so for the empty name), "could not open array '" +
    ///         name + "'", "could not get dataset's type", "H5T_COMPOUND is not a valid Array" for a table, "invalid
    ///         HDF type" for an element type that has no TDataType, "there's no support for arrays with more than 2
    ///         dimensions", "there's no support for variable length strings with more than 1 dimension".
    /// @throws std::runtime_error "not a valid Array" (plain) for two dimensions that are both unlimited: that is an
    ///         extensible array.
    static boost::shared_ptr<IArray> Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name);

    /// Whether a data set of any kind is at the name.
    /// @throws std::runtime_error "could not get info for " + name with traceback for the empty name.
    static bool Exists(hid_t parent, const std::string& name);

    /// Closes what this object holds and opens the named data set in it. Name and compression of the object stay.
    /// @throws as Open, with "could not reopen array '" + name + "'" in place of "could not open array"; the object is
    ///         then closed, and a ReOpen or a SetFromBuffer with another shape brings it back.
    void ReOpen(hid_t parent, const std::string& name);

    /// The first dimension, 0 for a null or scalar data space.
    size_t GetLength() const;
    /// The second dimension, or 1; for strings the bytes of one string; 0 for a null or scalar data space.
    size_t GetComponents() const;
    /// Length times components.
    size_t GetSize() const;
    /// Length times components times the bytes of one element.
    /// @throws std::runtime_error "unknown datatype!" (plain) for strings.
    size_t GetSizeInBytes() const;
    /// The element type.
    TDataType::TDataType GetType() const;
    /// The HDF5 type of the data set. The id stays the array's; -1 when closed.
    hid_t GetTypeID() const;

    /// Writes a whole array. With equal length, components and type the data set is rewritten in place; else it is
    /// unlinked and a new one made in its place with this object's compression, which is 0 for an array that came
    /// through Open. `type` Undefined stands for the array's own type. The buffer has the elements of `type`: nothing
    /// is converted. A replacement needs the group that the array was made or opened through to be open still; if it
    /// isn't, "could not create dataset" is thrown and the old data set stays.
    /// @throws std::runtime_error with traceback: "error writing to dataset" if the write fails, "could not write
    ///         charset for array: " + name if the file's encoding is none that HDF5 knows, "Invalid buffer size: the
    ///         dataset holds more elements than this object tells!" (in place); in a replacement what
    ///         CreateFromBuffer and ReOpen throw: the old contents are gone then and the object is closed.
    /// @throws tarnwick::IPreconditionException "INode::GetEncoding(): file is NULL" (strings, in place) or "file must
    ///         not be NULL" (replacement) if the file object is gone.
    void SetFromBuffer(void* buffer, TDataType::TDataType type, size_t newLength, size_t newComponents);

    /// Reads the whole data set. `type` is the type of the buffer's elements, and HDF5 converts to it; Undefined stands
    /// for the array's own type. The strings of a String array come as `components` bytes each, padded with NUL bytes,
    /// in the stored character set; variable-length strings are refused.
    /// @throws std::runtime_error with traceback: "Error " + status + " while reading from dataset '" + name + "'",
    ///         "invalid TDataType" if the type has no HDF5 type, "Invalid buffer size: the dataset holds more elements
    ///         than this object tells!".
    void GetToBuffer(void* buffer, TDataType::TDataType type) const;

    /// Reads the `count` elements start, start + stride, start + 2 * stride ... of a one-dimensional array, packed,
    /// into a buffer of `count` elements. `type` as in GetToBuffer. The arguments go to HDF5 as they are, so a negative
    /// stride may run backwards; it can't cross the border of a chunk.
    /// @throws std::runtime_error with traceback: "Error reading hyperslab from a multidimensional array!" if
    ///         `components` isn't 1, "Error creating array space hyperslab!" if HDF5 refuses the selection, so a stride
    ///         of 0, "Error reading from dataset to a memory hyperslab!" if the read fails, so beyond the extent and for
    ///         a negative `count`; "invalid TDataType".
    void GetFromHyperslab(void* buffer, int start, int stride, int count, TDataType::TDataType type) const;

    /// Reads a strided block into a flat buffer of `memoryLength` elements, which must be the product of `count`.
    /// `start`, `stride` and `count` have `dimensions` entries each. `type` as in GetToBuffer.
    /// @throws std::runtime_error with traceback: "Error reading hyperslab: there's no support for arrays with more
    ///         than 2 dimensions!" if `dimensions` is above 2, "Error reading hyperslab: the number of dimensions
    ///         doesn't match the array!" if it is below the rank of the data set, because HDF5 would read past the
    ///         arguments; entries that the data set has no dimension for count for nothing. And the last three messages
    ///         of the one-dimensional form.
    void GetFromHyperslab(void* buffer, int memoryLength, size_t dimensions, size_t* start, size_t* stride,
                          size_t* count, TDataType::TDataType type) const;

    /// Reads the first `count` elements of a one-dimensional array to the places start, start + stride, start + 2 *
    /// stride ... of a buffer of stride * count elements; what lies between stays as it was. `type` as in GetToBuffer.
    /// @throws std::runtime_error with traceback: "Error creating memory data space hyperslab!" or "Error creating file
    ///         data space hyperslab!" if HDF5 refuses a selection, "Error reading hyperslab from a multidimensional array!" if the data set has two dimensions, because
    ///         HDF5 would read past the arguments, "Error reading from dataset to a memory hyperslab!" if the read
    ///         fails, so for a `start` not below `stride`; "invalid TDataType".
    void GetToMemoryHyperslab(void* buffer, int start, int stride, int count, TDataType::TDataType type) const;

    /// The bytes of the longest string; 0 for no strings.
    static size_t CalculateMaxLengthFromStringVector(const std::vector<std::string>& strings);

    /// Lays out strings for CreateFromBuffer: `maxLength` bytes each, padded with NUL bytes, longer ones cut. 0 means
    /// the length of the longest string, but at least 1, because HDF5 has no strings of no bytes: for strings that are
    /// all empty the buffer has one byte an item. Give the same number, at least 1, as `components`.
    static boost::shared_array<char> CreateBufferFromStringVector(const std::vector<std::string>& strings,
                                                                  size_t maxLength);

protected:
    /// Reads type and shape of an open data set and refuses what isn't an array. `typeId` goes to the caller, also when
    /// this throws. @throws as Open.
    static void QueryInfo(hid_t dataSet, TDataType::TDataType& type, hid_t& typeId, size_t& length, size_t& components);

private:
    IArray(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t componentCount,
           size_t elementCount, hid_t type, int level, bool typeIsOwn);
    IArray(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t componentCount,
           size_t elementCount, hid_t type, int level, bool typeIsOwn, TDataType::TDataType typeName);

    static Refusal FindRefusal(hid_t dataSet, TDataType::TDataType& type, hid_t& typeId, size_t& length,
                               size_t& components);
    static boost::shared_ptr<IArray> FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                     hid_t dataSet, bool isNullIfRefused);
    void Close();
    static void Close(hid_t dataSet, hid_t typeId);

    void RewriteInPlace(void* buffer);
    void ReplaceFromBuffer(void* buffer, TDataType::TDataType type, size_t newLength, size_t newComponents);

    int compression;
    bool ownsType;
    bool mayHoldMore;
    mutable StorageTraits storage;
    hid_t parentId;
    size_t length;
    size_t components;
    TDataType::TDataType dataType;
    hid_t typeId;

    friend class IGroup;
};

} // namespace tarnwick::hdf
