#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/ITable.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/OwnSizes.h>
#include <tarnwickhdf/internal/PassToNode.h>
#include <tarnwickhdf/internal/RowBlocks.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/internal/StorageLayout.h>
#include <tarnwickhdf/utils.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

const char* const kMemorySelectionFailed = "Error reading data set to a memory selection!";
const char* const kSlabFailed = "Error reading data set hyperslab.";
const char* const kWriteFailed = "error writing to dataset";

using ColumnList = std::vector<TDataType::THDFAndDataType>;

void CloseColumns(ColumnList* columns) noexcept
{
    const std::unique_ptr<ColumnList> owned(columns);
    for (const TDataType::THDFAndDataType& column : *owned)
    {
        const ScopedType closing(column.hdfType);
    }
}

// Columns of nested types are columns like the others, without a TDataType.
TDataType::TDataType ColumnDataType(hid_t memberType)
{
    const TDataType::TDataType dataType = FindDataType(memberType);
    if (dataType != TDataType::Undefined)
    {
        return dataType;
    }
    const H5T_class_t memberClass = H5Tget_class(memberType);
    const bool isNested = memberClass == H5T_ARRAY || memberClass == H5T_COMPOUND || memberClass == H5T_VLEN;
    CheckResult(isNested ? 0 : -1, "invalid HDF type");
    return TDataType::Undefined;
}

// The last owner of the list closes the member types.
boost::shared_ptr<ColumnList> DescribeColumns(hid_t compoundType)
{
    boost::shared_ptr<ColumnList> columns(new ColumnList, &CloseColumns);
    const int members = H5Tget_nmembers(compoundType);
    for (int i = 0; i < members; ++i)
    {
        ScopedType member(H5Tget_member_type(compoundType, static_cast<unsigned int>(i)));
        columns->push_back({ColumnDataType(member.get()), member.get()});
        member.release();
    }
    return columns;
}

bool IsFixed(const TDataType::THDFAndDataType& column)
{
    return column.dataType == TDataType::String
               ? H5Tis_variable_str(column.hdfType) == 0
               : column.dataType != TDataType::Undefined && column.dataType != TDataType::VarLenString;
}

bool AreFixed(const ColumnList& columns)
{
    return !columns.empty() && std::all_of(columns.begin(), columns.end(), &IsFixed);
}

void CheckNoDataSet(hid_t parent, const std::string& name)
{
    CheckResult(HasObjectOfType(parent, name, H5O_TYPE_DATASET) ? -1 : 0, "Table already exist. Fail to create!");
}

void CheckIsTable(bool isTable, const std::string& name)
{
    CheckResult(isTable ? 0 : -1, "could not open Table '", name, "'");
}

// Also where HDF5 can't tell: the question comes again then, at each read.
bool RowsMayGrow(hid_t space)
{
    hsize_t rows = 0;
    hsize_t maximum = 0;
    const int rank = H5Sget_simple_extent_dims(space, &rows, &maximum);
    return rank < 0 || MayGrow(rank, &rows, &maximum);
}

hid_t CreateMemorySpace(hsize_t rows)
{
    return H5Screate_simple(1, &rows, nullptr);
}

std::string MemberName(hid_t compoundType, int column)
{
    const std::unique_ptr<char, herr_t (*)(void*)> name(
        H5Tget_member_name(compoundType, static_cast<unsigned int>(column)), &H5free_memory);
    return name ? std::string(name.get()) : std::string();
}

} // namespace

ITable::ITable(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t rows,
               hid_t compound)
    : INode(std::move(file), dataSet, name), parentId(parent), numberOfRows(rows), compoundType(compound),
      columnTypes(DescribeColumns(compound)), rowsAreFixed(AreFixed(*columnTypes)), mayGrow(false),
      storage(StorageTraits::Unknown)
{
}

ITable::ITable(const ITable& other)
    : INode(other), parentId(other.parentId), numberOfRows(other.numberOfRows), compoundType(other.compoundType),
      columnTypes(other.columnTypes), rowsAreFixed(other.rowsAreFixed), mayGrow(other.mayGrow), storage(other.storage)
{
    m_location = ShareId(m_location);
    compoundType = ShareId(compoundType);
}

ITable& ITable::operator=(const ITable& other)
{
    if (this == &other)
    {
        return *this;
    }
    ScopedDataSet dataSetShare(ShareId(other.m_location));
    ScopedType typeShare(ShareId(other.compoundType));
    const hid_t previousDataSet = m_location;
    INode::operator=(other);
    m_location = dataSetShare.release();
    const ScopedType closingType(compoundType);
    const ScopedDataSet closingDataSet(previousDataSet);
    parentId = other.parentId;
    numberOfRows = other.numberOfRows;
    compoundType = typeShare.release();
    columnTypes = other.columnTypes;
    rowsAreFixed = other.rowsAreFixed;
    mayGrow = other.mayGrow;
    storage = other.storage;
    return *this;
}

ITable::~ITable()
{
    const ScopedType closingType(compoundType);
    const boost::shared_ptr<ColumnTypes> closingColumns = std::move(columnTypes);
    const ScopedDataSet closingDataSet(m_location);
}

boost::shared_ptr<ITable> ITable::Create(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                         size_t rows, hid_t type, int compression)
{
    CheckNoDataSet(parent, name);
    IDataSetBuilder builder;
    builder.CreateSpace1D(rows, compression, H5Tget_size(type), 0);
    builder.CreateDataSet(parent, name, type);
    return MakeOf(builder, std::move(file), parent, name, rows, type);
}

boost::shared_ptr<ITable> ITable::CreateEmpty(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                              hid_t type)
{
    CheckNoDataSet(parent, name);
    IDataSetBuilder builder;
    builder.fileSpace = H5Screate(H5S_NULL);
    builder.CreateDataSet(parent, name, type);
    return MakeOf(builder, std::move(file), parent, name, 0, type);
}

boost::shared_ptr<ITable> ITable::CreateFromBuffer(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                   void* buffer, size_t rows, hid_t type, int compression,
                                                   hid_t memoryType, size_t chunkRows)
{
    IDataSetBuilder builder;
    builder.CreateSpace1D(rows, compression, H5Tget_size(type), chunkRows);
    builder.CreateDataSetAndWrite(parent, name, type, buffer, memoryType);
    return MakeOf(builder, std::move(file), parent, name, rows, type);
}

boost::shared_ptr<ITable> ITable::CreateFromSelection(boost::weak_ptr<IFile> file, hid_t parent,
                                                      const std::string& name, void* buffer, size_t memoryRows,
                                                      const std::vector<hsize_t>& selection, hid_t type,
                                                      int compression, hid_t memoryType, size_t chunkRows)
{
    IDataSetBuilder builder;
    builder.memorySpace = CreateMemorySpace(memoryRows);
    builder.SelectMemoryElements(selection);
    builder.CreateSpace1D(selection.size(), compression, H5Tget_size(type), chunkRows);
    builder.CreateDataSetAndWrite(parent, name, type, buffer, memoryType);
    return MakeOf(builder, std::move(file), parent, name, selection.size(), type);
}

boost::shared_ptr<ITable> ITable::MakeOf(IDataSetBuilder& builder, boost::weak_ptr<IFile> file, hid_t parent,
                                         const std::string& name, size_t rows, hid_t type)
{
    ScopedType compound(H5Tcopy(type));
    std::unique_ptr<ITable> table(new ITable(std::move(file), parent, builder.dataSet, name, rows, compound.get()));
    builder.TakeDataSet();
    return PassToNode(std::move(table), compound);
}

boost::shared_ptr<ITable> ITable::Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name)
{
    IDataSetBuilder builder;
    builder.OpenDataSet(parent, name);
    return FromOpenDataSet(std::move(file), parent, name, builder.TakeDataSet(), false);
}

// Takes over the data set on every way out.
boost::shared_ptr<ITable> ITable::FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                  hid_t dataSet, bool isNullIfRefused)
{
    IDataSetBuilder builder;
    builder.dataSet = dataSet;
    size_t rows = 0;
    const bool isTable = IsTable(builder, rows);
    if (!isTable && isNullIfRefused)
    {
        return {};
    }
    CheckIsTable(isTable, name);
    ScopedType compound(builder.TakeType());
    std::unique_ptr<ITable> table(new ITable(std::move(file), parent, dataSet, name, rows, compound.get()));
    table->mayGrow = RowsMayGrow(builder.fileSpace);
    builder.TakeDataSet();
    return PassToNode(std::move(table), compound);
}

void ITable::QueryInfo(hid_t parent, const std::string& name, hid_t& dataSet, size_t& rows, hid_t& compound)
{
    IDataSetBuilder builder;
    builder.OpenDataSet(parent, name);
    CheckIsTable(IsTable(builder, rows), name);
    compound = builder.TakeType();
    dataSet = builder.TakeDataSet();
}

// Whether the builder's data set is a table; its type is left in the builder.
bool ITable::IsTable(IDataSetBuilder& builder, size_t& rows)
{
    builder.typeId = H5Dget_type(builder.dataSet);
    const H5T_class_t elementClass = H5Tget_class(builder.typeId);
    if (elementClass != H5T_COMPOUND && elementClass != H5T_VLEN)
    {
        return false;
    }
    builder.OpenFileSpace(-1);
    const int rank = H5Sget_simple_extent_ndims(builder.fileSpace);
    if (rank != 0 && rank != 1)
    {
        return false;
    }
    hsize_t extent = 0;
    if (rank == 1)
    {
        H5Sget_simple_extent_dims(builder.fileSpace, &extent, nullptr);
    }
    rows = extent;
    return true;
}

bool ITable::Exists(hid_t parent, const std::string& name)
{
    return HasObjectOfType(parent, name, H5O_TYPE_DATASET);
}

void ITable::Close()
{
    const ScopedDataSet closingDataSet(m_location);
    const ScopedType closingType(compoundType);
    m_location = -1;
    compoundType = -1;
}

void ITable::ReOpen(hid_t parent, const std::string& name)
{
    Close();
    OpenAgain(parent, name);
    mayGrow = RowsMayGrow(ScopedSpace(H5Dget_space(m_location)).get());
    parentId = parent;
}

// What the library makes can't grow. The columns stay those that the object was made with, and rows of others are left to HDF5.
void ITable::OpenAgain(hid_t parent, const std::string& name)
{
    mayGrow = false;
    storage = StorageTraits::Unknown;
    QueryInfo(parent, name, m_location, numberOfRows, compoundType);
    const int members = H5Tget_nmembers(compoundType);
    rowsAreFixed = AreFixed(*columnTypes) && static_cast<size_t>(std::max(members, 0)) == columnTypes->size();
    for (int i = 0; i < members && rowsAreFixed; ++i)
    {
        const ScopedType member(H5Tget_member_type(compoundType, static_cast<unsigned int>(i)));
        rowsAreFixed = H5Tequal(member.get(), (*columnTypes)[static_cast<size_t>(i)].hdfType) > 0;
    }
}

size_t ITable::GetNumberOfRows() const
{
    return numberOfRows;
}

size_t ITable::GetNumberOfColumns() const
{
    return columnTypes->size();
}

std::string ITable::GetColumnName(int column) const
{
    return MemberName(compoundType, column);
}

const TDataType::THDFAndDataType& ITable::Column(int column) const
{
    if (column < 0 || static_cast<size_t>(column) >= columnTypes->size())
    {
        throw std::runtime_error("Invalid column index: " + std::to_string(column) + " (" +
                                 std::to_string(columnTypes->size()) + " columns)");
    }
    return (*columnTypes)[static_cast<size_t>(column)];
}

TDataType::TDataType ITable::GetColumnDataType(int column) const
{
    return Column(column).dataType;
}

TDataType::THDFAndDataType ITable::GetColumnType(int column) const
{
    return Column(column);
}

hid_t ITable::GetColumnTypeID(int column) const
{
    return Column(column).hdfType;
}

hid_t ITable::GetCompoundTypeID() const
{
    return compoundType;
}

hid_t ITable::ParentID() const
{
    return parentId;
}

hid_t ITable::MemoryTypeOrOwn(hid_t memoryType) const
{
    return memoryType > 0 ? memoryType : compoundType;
}

// Ids are compared as numbers: a caller's own type leads to a rewrite, however equal it is.
bool ITable::FitsInPlace(size_t rows, hid_t type) const
{
    return rows == numberOfRows && (type <= 0 || type == compoundType);
}

void ITable::WriteInPlace(const void* buffer)
{
    if (mayGrow)
    {
        CheckOwnSizes(m_location, numberOfRows);
    }
    CheckResult(H5Dwrite(m_location, compoundType, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer), kWriteFailed);
}

template <typename CreateReplacement>
void ITable::Rewrite(hid_t type, CreateReplacement createReplacement)
{
    ScopedDataSet(m_location).reset();
    m_location = -1;
    ScopedType newType(compoundType);
    compoundType = -1;
    if (type > 0 && type != newType.get())
    {
        newType.reset();
        newType.reset(H5Tcopy(type));
    }
    // A closed table has no type to make anything of: what has its name by now isn't its own to remove.
    if (newType.get() > 0 || type > 0)
    {
        H5Gunlink(parentId, m_name.c_str());
    }
    createReplacement(newType.get());
    newType.reset();
    OpenAgain(parentId, m_name);
}

void ITable::SetFromBuffer(void* buffer, size_t rows, hid_t type, size_t compression)
{
    if (FitsInPlace(rows, type))
    {
        WriteInPlace(buffer);
        return;
    }
    Rewrite(type,
            [&](hid_t newType) {
                CreateFromBuffer(m_file, parentId, m_name, buffer, rows, newType, static_cast<int>(compression), -1, 0);
            });
}

void ITable::SetFromSelection(void* buffer, size_t rows, const std::vector<hsize_t>& selection, hid_t type,
                              size_t compression, size_t chunkRows)
{
    if (FitsInPlace(rows, type))
    {
        WriteInPlace(buffer);
        return;
    }
    Rewrite(type,
            [&](hid_t newType)
            {
                CreateFromSelection(m_file, parentId, m_name, buffer, rows, selection, newType,
                                    static_cast<int>(compression), -1, chunkRows);
            });
}

void ITable::GetToBuffer(void* buffer, hid_t memoryType) const
{
    if (mayGrow)
    {
        CheckOwnSizes(m_location, numberOfRows);
    }
    const hid_t type = MemoryTypeOrOwn(memoryType);
    if (!ReadPackedChunks(storage, {m_location, compoundType, type, numberOfRows}, buffer))
    {
        CheckRead(H5Dread(m_location, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer), m_name);
    }
}

void ITable::GetFromHyperslab(void* buffer, size_t start, size_t stride, size_t count, hid_t memoryType) const
{
    if (RowBlocks::MayPick(Rows(), count, stride, memoryType))
    {
        RowBlocks blocks(Rows(), memoryType, count, numberOfRows, RowBlocks::Use::Read);
        if (blocks.ReadEvery(start, stride, count, buffer))
        {
            return;
        }
    }
    IDataSetBuilder builder;
    builder.OpenFileSpace(m_location);
    builder.SelectFileHyperslab(start, stride, count);
    builder.memorySpace = CreateMemorySpace(count);
    CheckResult(H5Dread(m_location, memoryType, builder.memorySpace, builder.fileSpace, H5P_DEFAULT, buffer),
                kSlabFailed);
}

void ITable::FeedStringVector(std::vector<std::string>& strings, int column) const
{
    const hid_t member = Column(column).hdfType;
    if (H5Tget_class(member) != H5T_STRING)
    {
        throw std::runtime_error("not a string array");
    }
    const size_t size = H5Tget_size(member);
    ScopedType oneMember(H5Tcreate(H5T_COMPOUND, size));
    // Reading with a type that has no member fails too, but HDF5 leaks memory over it.
    if (H5Tinsert(oneMember.get(), MemberName(compoundType, column).c_str(), 0, member) < 0)
    {
        oneMember.reset();
    }
    utils::ReadStringDataSet(strings, m_location, member, oneMember.get(), numberOfRows, size);
}

StoredRows ITable::Rows() const
{
    return {m_location, compoundType, rowsAreFixed, storage};
}

void ITable::GetToSelection(void* buffer, size_t memoryRows, hid_t memoryType,
                            const std::vector<hsize_t>& selection) const
{
    RowBlocks blocks(Rows(), MemoryTypeOrOwn(memoryType), selection.size(), selection.size(), RowBlocks::Use::Read);
    if (selection.size() == blocks.RowsInFile() && blocks.ReadRun(0, selection, memoryRows, buffer))
    {
        return;
    }
    IDataSetBuilder builder;
    builder.memorySpace = CreateMemorySpace(memoryRows);
    builder.SelectMemoryElements(selection);
    ReadToSelection(builder, MemoryTypeOrOwn(memoryType), buffer);
}

void ITable::GetFromSelection(void* buffer, hid_t memoryType, const std::vector<hsize_t>& selection) const
{
    const hid_t type = MemoryTypeOrOwn(memoryType);
    if (RowBlocks::AreClose(selection, type))
    {
        RowBlocks blocks(Rows(), type, selection.size(), numberOfRows, RowBlocks::Use::Read);
        if (blocks.ReadRows(selection, buffer))
        {
            return;
        }
    }
    IDataSetBuilder builder;
    builder.OpenFileSpace(m_location);
    builder.SelectFileElements(selection);
    builder.memorySpace = CreateMemorySpace(selection.size());
    CheckRead(H5Dread(m_location, type, builder.memorySpace, builder.fileSpace, H5P_DEFAULT, buffer), m_name);
}

void ITable::GetFromToSelection(void* buffer, size_t memoryRows, hid_t memoryType,
                                const std::vector<hsize_t>& fileSelection,
                                const std::vector<hsize_t>& memorySelection) const
{
    IDataSetBuilder builder;
    builder.OpenFileSpace(m_location);
    builder.SelectFileElements(fileSelection);
    builder.memorySpace = CreateMemorySpace(memoryRows);
    builder.SelectMemoryElements(memorySelection);
    ReadToSelection(builder, MemoryTypeOrOwn(memoryType), buffer);
}

void ITable::GetFromHyperslabToSelection(void* buffer, size_t memoryRows, hid_t memoryType, size_t fileStart,
                                         const std::vector<hsize_t>& selection) const
{
    RowBlocks blocks(Rows(), memoryType, selection.size(), selection.size(), RowBlocks::Use::Read);
    if (blocks.ReadRun(fileStart, selection, memoryRows, buffer))
    {
        return;
    }
    IDataSetBuilder builder;
    SelectRun(builder, memoryRows, fileStart, selection);
    ReadToSelection(builder, memoryType, buffer);
}

void ITable::SetToHyperslabFromSelection(void* buffer, size_t memoryRows, hid_t memoryType, size_t fileStart,
                                         const std::vector<hsize_t>& selection)
{
    RowBlocks blocks(Rows(), memoryType, selection.size(), selection.size(), RowBlocks::Use::Write);
    if (blocks.WriteRun(fileStart, selection, memoryRows, buffer))
    {
        return;
    }
    IDataSetBuilder builder;
    SelectRun(builder, memoryRows, fileStart, selection);
    CheckResult(H5Dwrite(m_location, memoryType, builder.memorySpace, builder.fileSpace, H5P_DEFAULT, buffer),
                kWriteFailed);
}

// A run of adjacent table rows on the file side, scattered rows of a buffer on the memory side.
void ITable::SelectRun(IDataSetBuilder& builder, size_t memoryRows, size_t fileStart,
                       const std::vector<hsize_t>& selection) const
{
    builder.OpenFileSpace(m_location);
    builder.SelectFileHyperslab(fileStart, 1, selection.size());
    builder.memorySpace = CreateMemorySpace(memoryRows);
    builder.SelectMemoryElements(selection);
}

void ITable::ReadToSelection(const IDataSetBuilder& builder, hid_t memoryType, void* buffer) const
{
    const hid_t fileSpace = builder.fileSpace == 0 ? H5S_ALL : builder.fileSpace;
    CheckResult(H5Dread(m_location, memoryType, builder.memorySpace, fileSpace, H5P_DEFAULT, buffer),
                kMemorySelectionFailed);
}

} // namespace tarnwick::hdf
