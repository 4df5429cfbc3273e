#pragma once

#include <tarnwickhdf/TDataType.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarnwick::hdf
{

/// The chunks of a column are kept up to so many bytes. A file opens the next array with no larger cache than that.
constexpr std::uint64_t kLargestCacheForColumns = std::uint64_t{16} << 20U;

/// What decides how large the chunk cache of an extensible array should be.
struct Chunking
{
    static constexpr int kRank = 2;

    hsize_t chunk[kRank];
    hsize_t rows;
    hsize_t columns;
    size_t elementSize; ///< 0 where it isn't known: HDF5's default cache will do then.
    bool filtered;
};

/// Asks an open data set.
Chunking ChunkingOf(hid_t dataSet, TDataType::TDataType type, hsize_t rows, hsize_t columns);

/// How much the chunk cache must hold for the chunks that a row or a column goes through, HDF5's default at the least.
std::uint64_t CacheBytesFor(const Chunking& chunking);

/// The access list with a chunk cache of so many bytes; none where HDF5's default cache will do.
ScopedPropertyList CreateCacheList(std::uint64_t cacheBytes);

/// Opens a data set again with such a cache, because the cache is settled by opening. Where HDF5 refuses that, the data set
/// is opened with its default cache, which serves as well, only slower.
/// @throws std::runtime_error "could not open extensible array '" + name + "'" with traceback.
void WidenCache(ScopedDataSet& dataSet, hid_t parent, const std::string& name, std::uint64_t cacheBytes);

} // namespace tarnwick::hdf
