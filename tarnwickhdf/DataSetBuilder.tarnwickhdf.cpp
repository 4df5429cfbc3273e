#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/internal/ObjectLookup.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <numeric>

namespace tarnwick::hdf
{

namespace
{

constexpr std::uint64_t kLargestGivenChunk = 0xFFFFFFFFU;
constexpr std::uint64_t kLargestSingleChunk = 0x80000000U;
constexpr unsigned int kPieceShift = 31;

// HDF5 lets the one coordinate just behind the end pass and would run over the buffers for it. So it goes one further,
// where HDF5 refuses it as it refuses all others outside.
void SelectElements(hid_t space, const std::vector<hsize_t>& coordinates, const char* message)
{
    CheckResult(H5Sselect_elements(space, H5S_SELECT_SET, coordinates.size(), coordinates.data()), message);
    hsize_t extent = 0;
    CheckResult(H5Sget_simple_extent_dims(space, &extent, nullptr), message);
    if (std::find(coordinates.begin(), coordinates.end(), extent) != coordinates.end())
    {
        std::vector<hsize_t> outside = coordinates;
        std::replace(outside.begin(), outside.end(), extent, extent + 1);
        CheckResult(H5Sselect_elements(space, H5S_SELECT_SET, outside.size(), outside.data()), message);
    }
}

} // namespace

IDataSetBuilder::~IDataSetBuilder()
{
    const ScopedType closingType(typeId);
    const ScopedDataSet closingDataSet(dataSet);
    const ScopedSpace closingMemorySpace(memorySpace);
    const ScopedSpace closingFileSpace(fileSpace);
    const ScopedPropertyList closingAccess(dapl);
    const ScopedPropertyList closingCreation(dcpl);
}

void IDataSetBuilder::CheckDataSetNotCreated(hid_t dataSetId)
{
    CheckResult(dataSetId > 0 ? -1 : 0, "DataSet already created!");
}

void IDataSetBuilder::CheckSpaceNotCreated(hid_t fileSpaceId)
{
    CheckResult(fileSpaceId != 0 ? -1 : 0, "Data set space already created!");
}

bool IDataSetBuilder::SetChunk(int rank, const hsize_t* chunk) const
{
    CheckResult(dcpl == 0 ? -1 : 0, "Invalid property for setting chunk!");
    return H5Pset_chunk(dcpl, rank, chunk) >= 0;
}

void IDataSetBuilder::CreateSpace(int rank, const hsize_t* dimensions, size_t elementSize, const hsize_t* chunk)
{
    CheckSpaceNotCreated(fileSpace);
    fileSpace = H5Screate_simple(rank, dimensions, nullptr);
    if (chunk != nullptr)
    {
        SetGivenChunk(rank, dimensions, elementSize, chunk);
        return;
    }
    SetAutomaticChunk(rank, dimensions, elementSize);
}

void IDataSetBuilder::SetGivenChunk(int rank, const hsize_t* dimensions, size_t elementSize, const hsize_t* chunk)
{
    std::uint64_t bytes = elementSize;
    for (int i = 0; i < rank; ++i)
    {
        CheckResult(chunk[i] > dimensions[i] ? -1 : 0, "Invalid chunk size: Must be smaller than data set dimensions.");
        bytes *= chunk[i];
    }
    CheckResult(bytes > kLargestGivenChunk ? -1 : 0, "Invalid chunk size: The maximum size for any chunk is 4GB.");
    SetChunkOf(rank, dimensions, chunk);
}

void IDataSetBuilder::SetAutomaticChunk(int rank, const hsize_t* dimensions, size_t elementSize)
{
    std::uint64_t total = elementSize;
    for (int i = 0; i < rank; ++i)
    {
        total *= dimensions[i];
    }
    if (total <= kLargestSingleChunk)
    {
        SetChunkOf(rank, dimensions, dimensions);
        return;
    }
    const hsize_t pieces = (total >> kPieceShift) + 1;
    std::vector<hsize_t> chunk(dimensions, dimensions + rank);
    for (hsize_t& dimension : chunk)
    {
        dimension = dimension > pieces ? dimension / pieces : dimension;
    }
    SetChunkOf(rank, dimensions, chunk.data());
}

void IDataSetBuilder::SetChunkOf(int rank, const hsize_t* dimensions, const hsize_t* chunk)
{
    const bool isWhole = SetChunk(rank, chunk) && std::equal(chunk, chunk + rank, dimensions);
    wholeChunk.elements = isWhole ? std::accumulate(dimensions, dimensions + rank, hsize_t{1}, std::multiplies<>()) : 0;
}

void IDataSetBuilder::CreateSpace1D(hsize_t length, int compression, size_t elementSize, hsize_t chunkLength)
{
    if (dcpl == 0)
    {
        dcpl = H5Pcreate(H5P_DATASET_CREATE);
    }
    CreateSpace(1, &length, elementSize, chunkLength == 0 ? nullptr : &chunkLength);
    AddFilters(compression);
}

void IDataSetBuilder::AddFilters(int compression)
{
    if (compression > 0)
    {
        const bool shuffles = H5Pset_shuffle(dcpl) >= 0;
        const bool deflates = H5Pset_deflate(dcpl, static_cast<unsigned int>(compression)) >= 0;
        wholeChunk.elements = shuffles && deflates ? wholeChunk.elements : 0;
        wholeChunk.compression = compression;
    }
}

void IDataSetBuilder::CreateDataSet(hid_t parent, const std::string& name, hid_t fileType)
{
    CheckDataSetNotCreated(dataSet);
    dataSet = H5Dcreate2(parent, name.c_str(), fileType, fileSpace, H5P_DEFAULT, dcpl, dapl);
    CheckResult(dataSet, "could not create dataset");
}

void IDataSetBuilder::CreateDataSetAndWrite(hid_t parent, const std::string& name, hid_t fileType, const void* buffer,
                                            hid_t memoryType)
{
    CreateDataSet(parent, name, fileType);
    const hid_t bufferType = memoryType > 0 ? memoryType : fileType;
    if (!WriteWhole(fileType, buffer, bufferType))
    {
        CheckResult(H5Dwrite(dataSet, bufferType, memorySpace, H5S_ALL, H5P_DEFAULT, buffer),
                    "error writing to dataset");
    }
}

bool IDataSetBuilder::WriteWhole(hid_t fileType, const void* buffer, hid_t bufferType) const
{
    const bool mayBeSameBytes = memorySpace == 0 && buffer != nullptr && wholeChunk.elements > 0;
    const bool areSameBytes = mayBeSameBytes && IsSelfContained(fileType) && IsSameType(bufferType, fileType);
    return areSameBytes && WriteWholeChunk(dataSet, wholeChunk, H5Tget_size(fileType), buffer);
}

void IDataSetBuilder::OpenDataSet(hid_t parent, const std::string& name)
{
    CheckDataSetNotCreated(dataSet);
    dataSet = OpenDataSetAt("Array", parent, name).release();
    CheckResult(dataSet, "could not open Table '", name, "'");
}

hid_t IDataSetBuilder::OpenFileSpace(hid_t dataSetId)
{
    CheckResult(fileSpace > 0 ? -1 : 0, "Invalid operation on an open data set space");
    fileSpace = H5Dget_space(dataSetId == -1 ? dataSet : dataSetId);
    CheckResult(fileSpace, "Fail to on an open data set space");
    return fileSpace;
}

void IDataSetBuilder::SelectFileElements(const std::vector<hsize_t>& coordinates) const
{
    SelectElements(fileSpace, coordinates, "Error while selecting elements from file data set");
}

void IDataSetBuilder::SelectFileHyperslab(hsize_t start, hsize_t stride, hsize_t count) const
{
    CheckResult(H5Sselect_hyperslab(fileSpace, H5S_SELECT_SET, &start, &stride, &count, nullptr),
                "Error while selecting elements from file data set");
}

void IDataSetBuilder::SelectMemoryElements(const std::vector<hsize_t>& coordinates) const
{
    SelectElements(memorySpace, coordinates, "Error while selecting elements from memory data set");
}

hid_t IDataSetBuilder::TakeDataSet()
{
    const hid_t taken = dataSet;
    dataSet = -1;
    return taken;
}

hid_t IDataSetBuilder::TakeType()
{
    const hid_t taken = typeId;
    typeId = -1;
    return taken;
}

} // namespace tarnwick::hdf
