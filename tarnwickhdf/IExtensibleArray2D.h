#pragma once

#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/export.h>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <hdf5.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tarnwick::hdf
{

class IFile;
class LineSpace;
struct Line;
struct Refusal;

/// A chunked two-dimensional data set that grows row by row and column by column. Its maximum dimensions are unlimited,
/// which also tells it from a plain array when a file is read back.
///
/// A row in memory is GetNumberOfColumns elements, a column GetNumberOfRows elements. A block of rows is `count` rows one
/// after the other. A block of columns is GetNumberOfRows lines of `count` elements, as the block lies in the array: the
/// columns alternate. The buffer is the caller's and the library doesn't measure it. `type` is the type of the buffer's elements, HDF5 converts between it and the stored
/// type; unlike in IArray there is no default, Undefined is refused with "invalid TDataType".
///
/// The object counts rows and columns for itself. An append that fails may have extended the file already: the file is
/// then ahead of the object, and the next append lands behind the failed one.
///
/// Each call costs HDF5 a few microseconds, however little it moves: rows that come or go together are moved as a block
/// at a fraction of the cost.
class TARNWICKHDF_EXPORT IExtensibleArray2D : public INode
{
public:
    /// A second view of the same data set; copy and source share the HDF5 id and may go in any order. Each counts for
    /// itself from then on.
    IExtensibleArray2D(const IExtensibleArray2D& other);
    /// Gives back this array's id and shares the one of `other`; takes every other field.
    IExtensibleArray2D& operator=(const IExtensibleArray2D& other);
    /// Closes this array's share of the data set. Nothing happens on an invalid array or one whose creation HDF5
    /// refused.
    ~IExtensibleArray2D() override;

    /// Makes a data set of `rows` x `columns` elements with both maximum dimensions unlimited, in chunks of `chunkRows`
    /// x `chunkColumns`, which must be above 0; with shuffle and deflate if `compression` is above 0. Sizes may be 0.
    /// No chunk limit is tested. If HDF5 refuses the creation, for example because the name is taken, an object with a
    /// negative id comes back, and its first read or write fails.
    /// @throws std::runtime_error with traceback: "invalid TDataType" if the type has no HDF5 type (nothing is made),
    ///         "error closing property list", "error closing dataspace" (the data set stays in the file).
    static boost::shared_ptr<IExtensibleArray2D> Create(boost::weak_ptr<IFile> file, hid_t parent,
                                                        const std::string& name, TDataType::TDataType type,
                                                        unsigned int rows, unsigned int columns, unsigned int chunkRows,
                                                        unsigned int chunkColumns, int compression);

    /// Opens an existing data set of two dimensions of which at least one is unlimited.
    /// @throws std::runtime_error with traceback: "ExtensibleArray does not exist" if no data set is at the name,
    ///         "could not get info for " + name if HDF5 can't tell what is there (so for the empty name), "could not
    ///         open extensible array '" + name + "'", "could not get dataset's type", "invalid HDF type" for an element
    ///         type that has no TDataType, "could not close type_id", "error closing dataspace", "could not close
    ///         location for IExtensibleArray2D after failing to QueryInfo it".
    /// @throws std::runtime_error (plain) "not an ExtensibleArray2D" for a compound type or fixed dimensions,
    ///         "dimension for ExtensibleArray did not return 2 as expected." for another rank.
    static boost::shared_ptr<IExtensibleArray2D> Open(boost::weak_ptr<IFile> file, hid_t parent,
                                                      const std::string& name);

    /// Sets the size of the data set: shrinking discards what is cut off, growing adds cells with HDF5's fill value.
    /// Returns HDF5's status; a negative one means that nothing changed. Throws nothing.
    int Resize(unsigned int newRows, unsigned int newColumns);

    /// The number of rows, as this object knows it.
    unsigned int GetNumberOfRows() const;
    /// The number of columns, as this object knows it.
    unsigned int GetNumberOfColumns() const;
    /// Rows times columns times the bytes of one element, cut to 32 bits.
    /// @throws std::runtime_error "unknown datatype!" (plain) for strings.
    unsigned int GetSizeInBytes() const;
    /// The element type.
    TDataType::TDataType GetType() const;

    /// Extends the data set by one row behind the file's last and writes `buffer`, GetNumberOfColumns elements, to it.
    /// Two appends on one object must not overlap.
    /// @throws std::runtime_error with traceback: "error during io operation for ExtensibleArray2D dataset" if the
    ///         extending or the write fails, "invalid TDataType", "error closing filespace", "error closing dataspace";
    ///         the file may be one row ahead then, the count of this object stays.
    void AppendRowFromBuffer(const void* buffer, TDataType::TDataType type);
    /// Extends the data set by one column behind the file's last and writes `buffer`, GetNumberOfRows elements, to it.
    /// @throws as AppendRowFromBuffer.
    void AppendColumnFromBuffer(const void* buffer, TDataType::TDataType type);
    /// Extends the data set by `count` rows behind the file's last and writes `buffer`, `count` times GetNumberOfColumns
    /// elements, to them. 0 rows move nothing; an array that can't be written to is refused all the same.
    /// @throws std::runtime_error (plain) "Invalid row count: " + count + " (" + rows + " rows x " + columns + "
    ///         columns)" for a count below 0, with nothing touched.
    /// @throws as AppendRowFromBuffer; the file may be `count` rows ahead then, the count of this object stays.
    void AppendRowsFromBuffer(int count, const void* buffer, TDataType::TDataType type);
    /// Extends the data set by `count` columns behind the file's last and writes `buffer`, GetNumberOfRows lines of
    /// `count` elements, to them.
    /// @throws as AppendRowsFromBuffer, with "Invalid column count: " in place of "Invalid row count: ".
    void AppendColumnsFromBuffer(int count, const void* buffer, TDataType::TDataType type);

    /// Reads one row, GetNumberOfColumns elements.
    /// @throws std::runtime_error "Invalid row index: " + row + " (" + rows + " rows x " + columns + " columns)"
    ///         (plain) for an index outside 0 to rows - 1; with traceback "error during io operation for
    ///         ExtensibleArray2D dataset" if the read fails, "invalid TDataType", "error closing filespace", "error
    ///         closing dataspace".
    void ReadRowToBuffer(int row, void* buffer, TDataType::TDataType type);
    /// Reads one column, GetNumberOfRows elements.
    /// @throws as ReadRowToBuffer, with "Invalid column index: " in place of "Invalid row index: ".
    void ReadColumnToBuffer(int column, void* buffer, TDataType::TDataType type);
    /// Overwrites one row, GetNumberOfColumns elements. @throws as ReadRowToBuffer.
    void WriteRowFromBuffer(int row, const void* buffer, TDataType::TDataType type);
    /// Overwrites one column, GetNumberOfRows elements. @throws as ReadColumnToBuffer.
    void WriteColumnFromBuffer(int column, const void* buffer, TDataType::TDataType type);

    /// Reads `count` rows from `row` on, `count` times GetNumberOfColumns elements. 0 rows move nothing, and may begin
    /// right behind the last row.
    /// @throws std::runtime_error (plain) "Invalid row count: " + count + " (" + rows + " rows x " + columns + "
    ///         columns)" for a count below 0.
    /// @throws as ReadRowToBuffer; "Invalid row index: " names the first row that isn't there, and nothing is read then.
    void ReadRowsToBuffer(int row, int count, void* buffer, TDataType::TDataType type);
    /// Reads `count` columns from `column` on, GetNumberOfRows lines of `count` elements.
    /// @throws as ReadRowsToBuffer, with "column" in place of "row".
    void ReadColumnsToBuffer(int column, int count, void* buffer, TDataType::TDataType type);
    /// Overwrites `count` rows from `row` on, `count` times GetNumberOfColumns elements. @throws as ReadRowsToBuffer;
    /// nothing is written where a row isn't there.
    void WriteRowsFromBuffer(int row, int count, const void* buffer, TDataType::TDataType type);
    /// Overwrites `count` columns from `column` on, GetNumberOfRows lines of `count` elements. @throws as
    /// ReadColumnsToBuffer; nothing is written where a column isn't there.
    void WriteColumnsFromBuffer(int column, int count, const void* buffer, TDataType::TDataType type);

protected:
    /// Reads type and size of an open data set and refuses what isn't an extensible array. @throws as Open.
    static void QueryInfo(hid_t dataSet, TDataType::TDataType& type, unsigned int& rows, unsigned int& columns);

    /// @throws std::runtime_error (plain) as ReadRowToBuffer.
    void CheckRow(int row);
    /// @throws std::runtime_error (plain) as ReadColumnToBuffer.
    void CheckColumn(int column);
    /// Ends a transfer: takes over both spaces, judges `status` and closes the spaces on every way out. -1 stands for
    /// the memory space that stays with the object.
    /// @throws std::runtime_error with traceback as ReadRowToBuffer.
    void CloseIOOperation(hid_t status, hid_t fileSpace, hid_t memorySpace);

private:
    IExtensibleArray2D(boost::weak_ptr<IFile> file, hid_t dataSet, std::string name, TDataType::TDataType type,
                       unsigned int rowCount, unsigned int columnCount);

    void CheckRowCount(int count) const;
    void CheckColumnCount(int count) const;
    void CheckRows(int row, int count) const;
    void CheckColumns(int column, int count) const;
    static Refusal FindRefusal(hid_t dataSet, TDataType::TDataType& type, unsigned int& rows, unsigned int& columns);
    static bool IsAt(hid_t parent, const std::string& name);
    static boost::shared_ptr<IExtensibleArray2D> FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent,
                                                                 const std::string& name, hid_t opened,
                                                                 bool isNullIfRefused);
    static boost::shared_ptr<IExtensibleArray2D> FromDataSetWithCache(std::uint64_t& cacheBytes,
                                                                      boost::weak_ptr<IFile> file, hid_t parent,
                                                                      const std::string& name, hid_t opened,
                                                                      bool isNullIfRefused);
    void ReadLine(const Line& line, void* buffer, TDataType::TDataType type);
    void WriteLine(hid_t fileSpace, const Line& line, const void* buffer, TDataType::TDataType type);
    template <typename Transfer>
    void TransferLine(hid_t openedFileSpace, const Line& line, TDataType::TDataType type, Transfer transfer);

    unsigned int rows;
    unsigned int columns;
    TDataType::TDataType dataType;
    std::unique_ptr<LineSpace> lineSpace;

    friend class IGroup;
};

} // namespace tarnwick::hdf
