#include <tarnwickhdf/IArray.h>
#include <tarnwickhdf/IFile.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/HyperslabGuard.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/OwnSizes.h>
#include <tarnwickhdf/internal/PassToNode.h>
#include <tarnwickhdf/internal/Refusal.h>
#include <tarnwickhdf/internal/RowBlocks.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <tarnwick/IException.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

constexpr int kMostDimensions = Hyperslab::kMostDimensions;
const char* const kNotOneDimension = "Error reading hyperslab from a multidimensional array!";
const char* const kNoArraySelection = "Error creating array space hyperslab!";
const char* const kSlabFailed = "Error reading from dataset to a memory hyperslab!";
const char* const kNoMemorySelection = "Error creating memory data space hyperslab!";
const char* const kWrongDimensions = "Error reading hyperslab: the number of dimensions doesn't match the array!";

struct Extent
{
    int rank = 0;
    hsize_t dimensions[kMostDimensions] = {0, 0};
    hsize_t maximum[kMostDimensions] = {0, 0};
};

// What an array knows of its open data set.
struct ArrayInfo
{
    TDataType::TDataType type = TDataType::Undefined;
    ScopedType typeId;
    size_t length = 0;
    size_t components = 0;
    bool mayHoldMore = false; ///< Than length and components tell, now or later.
};

Extent ExtentOf(hid_t dataSet)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    Extent extent;
    extent.rank = H5Sget_simple_extent_ndims(space.get());
    if (extent.rank > 0 && extent.rank <= kMostDimensions)
    {
        H5Sget_simple_extent_dims(space.get(), extent.dimensions, extent.maximum);
    }
    return extent;
}

Refusal FindInfo(hid_t dataSet, ArrayInfo& info)
{
    info.typeId.reset(H5Dget_type(dataSet));
    CheckResult(info.typeId.get(), "could not get dataset's type");
    info.type = FindDataType(info.typeId.get());
    if (info.type == TDataType::Undefined)
    {
        return {H5Tget_class(info.typeId.get()) == H5T_COMPOUND ? "H5T_COMPOUND is not a valid Array"
                                                                : "invalid HDF type"};
    }
    const Extent extent = ExtentOf(dataSet);
    if (extent.rank <= 0)
    {
        return {};
    }
    if (extent.rank > kMostDimensions)
    {
        return {"there's no support for arrays with more than 2 dimensions"};
    }
    if (info.type == TDataType::VarLenString && extent.rank == 2)
    {
        return {"there's no support for variable length strings with more than 1 dimension"};
    }
    if (extent.rank == 2 && extent.maximum[0] == H5S_UNLIMITED && extent.maximum[1] == H5S_UNLIMITED)
    {
        return {"not a valid Array", true};
    }
    const bool isString = info.type == TDataType::String;
    info.length = extent.dimensions[0];
    info.components = extent.rank == 2 ? extent.dimensions[1] : 1;
    // The sizes of strings leave a second dimension out.
    info.mayHoldMore = MayGrow(extent.rank, extent.dimensions, extent.maximum) || (isString && info.components > 1);
    if (isString)
    {
        info.components = H5Tget_size(info.typeId.get());
    }
    return {};
}

// The components of strings are their bytes.
hsize_t ElementsOf(TDataType::TDataType type, size_t length, size_t components)
{
    return type == TDataType::String ? length : hsize_t{length} * components;
}

bool HasNullSpace(hid_t dataSet)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    return H5Sget_simple_extent_type(space.get()) == H5S_NULL;
}

// The type of the strings that an array is made of: `size` bytes, padded with NUL bytes.
ScopedType CreateFileStringType(size_t size, H5T_cset_t encoding, const std::string& name)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    CheckResult(type.get(), "could not H5Tcopy to write array: ", name);
    if (size != 0)
    {
        CheckResult(H5Tset_size(type.get(), size), "error calling H5Tset_size of array: ", name);
    }
    CheckResult(H5Tset_strpad(type.get(), H5T_STR_NULLPAD), "error calling H5Tset_strpad of array: ", name);
    CheckResult(H5Tset_cset(type.get(), encoding), "error calling H5Tset_cset for array: ", name);
    return type;
}

// The type of the same strings in the caller's buffer; what HDF5 refuses here shows at the transfer. Strings without a
// size have a byte each, as they are stored.
ScopedType CopyMemoryStringType(size_t size)
{
    ScopedType type(H5Tcopy(H5T_C_S1));
    if ((size != 0 && H5Tset_size(type.get(), size) < 0) || H5Tset_strpad(type.get(), H5T_STR_NULLPAD) < 0)
    {
        type.reset();
    }
    return type;
}

// The memory type of a read. Strings need a type of the array's own size and character set, because the predefined one
// holds a single byte and HDF5 doesn't convert between character sets.
class MemoryType
{
public:
    MemoryType(TDataType::TDataType requested, TDataType::TDataType own, hid_t storedType, size_t components)
    {
        const TDataType::TDataType type = requested == TDataType::Undefined ? own : requested;
        m_id = INode::DataTypeToHDFType(type);
        if (type == TDataType::String && own == TDataType::String)
        {
            m_strings = CopyMemoryStringType(components);
            H5Tset_cset(m_strings.get(), H5Tget_cset(storedType));
            m_id = m_strings.get();
        }
    }

    hid_t get() const { return m_id; }

private:
    ScopedType m_strings;
    hid_t m_id = -1;
};

hsize_t Widen(int value)
{
    return static_cast<hsize_t>(value);
}

// A product of two `int` arguments wraps as 32-bit arithmetic does and keeps its sign when it is widened.
hsize_t WidenProduct(int one, int other)
{
    return Widen(static_cast<int>(static_cast<unsigned int>(one) * static_cast<unsigned int>(other)));
}

void CopyEntries(const size_t* from, size_t entries, hsize_t* to)
{
    std::copy(from, from + entries, to);
}

// HDF5 reads as many entries of a selection's arguments as the space has dimensions. A space without any is left to
// HDF5, which refuses to select in it.
void CheckRank(const ScopedSpace& fileSpace, size_t entries, const char* message)
{
    const int rank = H5Sget_simple_extent_ndims(fileSpace.get());
    CheckResult(rank > 0 && static_cast<size_t>(rank) > entries ? -1 : 0, message);
}

void ReadSelection(hid_t dataSet, const MemoryType& memoryType, const ScopedSpace& memorySpace,
                   const ScopedSpace& fileSpace, void* buffer)
{
    CheckResult(H5Dread(dataSet, memoryType.get(), memorySpace.get(), fileSpace.get(), H5P_DEFAULT, buffer),
                kSlabFailed);
}

// Reads a hyperslab of the file, packed, into `memoryLength` elements. `entries` of the slab's are known.
void ReadFileHyperslab(hid_t dataSet, const MemoryType& memoryType, hsize_t memoryLength, size_t entries,
                       const Hyperslab& slab, void* buffer)
{
    ScopedSpace fileSpace;
    const ScopedSpace memorySpace(H5Screate_simple(1, &memoryLength, nullptr));
    fileSpace.reset(H5Dget_space(dataSet));
    if (entries < kMostDimensions)
    {
        CheckRank(fileSpace, entries, kWrongDimensions);
    }
    CheckResult(H5Sselect_hyperslab(fileSpace.get(), H5S_SELECT_SET, slab.start, slab.stride, slab.count, nullptr),
                kNoArraySelection);
    CheckResult(StaysInside(fileSpace, slab, dataSet) ? 0 : -1, kSlabFailed);
    ReadSelection(dataSet, memoryType, memorySpace, fileSpace, buffer);
}

// Whether the elements of a one-dimensional array were read by blocks; if not, HDF5's way is left.
bool ReadByBlocks(const StoredRows& elements, size_t length, int start, int stride, int count, hid_t memoryType,
                  void* buffer)
{
    if (start < 0 || stride < 0 || count < 0 || !RowBlocks::MayPick(elements, Widen(count), Widen(stride), memoryType))
    {
        return false;
    }
    RowBlocks blocks(elements, memoryType, Widen(count), length, RowBlocks::Use::Read);
    return blocks.ReadEvery(Widen(start), Widen(stride), Widen(count), buffer);
}

// Number arrays with one component have one dimension, with any other number two.
void CreateNumberSpace(IDataSetBuilder& builder, size_t length, size_t components, size_t elementSize, int compression)
{
    const hsize_t dimensions[kMostDimensions] = {length, components};
    builder.dcpl = H5Pcreate(H5P_DATASET_CREATE);
    builder.CreateSpace(components == 1 ? 1 : kMostDimensions, dimensions, elementSize, nullptr);
    builder.AddFilters(compression);
}

} // namespace

IArray::IArray(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t componentCount,
               size_t elementCount, hid_t type, int level, bool typeIsOwn)
    : IArray(std::move(file), parent, dataSet, name, componentCount, elementCount, type, level, typeIsOwn,
             HDFTypeToDataType(type))
{
}

IArray::IArray(boost::weak_ptr<IFile> file, hid_t parent, hid_t dataSet, const std::string& name, size_t componentCount,
               size_t elementCount, hid_t type, int level, bool typeIsOwn, TDataType::TDataType typeName)
    : INode(std::move(file), dataSet, name), compression(level), ownsType(typeIsOwn), mayHoldMore(false),
      storage(StorageTraits::Unknown), parentId(parent), length(elementCount), components(componentCount),
      dataType(typeName), typeId(type)
{
}

IArray::IArray(const IArray& other)
    : INode(other), compression(other.compression), ownsType(other.ownsType), mayHoldMore(other.mayHoldMore),
      storage(other.storage), parentId(other.parentId), length(other.length), components(other.components),
      dataType(other.dataType), typeId(other.typeId)
{
    m_location = ShareId(m_location);
    typeId = ownsType ? ShareId(typeId) : typeId;
}

IArray& IArray::operator=(const IArray& other)
{
    if (this == &other)
    {
        return *this;
    }
    ScopedDataSet dataSetShare(ShareId(other.m_location));
    ScopedType typeShare(other.ownsType ? ShareId(other.typeId) : -1);
    const hid_t previousDataSet = m_location;
    INode::operator=(other);
    m_location = dataSetShare.release();
    Close(previousDataSet, ownsType ? typeId : -1);
    compression = other.compression;
    ownsType = other.ownsType;
    mayHoldMore = other.mayHoldMore;
    storage = other.storage;
    parentId = other.parentId;
    length = other.length;
    components = other.components;
    dataType = other.dataType;
    typeId = ownsType ? typeShare.release() : other.typeId;
    return *this;
}

IArray::~IArray()
{
    Close();
}

void IArray::Close()
{
    Close(m_location, ownsType ? typeId : -1);
    m_location = -1;
    typeId = -1;
}

void IArray::Close(hid_t dataSet, hid_t typeId)
{
    const ScopedType closingType(typeId);
    const ScopedDataSet closingDataSet(dataSet);
}

bool IArray::Exists(hid_t parent, const std::string& name)
{
    return HasObjectOfType(parent, name, H5O_TYPE_DATASET);
}

void IArray::QueryInfo(hid_t dataSet, TDataType::TDataType& type, hid_t& typeId, size_t& length, size_t& components)
{
    Raise(FindRefusal(dataSet, type, typeId, length, components));
}

Refusal IArray::FindRefusal(hid_t dataSet, TDataType::TDataType& type, hid_t& typeId, size_t& length,
                            size_t& components)
{
    ArrayInfo info;
    const Refusal refusal = FindInfo(dataSet, info);
    typeId = info.typeId.release();
    if (!refusal)
    {
        type = info.type;
        length = info.length;
        components = info.components;
    }
    return refusal;
}

boost::shared_ptr<IArray> IArray::Open(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name)
{
    ScopedDataSet dataSet = OpenDataSetAt("Array", parent, name);
    CheckResult(dataSet.get(), "could not open array '", name, "'");
    return FromOpenDataSet(std::move(file), parent, name, dataSet.release(), false);
}

// Takes over the data set on every way out.
boost::shared_ptr<IArray> IArray::FromOpenDataSet(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                  hid_t dataSet, bool isNullIfRefused)
{
    ScopedDataSet ownedDataSet(dataSet);
    ArrayInfo info;
    const Refusal refusal = FindInfo(dataSet, info);
    if (refusal && isNullIfRefused)
    {
        return {};
    }
    Raise(refusal);
    std::unique_ptr<IArray> array(new IArray(std::move(file), parent, dataSet, name, info.components, info.length,
                                             info.typeId.get(), 0, true, info.type));
    array->mayHoldMore = info.mayHoldMore;
    return PassToNode(std::move(array), ownedDataSet, info.typeId);
}

void IArray::ReOpen(hid_t parent, const std::string& name)
{
    Close();
    ScopedDataSet dataSet = OpenDataSetAt("Array", parent, name);
    CheckResult(dataSet.get(), "could not reopen array '", name, "'");
    ArrayInfo info;
    Raise(FindInfo(dataSet.get(), info));
    m_location = dataSet.release();
    parentId = parent;
    ownsType = true;
    mayHoldMore = info.mayHoldMore;
    storage = StorageTraits::Unknown;
    length = info.length;
    components = info.components;
    dataType = info.type;
    typeId = info.typeId.release();
}

size_t IArray::GetLength() const
{
    return length;
}

size_t IArray::GetComponents() const
{
    return components;
}

size_t IArray::GetSize() const
{
    return components * length;
}

size_t IArray::GetSizeInBytes() const
{
    return GetDataTypeSize(dataType) * components * length;
}

TDataType::TDataType IArray::GetType() const
{
    return dataType;
}

hid_t IArray::GetTypeID() const
{
    return typeId;
}

boost::shared_ptr<IArray> IArray::CreateEmpty(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                              TDataType::TDataType type, int compression)
{
    const hid_t typeId = DataTypeToHDFType(type);
    IDataSetBuilder builder;
    builder.fileSpace = H5Screate(H5S_NULL);
    builder.CreateDataSet(parent, name, typeId);
    std::unique_ptr<IArray> array(
        new IArray(std::move(file), parent, builder.dataSet, name, 0, 0, typeId, compression, false));
    builder.TakeDataSet();
    return PassToNode(std::move(array));
}

boost::shared_ptr<IArray> IArray::CreateFromBuffer(boost::weak_ptr<IFile> file, hid_t parent, const std::string& name,
                                                   void* buffer, TDataType::TDataType type, size_t length,
                                                   size_t components, int compression)
{
    const boost::shared_ptr<IFile> lockedFile = file.lock();
    if (lockedFile.get() == nullptr)
    {
        const std::string message = "file must not be NULL";
        throw IPreconditionException("file.get() != NULL", message, "Array.tarnwickhdf", __LINE__);
    }
    ScopedType stringType;
    IDataSetBuilder builder;
    hid_t fileType = -1;
    if (type == TDataType::String)
    {
        builder.CreateSpace1D(length, compression, 0, 0);
        stringType = CreateFileStringType(components, lockedFile->GetEncoding(), name);
        fileType = stringType.get();
    }
    else
    {
        fileType = DataTypeToHDFType(type);
        CreateNumberSpace(builder, length, components, H5Tget_size(fileType), compression);
    }
    builder.CreateDataSetAndWrite(parent, name, fileType, buffer, fileType);
    std::unique_ptr<IArray> array(new IArray(std::move(file), parent, builder.dataSet, name, components, length,
                                             fileType, compression, type == TDataType::String));
    builder.TakeDataSet();
    return PassToNode(std::move(array), stringType);
}

void IArray::SetFromBuffer(void* buffer, TDataType::TDataType type, size_t newLength, size_t newComponents)
{
    const TDataType::TDataType newType = type == TDataType::Undefined ? dataType : type;
    if (newLength == length && newType == dataType && newComponents == components)
    {
        RewriteInPlace(buffer);
        return;
    }
    ReplaceFromBuffer(buffer, newType, newLength, newComponents);
}

void IArray::RewriteInPlace(void* buffer)
{
    if (mayHoldMore)
    {
        CheckOwnSizes(m_location, ElementsOf(dataType, length, components));
    }
    ScopedType stringType;
    hid_t memoryType = -1;
    // Where there is no string, none has to fit the file's character set.
    if (dataType == TDataType::String && !HasNullSpace(m_location))
    {
        stringType = CopyMemoryStringType(components);
        CheckResult(H5Tset_cset(stringType.get(), GetEncoding()), "could not write charset for array: ", m_name);
        memoryType = stringType.get();
    }
    else
    {
        memoryType = DataTypeToHDFType(dataType);
    }
    CheckResult(H5Dwrite(m_location, memoryType, H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer), "error writing to dataset");
}

void IArray::ReplaceFromBuffer(void* buffer, TDataType::TDataType type, size_t newLength, size_t newComponents)
{
    Close();
    H5Gunlink(parentId, m_name.c_str());
    CreateFromBuffer(m_file, parentId, m_name, buffer, type, newLength, newComponents, compression);
    ReOpen(parentId, m_name);
}

void IArray::GetToBuffer(void* buffer, TDataType::TDataType type) const
{
    const MemoryType memoryType(type, dataType, typeId, components);
    const hsize_t elements = ElementsOf(dataType, length, components);
    if (mayHoldMore)
    {
        CheckOwnSizes(m_location, elements);
    }
    if (!ReadPackedChunks(storage, {m_location, typeId, memoryType.get(), elements}, buffer))
    {
        CheckRead(H5Dread(m_location, memoryType.get(), H5S_ALL, H5S_ALL, H5P_DEFAULT, buffer), m_name);
    }
}

void IArray::GetFromHyperslab(void* buffer, int start, int stride, int count, TDataType::TDataType type) const
{
    CheckResult(components != 1 ? -1 : 0, kNotOneDimension);
    const MemoryType memoryType(type, dataType, typeId, components);
    const bool isNumber = dataType != TDataType::Undefined && dataType < TDataType::String;
    const StoredRows elements = {m_location, typeId, isNumber, storage};
    if (ReadByBlocks(elements, length, start, stride, count, memoryType.get(), buffer))
    {
        return;
    }
    // With one component a second dimension has one element.
    const Hyperslab slab = {{Widen(start), 0}, {Widen(stride), 1}, {Widen(count), 1}};
    ReadFileHyperslab(m_location, memoryType, Widen(count), kMostDimensions, slab, buffer);
}

void IArray::GetFromHyperslab(void* buffer, int memoryLength, size_t dimensions, size_t* start, size_t* stride,
                              size_t* count, TDataType::TDataType type) const
{
    CheckResult(dimensions > kMostDimensions ? -1 : 0,
                "Error reading hyperslab: there's no support for arrays with more than 2 dimensions!");
    const MemoryType memoryType(type, dataType, typeId, components);
    Hyperslab slab = {};
    CopyEntries(start, dimensions, slab.start);
    CopyEntries(stride, dimensions, slab.stride);
    CopyEntries(count, dimensions, slab.count);
    ReadFileHyperslab(m_location, memoryType, Widen(memoryLength), dimensions, slab, buffer);
}

void IArray::GetToMemoryHyperslab(void* buffer, int start, int stride, int count, TDataType::TDataType type) const
{
    const MemoryType memoryType(type, dataType, typeId, components);
    const hsize_t bufferLength = WidenProduct(stride, count);
    const Hyperslab places = {{Widen(start), 0}, {Widen(stride), 1}, {Widen(count), 1}};
    const hsize_t first = 0;
    const hsize_t adjacent = 1;
    ScopedSpace fileSpace;
    const ScopedSpace memorySpace(H5Screate_simple(1, &bufferLength, nullptr));
    CheckResult(
        H5Sselect_hyperslab(memorySpace.get(), H5S_SELECT_SET, places.start, places.stride, places.count, nullptr),
        kNoMemorySelection);
    fileSpace.reset(H5Dget_space(m_location));
    CheckRank(fileSpace, 1, kNotOneDimension);
    CheckResult(H5Sselect_hyperslab(fileSpace.get(), H5S_SELECT_SET, &first, &adjacent, places.count, nullptr),
                "Error creating file data space hyperslab!");
    // Before the buffer's begin there is memory too, as HDF5 sees it: the product of its size may be negative.
    const bool beginsInside = start >= 0 || count == 0;
    CheckResult(beginsInside && StaysInside(memorySpace, places, -1) ? 0 : -1, kSlabFailed);
    ReadSelection(m_location, memoryType, memorySpace, fileSpace, buffer);
}

} // namespace tarnwick::hdf
