#include <tarnwickhdf/IExtensibleArray2D.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkCache.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/PassToNode.h>
#include <tarnwickhdf/internal/Refusal.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace tarnwick::hdf
{

// Rows or columns next to each other, in the data set and in the memory space of the same shape. One is a block of one.
struct Line
{
    hsize_t start[2];
    hsize_t count[2];
};

// The space in memory of a row or column, made with the object and kept for all its lines: making and closing one costs
// a fifth of reading a row. Only a line of another shape than the one before changes it.
class LineSpace
{
public:
    explicit LineSpace(hsize_t columns) : m_count{1, columns} { m_space.reset(H5Screate_simple(2, m_count, nullptr)); }

    hid_t IdFor(const hsize_t (&count)[2])
    {
        const bool fits = std::equal(count, count + 2, m_count);
        if (!fits && H5Sset_extent_simple(m_space.get(), 2, count, nullptr) < 0)
        {
            return -1;
        }
        std::copy_n(count, 2, m_count);
        return m_space.get();
    }

private:
    hsize_t m_count[2];
    ScopedSpace m_space;
};

namespace
{

constexpr int kRank = 2;
constexpr int kRows = 0;
constexpr int kColumns = 1;

struct Extent
{
    hsize_t dimensions[kRank] = {0, 0};
    hsize_t maximum[kRank] = {0, 0};
};

Line RowsAt(hsize_t row, hsize_t count, hsize_t columns)
{
    return {{row, 0}, {count, columns}};
}

Line ColumnsAt(hsize_t column, hsize_t count, hsize_t rows)
{
    return {{0, column}, {rows, count}};
}

Extent ExtentOf(const ScopedSpace& space)
{
    Extent extent;
    H5Sget_simple_extent_dims(space.get(), extent.dimensions, extent.maximum);
    return extent;
}

// Makes the data set some rows or columns longer than the file says, and at least as wide as the object says: other
// handles may have extended it. The space that comes back has the new extent, without asking HDF5 for it again.
ScopedSpace ExtendBy(hsize_t count, hid_t dataSet, int growing, hsize_t otherDimension, hsize_t& newIndex)
{
    ScopedSpace space(H5Dget_space(dataSet));
    Extent extent;
    // An extent that HDF5 can't tell must not pass for an empty one: the write would go over the first line.
    if (H5Sget_simple_extent_dims(space.get(), extent.dimensions, extent.maximum) < 0)
    {
        return ScopedSpace();
    }
    newIndex = extent.dimensions[growing];
    hsize_t wanted[kRank] = {otherDimension, otherDimension};
    wanted[growing] = newIndex + count;
    if (H5Dextend(dataSet, wanted) >= 0)
    {
        const hsize_t extended[] = {std::max(wanted[kRows], extent.dimensions[kRows]),
                                    std::max(wanted[kColumns], extent.dimensions[kColumns])};
        H5Sset_extent_simple(space.get(), kRank, extended, extent.maximum);
    }
    return space;
}

ScopedPropertyList CreateChunkedList(hsize_t chunkRows, hsize_t chunkColumns, int compression)
{
    ScopedPropertyList list(H5Pcreate(H5P_DATASET_CREATE));
    const hsize_t chunk[] = {chunkRows, chunkColumns};
    H5Pset_chunk(list.get(), kRank, chunk);
    if (compression > 0)
    {
        H5Pset_shuffle(list.get());
        H5Pset_deflate(list.get(), static_cast<unsigned int>(compression));
    }
    return list;
}

std::string Invalid(const char* what, std::int64_t number, unsigned int rows, unsigned int columns)
{
    return std::string("Invalid ") + what + ": " + std::to_string(number) + " (" + std::to_string(rows) + " rows x " +
           std::to_string(columns) + " columns)";
}

bool IsWithin(int index, unsigned int size)
{
    return index >= 0 && static_cast<unsigned int>(index) < size;
}

// The first index of a block that isn't there. A block of nothing may begin right behind the last.
std::optional<std::int64_t> FindOutside(std::int64_t first, std::int64_t count, std::int64_t size)
{
    if (first < 0 || first > size)
    {
        return first;
    }
    return first + count > size ? std::optional(size) : std::nullopt;
}

} // namespace

IExtensibleArray2D::IExtensibleArray2D(boost::weak_ptr<IFile> file, hid_t dataSet, std::string name,
                                       TDataType::TDataType type, unsigned int rowCount, unsigned int columnCount)
    : INode(std::move(file), dataSet, name), rows(rowCount), columns(columnCount), dataType(type),
      lineSpace(std::make_unique<LineSpace>(columnCount))
{
}

IExtensibleArray2D::IExtensibleArray2D(const IExtensibleArray2D& other)
    : INode(other), rows(other.rows), columns(other.columns), dataType(other.dataType),
      lineSpace(std::make_unique<LineSpace>(other.columns))
{
    m_location = ShareId(m_location);
}

IExtensibleArray2D& IExtensibleArray2D::operator=(const IExtensibleArray2D& other)
{
    if (this == &other)
    {
        return *this;
    }
    ScopedDataSet share(ShareId(other.m_location));
    const hid_t previous = m_location;
    INode::operator=(other);
    m_location = share.release();
    const ScopedDataSet closing(previous);
    rows = other.rows;
    columns = other.columns;
    dataType = other.dataType;
    return *this;
}

IExtensibleArray2D::~IExtensibleArray2D()
{
    const ScopedDataSet closing(m_location);
}

boost::shared_ptr<IExtensibleArray2D> IExtensibleArray2D::Create(boost::weak_ptr<IFile> file, hid_t parent,
                                                                 const std::string& name, TDataType::TDataType type,
                                                                 unsigned int rows, unsigned int columns,
                                                                 unsigned int chunkRows, unsigned int chunkColumns,
                                                                 int compression)
{
    const hsize_t dimensions[] = {rows, columns};
    const hsize_t unlimited[] = {H5S_UNLIMITED, H5S_UNLIMITED};
    ScopedSpace space(H5Screate_simple(kRank, dimensions, unlimited));
    ScopedPropertyList list = CreateChunkedList(chunkRows, chunkColumns, compression);
    const hid_t typeId = DataTypeToHDFType(type);
    const Chunking chunking = {{chunkRows, chunkColumns}, rows, columns, H5Tget_size(typeId), compression > 0};
    const ScopedPropertyList access = CreateCacheList(CacheBytesFor(chunking));
    ScopedDataSet dataSet(H5Dcreate2(parent, name.c_str(), typeId, space.get(), H5P_DEFAULT, list.get(), access.get()));
    CheckResult(H5Pclose(list.release()), "error closing property list");
    CheckResult(H5Sclose(space.release()), "error closing dataspace");
    std::unique_ptr<IExtensibleArray2D> array(
        new IExtensibleArray2D(std::move(file), dataSet.get(), name, type, rows, columns));
    return PassToNode(std::move(array), dataSet);
}

boost::shared_ptr<IExtensibleArray2D> IExtensibleArray2D::Open(boost::weak_ptr<IFile> file, hid_t parent,
                                                               const std::string& name)
{
    const boost::shared_ptr<IFile> openFile = file.lock();
    std::uint64_t cacheBytes = kChunkCacheBytes;
    if (openFile)
    {
        cacheBytes = std::max<std::uint64_t>(cacheBytes, openFile->m_chunk_cache_bytes);
    }
    ScopedDataSet dataSet = OpenDataSetAt("ExtensibleArray", parent, name, CreateCacheList(cacheBytes).get());
    CheckResult(dataSet.get(), "could not open extensible array '", name, "'");
    boost::shared_ptr<IExtensibleArray2D> array =
        FromDataSetWithCache(cacheBytes, std::move(file), parent, name, dataSet.release(), false);
    if (openFile)
    {
        openFile->m_chunk_cache_bytes = static_cast<unsigned int>(std::min(cacheBytes, kLargestCacheForColumns));
    }
    return array;
}

// What Open would do, without the exception and without the wider cache.
bool IExtensibleArray2D::IsAt(hid_t parent, const std::string& name)
{
    const ScopedDataSet dataSet = OpenDataSetAt("ExtensibleArray", parent, name);
    TDataType::TDataType type = TDataType::Undefined;
    unsigned int rows = 0;
    unsigned int columns = 0;
    return dataSet.get() >= 0 && !FindRefusal(dataSet.get(), type, rows, columns);
}

boost::shared_ptr<IExtensibleArray2D> IExtensibleArray2D::FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent,
                                                                          const std::string& name, hid_t opened,
                                                                          bool isNullIfRefused)
{
    std::uint64_t cacheBytes = kChunkCacheBytes;
    return FromDataSetWithCache(cacheBytes, std::move(file), parent, name, opened, isNullIfRefused);
}

// Takes over the data set on every way out. The bytes of its chunk cache come in, and what they should be goes out.
boost::shared_ptr<IExtensibleArray2D> IExtensibleArray2D::FromDataSetWithCache(std::uint64_t& cacheBytes,
                                                                               boost::weak_ptr<IFile> file,
                                                                               hid_t parent, const std::string& name,
                                                                               hid_t opened, bool isNullIfRefused)
{
    ScopedDataSet dataSet(opened);
    TDataType::TDataType type = TDataType::Undefined;
    unsigned int rows = 0;
    unsigned int columns = 0;
    try
    {
        const Refusal refusal = FindRefusal(dataSet.get(), type, rows, columns);
        if (refusal && isNullIfRefused)
        {
            return {};
        }
        Raise(refusal);
    }
    catch (...)
    {
        CheckResult(H5Dclose(dataSet.release()),
                    "could not close location for IExtensibleArray2D after failing to QueryInfo it");
        throw;
    }
    const std::uint64_t openedWith =
        std::exchange(cacheBytes, CacheBytesFor(ChunkingOf(dataSet.get(), type, rows, columns)));
    if (cacheBytes > openedWith)
    {
        WidenCache(dataSet, parent, name, cacheBytes);
    }
    std::unique_ptr<IExtensibleArray2D> array(
        new IExtensibleArray2D(std::move(file), dataSet.get(), name, type, rows, columns));
    return PassToNode(std::move(array), dataSet);
}

void IExtensibleArray2D::QueryInfo(hid_t dataSet, TDataType::TDataType& type, unsigned int& rows, unsigned int& columns)
{
    Raise(FindRefusal(dataSet, type, rows, columns));
}

Refusal IExtensibleArray2D::FindRefusal(hid_t dataSet, TDataType::TDataType& type, unsigned int& rows,
                                        unsigned int& columns)
{
    ScopedType storedType(H5Dget_type(dataSet));
    CheckResult(storedType.get(), "could not get dataset's type");
    type = FindDataType(storedType.get());
    if (type == TDataType::Undefined)
    {
        return H5Tget_class(storedType.get()) == H5T_COMPOUND ? Refusal{"not an ExtensibleArray2D", true}
                                                              : Refusal{"invalid HDF type"};
    }
    CheckResult(H5Tclose(storedType.release()), "could not close type_id");
    ScopedSpace space(H5Dget_space(dataSet));
    const bool isFlat = H5Sget_simple_extent_ndims(space.get()) == kRank;
    const Extent extent = isFlat ? ExtentOf(space) : Extent();
    CheckResult(H5Sclose(space.release()), "error closing dataspace");
    if (!isFlat)
    {
        return {"dimension for ExtensibleArray did not return 2 as expected.", true};
    }
    if (extent.maximum[kRows] != H5S_UNLIMITED && extent.maximum[kColumns] != H5S_UNLIMITED)
    {
        return {"not an ExtensibleArray2D", true};
    }
    rows = static_cast<unsigned int>(extent.dimensions[kRows]);
    columns = static_cast<unsigned int>(extent.dimensions[kColumns]);
    return {};
}

int IExtensibleArray2D::Resize(unsigned int newRows, unsigned int newColumns)
{
    const hsize_t dimensions[] = {newRows, newColumns};
    const int status = H5Dset_extent(m_location, dimensions);
    if (status == 0)
    {
        rows = newRows;
        columns = newColumns;
    }
    return status;
}

unsigned int IExtensibleArray2D::GetNumberOfRows() const
{
    return rows;
}

unsigned int IExtensibleArray2D::GetNumberOfColumns() const
{
    return columns;
}

unsigned int IExtensibleArray2D::GetSizeInBytes() const
{
    return static_cast<unsigned int>(GetDataTypeSize(dataType) * columns * rows);
}

TDataType::TDataType IExtensibleArray2D::GetType() const
{
    return dataType;
}

void IExtensibleArray2D::CheckRow(int row)
{
    if (!IsWithin(row, rows))
    {
        throw std::runtime_error(Invalid("row index", row, rows, columns));
    }
}

void IExtensibleArray2D::CheckColumn(int column)
{
    if (!IsWithin(column, columns))
    {
        throw std::runtime_error(Invalid("column index", column, rows, columns));
    }
}

void IExtensibleArray2D::CheckRowCount(int count) const
{
    if (count < 0)
    {
        throw std::runtime_error(Invalid("row count", count, rows, columns));
    }
}

void IExtensibleArray2D::CheckColumnCount(int count) const
{
    if (count < 0)
    {
        throw std::runtime_error(Invalid("column count", count, rows, columns));
    }
}

void IExtensibleArray2D::CheckRows(int row, int count) const
{
    CheckRowCount(count);
    if (const auto outside = FindOutside(row, count, rows))
    {
        throw std::runtime_error(Invalid("row index", *outside, rows, columns));
    }
}

void IExtensibleArray2D::CheckColumns(int column, int count) const
{
    CheckColumnCount(count);
    if (const auto outside = FindOutside(column, count, columns))
    {
        throw std::runtime_error(Invalid("column index", *outside, rows, columns));
    }
}

void IExtensibleArray2D::CloseIOOperation(hid_t status, hid_t fileSpace, hid_t memorySpace)
{
    ScopedSpace ownedMemorySpace(memorySpace);
    ScopedSpace ownedFileSpace(fileSpace);
    CheckResult(status, "error during io operation for ExtensibleArray2D dataset");
    CheckResult(H5Sclose(ownedFileSpace.release()), "error closing filespace");
    if (ownedMemorySpace.get() != -1)
    {
        CheckResult(H5Sclose(ownedMemorySpace.release()), "error closing dataspace");
    }
}

void IExtensibleArray2D::AppendRowFromBuffer(const void* buffer, TDataType::TDataType type)
{
    AppendRowsFromBuffer(1, buffer, type);
}

void IExtensibleArray2D::AppendColumnFromBuffer(const void* buffer, TDataType::TDataType type)
{
    AppendColumnsFromBuffer(1, buffer, type);
}

void IExtensibleArray2D::AppendRowsFromBuffer(int count, const void* buffer, TDataType::TDataType type)
{
    CheckRowCount(count);
    const auto added = static_cast<unsigned int>(count);
    hsize_t row = 0;
    ScopedSpace space = ExtendBy(added, m_location, kRows, columns, row);
    WriteLine(space.release(), RowsAt(row, added, columns), buffer, type);
    rows += added;
}

void IExtensibleArray2D::AppendColumnsFromBuffer(int count, const void* buffer, TDataType::TDataType type)
{
    CheckColumnCount(count);
    const auto added = static_cast<unsigned int>(count);
    hsize_t column = 0;
    ScopedSpace space = ExtendBy(added, m_location, kColumns, rows, column);
    WriteLine(space.release(), ColumnsAt(column, added, rows), buffer, type);
    columns += added;
}

void IExtensibleArray2D::ReadRowToBuffer(int row, void* buffer, TDataType::TDataType type)
{
    CheckRow(row);
    ReadLine(RowsAt(static_cast<hsize_t>(row), 1, columns), buffer, type);
}

void IExtensibleArray2D::ReadColumnToBuffer(int column, void* buffer, TDataType::TDataType type)
{
    CheckColumn(column);
    ReadLine(ColumnsAt(static_cast<hsize_t>(column), 1, rows), buffer, type);
}

void IExtensibleArray2D::ReadRowsToBuffer(int row, int count, void* buffer, TDataType::TDataType type)
{
    CheckRows(row, count);
    ReadLine(RowsAt(static_cast<hsize_t>(row), static_cast<hsize_t>(count), columns), buffer, type);
}

void IExtensibleArray2D::ReadColumnsToBuffer(int column, int count, void* buffer, TDataType::TDataType type)
{
    CheckColumns(column, count);
    ReadLine(ColumnsAt(static_cast<hsize_t>(column), static_cast<hsize_t>(count), rows), buffer, type);
}

void IExtensibleArray2D::WriteRowFromBuffer(int row, const void* buffer, TDataType::TDataType type)
{
    CheckRow(row);
    WriteLine(H5Dget_space(m_location), RowsAt(static_cast<hsize_t>(row), 1, columns), buffer, type);
}

void IExtensibleArray2D::WriteColumnFromBuffer(int column, const void* buffer, TDataType::TDataType type)
{
    CheckColumn(column);
    WriteLine(H5Dget_space(m_location), ColumnsAt(static_cast<hsize_t>(column), 1, rows), buffer, type);
}

void IExtensibleArray2D::WriteRowsFromBuffer(int row, int count, const void* buffer, TDataType::TDataType type)
{
    CheckRows(row, count);
    WriteLine(H5Dget_space(m_location), RowsAt(static_cast<hsize_t>(row), static_cast<hsize_t>(count), columns), buffer,
              type);
}

void IExtensibleArray2D::WriteColumnsFromBuffer(int column, int count, const void* buffer, TDataType::TDataType type)
{
    CheckColumns(column, count);
    WriteLine(H5Dget_space(m_location), ColumnsAt(static_cast<hsize_t>(column), static_cast<hsize_t>(count), rows),
              buffer, type);
}

void IExtensibleArray2D::ReadLine(const Line& line, void* buffer, TDataType::TDataType type)
{
    TransferLine(H5Dget_space(m_location), line, type,
                 [&](hid_t memoryType, hid_t memorySpace, hid_t fileSpace)
                 { return H5Dread(m_location, memoryType, memorySpace, fileSpace, H5P_DEFAULT, buffer); });
}

void IExtensibleArray2D::WriteLine(hid_t fileSpace, const Line& line, const void* buffer, TDataType::TDataType type)
{
    TransferLine(fileSpace, line, type,
                 [&](hid_t memoryType, hid_t memorySpace, hid_t space)
                 { return H5Dwrite(m_location, memoryType, memorySpace, space, H5P_DEFAULT, buffer); });
}

// Takes over the file space. A type without an id is refused as late as here: an append has extended the data set.
template <typename Transfer>
void IExtensibleArray2D::TransferLine(hid_t openedFileSpace, const Line& line, TDataType::TDataType type,
                                      Transfer transfer)
{
    ScopedSpace fileSpace(openedFileSpace);
    H5Sselect_hyperslab(fileSpace.get(), H5S_SELECT_SET, line.start, nullptr, line.count, nullptr);
    const hid_t memorySpace = lineSpace->IdFor(line.count);
    const hid_t memoryType = DataTypeToHDFType(type);
    const herr_t status = transfer(memoryType, memorySpace, fileSpace.get());
    CloseIOOperation(status, fileSpace.release(), -1);
}

} // namespace tarnwick::hdf
