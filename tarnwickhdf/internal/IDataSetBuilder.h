#pragma once

#include <tarnwickhdf/internal/ChunkTransfer.h>

#include <hdf5.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tarnwick::hdf
{

/// Owns, for the time of one operation, the HDF5 ids that creating a data set or running a selection needs, and decides
/// how a data set is chunked and filtered. Whatever goes wrong, its destructor closes what it still holds.
///
/// All failures carry a traceback. HDF5's refusals of a property list, a space or a filter aren't looked at: they come
/// to light at H5Dcreate2.
class IDataSetBuilder
{
public:
    IDataSetBuilder() = default;
    IDataSetBuilder(const IDataSetBuilder&) = delete;
    IDataSetBuilder& operator=(const IDataSetBuilder&) = delete;
    ~IDataSetBuilder();

    static void CheckDataSetNotCreated(hid_t dataSetId);
    static void CheckSpaceNotCreated(hid_t fileSpaceId);

    /// False if HDF5 refuses the chunk.
    bool SetChunk(int rank, const hsize_t* chunk) const;

    /// Makes the file space and sets the chunk: `chunk` if given; else one chunk for the whole data set if
    /// `elementSize` is 0 or the data have at most 2 GiB; else every dimension divided by the same number of pieces.
    /// `dcpl` must exist.
    void CreateSpace(int rank, const hsize_t* dimensions, size_t elementSize, const hsize_t* chunk);

    /// The one-dimensional form, which makes `dcpl` if needed and adds the filters. A `chunkLength` of 0 means none
    /// given.
    void CreateSpace1D(hsize_t length, int compression, size_t elementSize, hsize_t chunkLength);

    /// Adds shuffle and deflate behind the chunk if `compression` is above 0.
    void AddFilters(int compression);

    void CreateDataSet(hid_t parent, const std::string& name, hid_t fileType);

    /// A `memoryType` of 0 or less stands for the file type. What is one chunk, and the same bytes in the file as in
    /// memory, goes straight to the file.
    void CreateDataSetAndWrite(hid_t parent, const std::string& name, hid_t fileType, const void* buffer,
                               hid_t memoryType);

    void OpenDataSet(hid_t parent, const std::string& name);

    /// Opens the space of a data set; -1 stands for the builder's own.
    hid_t OpenFileSpace(hid_t dataSetId);

    /// Which coordinates HDF5 refuses, and where, is its affair. A coordinate just behind the end, which some of its
    /// versions let pass, is refused as the others outside are: at the transfer.
    void SelectFileElements(const std::vector<hsize_t>& coordinates) const;
    void SelectFileHyperslab(hsize_t start, hsize_t stride, hsize_t count) const;
    /// As SelectFileElements, for the space in memory.
    void SelectMemoryElements(const std::vector<hsize_t>& coordinates) const;

    /// Hands the data set over to the node that was made of it.
    hid_t TakeDataSet();
    /// Hands the type over to the node that was made of it.
    hid_t TakeType();

    hid_t dcpl = 0;        ///< Creation list; 0 is none and H5P_DEFAULT.
    hid_t dapl = 0;        ///< Access list; 0 is none and H5P_DEFAULT.
    hid_t fileSpace = 0;   ///< Space in the file; 0 is none.
    hid_t memorySpace = 0; ///< Space in memory; 0 is none and H5S_ALL.
    hid_t dataSet = -1;    ///< The data set; negative is none.
    hid_t typeId = -1;     ///< A type that the builder closes; negative is none.
    WholeChunk wholeChunk; ///< What the creation list makes of the file space, if that is one chunk.

private:
    void SetGivenChunk(int rank, const hsize_t* dimensions, size_t elementSize, const hsize_t* chunk);
    void SetAutomaticChunk(int rank, const hsize_t* dimensions, size_t elementSize);
    void SetChunkOf(int rank, const hsize_t* dimensions, const hsize_t* chunk);
    bool WriteWhole(hid_t fileType, const void* buffer, hid_t bufferType) const;
};

} // namespace tarnwick::hdf
