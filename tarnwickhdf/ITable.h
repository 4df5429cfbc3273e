#pragma once

#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/export.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

class IDataSetBuilder;
class IFile;
enum class StorageTraits : std::uint8_t;
struct StoredRows;

/// A one-dimensional data set of a compound type: an element is a row, a member of the compound type is a column. Data
/// sets of class H5T_VLEN open as tables too and have no columns.
///
/// Element types are HDF5 compound types of the caller, who may close them right after the call: the table works on its
/// own copy. The ids that GetCompoundTypeID, GetColumnType and GetColumnTypeID return stay the table's.
///
/// A buffer holds rows one behind the other, each laid out as its memory type says; it is the caller's, and the library
/// doesn't measure it. A memory type with fewer members than the table reads only those columns. A memory type of 0 or
/// less stands for the table's own type where an operation says so. A read or a write in place of all rows is refused
/// where the table has grown through another handle and holds more rows than this one tells.
///
/// A table never changes its size in place: a write of another number of rows, or with a type id other than
/// GetCompoundTypeID's, replaces the data set. Chunks, filters and attributes of the old one are gone then, and the
/// column getters other than GetColumnName go on describing the columns that this object was made with.
///
/// A selection is a vector of 0-based row indices, in any order and with repetitions; HDF5 pairs the rows of both sides
/// in the order of their selections. An empty selection is refused; one with a row that the table or the buffer doesn't
/// have fails at the transfer.
class TARNWICKHDF_EXPORT ITable : public INode
{
public:
    /// A second view of the same data set; copy and source share the HDF5 ids and the column list and may go in any
    /// order. After a rewrite through one of them the other stays on the old, unlinked data set.
    ITable(const ITable& other);
    /// Gives back this table's ids and shares those of `other`; takes every other field.
    ITable& operator=(const ITable& other);
    /// Closes this table's share of the data set, the compound type and the member types.
    ~ITable() override;

    /// Makes a table of `rows` rows and writes none of them. It is stored as one chunk up to 2 GiB and in the fewest
    /// equal pieces above, with shuffle and deflate if `compression` is above 0. A table of 0 rows can't be compressed.
    /// @throws std::runtime_error with traceback: "Table already exist. Fail to create!" if a data set of any kind has
    ///         the name, "could not create dataset" if HDF5 refuses, "invalid HDF type" for a column that is neither a
    ///         TDataType nor an array, compound or variable-length type (the data set stays in the file), "could not
    ///         get info for " + name for the empty name.
    static boost::shared_ptr<ITable> Create(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                            size_t rows, hid_t type, int compression);

    /// Makes a table with a null data space and no layout, which opens with 0 rows. @throws as Create.
    static boost::shared_ptr<ITable> CreateEmpty(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                 hid_t type);

    /// Makes a table of `rows` rows and writes `buffer` to it, whose rows are laid out as `memoryType` says, or as
    /// `type` says if `memoryType` is 0 or less. `chunkRows` is the number of rows of a chunk, 0 for the rule of
    /// Create. What is one chunk of the buffer's own bytes is in the file when the call returns, and not in HDF5's cache.
    /// @throws std::runtime_error with traceback: "Invalid chunk size: Must be smaller than data set dimensions." if
    ///         `chunkRows` is above `rows`, "Invalid chunk size: The maximum size for any chunk is 4GB.", "could not
    ///         create dataset" if HDF5 refuses, for example because the name is taken, "error writing to dataset" (the
    ///         data set stays in the file), "invalid HDF type" as in Create.
    static boost::shared_ptr<ITable> CreateFromBuffer(boost::weak_ptr<IFile> file, hid_t parent,
                                                      const std::string& name, void* buffer, size_t rows, hid_t type,
                                                      int compression, hid_t memoryType, size_t chunkRows);

    /// Makes a table of `selection.size()` rows from a buffer of `memoryRows` rows: table row i is buffer row
    /// `selection[i]`. The other arguments as in CreateFromBuffer.
    /// @throws as CreateFromBuffer; "Error while selecting elements from memory data set" with traceback if HDF5
    ///         refuses the selection, for example an empty one. A row outside the buffer is told by the write.
    static boost::shared_ptr<ITable> CreateFromSelection(boost::weak_ptr<IFile> file, hid_t parent,
                                                         const std::string& name, void* buffer, size_t memoryRows,
                                                         const std::vector<hsize_t>& selection, hid_t type,
                                                         int compression, hid_t memoryType, size_t chunkRows);

    /// Opens a data set of at most one dimension whose type has the class H5T_COMPOUND or H5T_VLEN. A null or scalar
    /// data space gives 0 rows.
    /// @throws std::runtime_error with traceback: "Array does not exist" if no data set is at the name, "could not get
    ///         info for " + name if HDF5 can't tell what is there, "could not open Table '" + name + "'" if HDF5 can't
    ///         open it or it is no table, "Fail to on an open data set space", "invalid HDF type" for a column as in
    ///         Create.
    static boost::shared_ptr<ITable> Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name);

    /// Whether a data set of any kind is at the name.
    /// @throws std::runtime_error "could not get info for " + name with traceback for the empty name.
    static bool Exists(hid_t parent, const std::string& name);

    /// Closes what this object holds and opens the named data set in it. The name of the object stays, and so do the
    /// columns, except for what GetColumnName says.
    /// @throws as Open; the table is closed then, and a further ReOpen brings it back.
    void ReOpen(hid_t parent, const std::string& name);

    /// The number of rows, as this object knows it.
    size_t GetNumberOfRows() const;
    /// The number of columns that this object was made with.
    size_t GetNumberOfColumns() const;
    /// The name of a column in the table's present type; the empty string if it has no such column.
    std::string GetColumnName(int column) const;
    /// The element type of a column, Undefined for an array, compound or variable-length member.
    /// @throws std::runtime_error "Invalid column index: " + column + " (" + columns + " columns)" (plain).
    TDataType::TDataType GetColumnDataType(int column) const;
    /// Element type and member type id of a column; the id stays the table's. @throws as GetColumnDataType.
    TDataType::THDFAndDataType GetColumnType(int column) const;
    /// The HDF5 id of a column's member type; it stays the table's. @throws as GetColumnDataType.
    hid_t GetColumnTypeID(int column) const;
    /// The HDF5 id of the element type; it stays the table's; -1 while the table is closed.
    hid_t GetCompoundTypeID() const;
    /// The location that the table was made or opened under. A rewrite goes through it, so it must be open then.
    hid_t ParentID() const;

    /// Replaces the rows of the table. If `rows` is the table's number of rows and `type` is 0 or less or the id of
    /// GetCompoundTypeID, the data set is written in place, and `compression` is ignored. In every other case the data
    /// set is unlinked and a new one made, with `type` (0 or less: the table's own), the low 32 bits of `compression`
    /// and the chunk rule of Create. The buffer is laid out as the resulting type.
    /// @throws std::runtime_error with traceback: "error writing to dataset" if the write in place fails, "Invalid buffer
    ///         size: the dataset holds more elements than this object tells!"; in a rewrite what CreateFromBuffer and Open throw: the old rows are gone then and the table is closed. A closed table
    ///         has no type left: without a `type` it throws "could not create dataset" and removes nothing.
    void SetFromBuffer(void* buffer, size_t rows, hid_t type, size_t compression);

    /// Reads all rows. `memoryType` 0 or less stands for the table's own type. A scalar table moves its one row.
    /// @throws std::runtime_error with traceback: "Error " + status + " while reading from dataset '" + name + "'",
    ///         "Invalid buffer size: the dataset holds more elements than this object tells!".
    void GetToBuffer(void* buffer, hid_t memoryType) const;

    /// Reads the `count` rows start, start + stride, start + 2 * stride ... packed. `memoryType` has no default here.
    /// @throws std::runtime_error with traceback: "Fail to on an open data set space", "Error while selecting elements
    ///         from file data set" if HDF5 refuses the selection, so a stride of 0, "Error reading data set hyperslab."
    ///         if the read fails, so beyond the last row.
    void GetFromHyperslab(void* buffer, size_t start, size_t stride, size_t count, hid_t memoryType) const;

    /// Reads one column of strings and nothing else; `strings` then has exactly GetNumberOfRows texts in UTF-8.
    /// Fixed-length text is cut at its first NUL; variable-length columns are read too, a null value as the empty text.
    /// Text marked H5T_CSET_ASCII is taken for Latin-1 and converted.
    /// @throws std::runtime_error "Invalid column index: " + column + " (" + columns + " columns)" (plain) for a column
    ///         that the table doesn't have, "not a string array" (plain) for a column of another class; with traceback
    ///         "error reading string buffer from dataset", "could not detect charset from dataset". `strings` is then
    ///         untouched.
    void FeedStringVector(std::vector<std::string>& strings, int column) const;

    /// Reads all rows: table row i goes to row `selection[i]` of a buffer of `memoryRows` rows. The other rows of the
    /// buffer stay. `memoryType` 0 or less stands for the table's own type.
    /// @throws std::runtime_error with traceback: "Error while selecting elements from memory data set" if HDF5 refuses
    ///         the selection, "Error reading data set to a memory selection!" if the read fails, so if the selection
    ///         doesn't name exactly as many rows as the table has.
    void GetToSelection(void* buffer, size_t memoryRows, hid_t memoryType, const std::vector<hsize_t>& selection) const;

    /// Reads scattered rows: table row `selection[i]` goes to buffer row i. `memoryType` 0 or less stands for the
    /// table's own type.
    /// @throws std::runtime_error with traceback: "Fail to on an open data set space", "Error while selecting elements
    ///         from file data set", "Error " + status + " while reading from dataset '" + name + "'".
    void GetFromSelection(void* buffer, hid_t memoryType, const std::vector<hsize_t>& selection) const;

    /// Reads scattered rows to scattered places: table row `fileSelection[i]` goes to row `memorySelection[i]` of a
    /// buffer of `memoryRows` rows. `memoryType` 0 or less stands for the table's own type.
    /// @throws std::runtime_error with traceback: "Fail to on an open data set space", "Error while selecting elements
    ///         from file data set", "Error while selecting elements from memory data set", "Error reading data set to a
    ///         memory selection!", so for selections of different sizes.
    void GetFromToSelection(void* buffer, size_t memoryRows, hid_t memoryType,
                            const std::vector<hsize_t>& fileSelection,
                            const std::vector<hsize_t>& memorySelection) const;

    /// Reads a run of rows to scattered places: table row `fileStart` + i goes to row `selection[i]` of a buffer of
    /// `memoryRows` rows. `memoryType` has no default here.
    /// @throws as GetFromToSelection.
    void GetFromHyperslabToSelection(void* buffer, size_t memoryRows, hid_t memoryType, size_t fileStart,
                                     const std::vector<hsize_t>& selection) const;

    /// Writes scattered rows to a run: row `selection[i]` of a buffer of `memoryRows` rows goes to table row
    /// `fileStart` + i. The table keeps its size and its other rows. `memoryType` has no default here.
    /// @throws as GetFromToSelection, with "error writing to dataset" if the transfer fails, so past the last row; rows
    ///         may have been stored before it failed.
    void SetToHyperslabFromSelection(void* buffer, size_t memoryRows, hid_t memoryType, size_t fileStart,
                                     const std::vector<hsize_t>& selection);

    /// Replaces the rows of the table by selected rows of a buffer of `rows` rows. If `rows` is the table's number of
    /// rows and `type` is 0 or less or the id of GetCompoundTypeID, the whole buffer is written in place, row for row,
    /// and `selection` plays no part. In every other case the data set is replaced as in SetFromBuffer by a table of
    /// `selection.size()` rows, with `chunkRows` as in CreateFromBuffer.
    /// @throws std::runtime_error as SetFromBuffer if the write in place fails; in a rewrite what CreateFromSelection and Open throw: the old rows are gone then and the table is closed.
    void SetFromSelection(void* buffer, size_t rows, const std::vector<hsize_t>& selection, hid_t type,
                          size_t compression, size_t chunkRows);

private:
    using ColumnTypes = std::vector<TDataType::THDFAndDataType>;

    ITable(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t rows,
           hid_t compound);

    void Close();
    static void QueryInfo(hid_t parent, const std::string& name, hid_t& dataSet, size_t& rows, hid_t& compound);

    static bool IsTable(IDataSetBuilder& builder, size_t& rows);
    static boost::shared_ptr<ITable> FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                     hid_t dataSet, bool isNullIfRefused);
    static boost::shared_ptr<ITable> MakeOf(IDataSetBuilder& builder, boost::weak_ptr<IFile> file, hid_t parent,
                                            const std::string& name, size_t rows, hid_t type);
    bool FitsInPlace(size_t rows, hid_t type) const;
    hid_t MemoryTypeOrOwn(hid_t memoryType) const;
    const TDataType::THDFAndDataType& Column(int column) const;
    void OpenAgain(hid_t parent, const std::string& name);
    StoredRows Rows() const;
    void WriteInPlace(const void* buffer);
    void SelectRun(IDataSetBuilder& builder, size_t memoryRows, size_t fileStart,
                   const std::vector<hsize_t>& selection) const;
    void ReadToSelection(const IDataSetBuilder& builder, hid_t memoryType, void* buffer) const;
    template <typename CreateReplacement>
    void Rewrite(hid_t type, CreateReplacement createReplacement);

    hid_t parentId;
    size_t numberOfRows;
    hid_t compoundType;
    boost::shared_ptr<ColumnTypes> columnTypes;
    bool rowsAreFixed;
    bool mayGrow;
    mutable StorageTraits storage;

    friend class IGroup;
};

} // namespace tarnwick::hdf
