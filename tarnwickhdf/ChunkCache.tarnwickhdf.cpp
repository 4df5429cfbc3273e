#include <tarnwickhdf/INode.h>
#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkCache.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <algorithm>

namespace tarnwick::hdf
{

namespace
{

constexpr std::uint64_t kLargestCacheBytes = std::uint64_t{64} << 20U;
constexpr hsize_t kCacheSlots = 521;
constexpr int kRows = 0;
constexpr int kColumns = 1;

hsize_t ChunksAlong(hsize_t size, hsize_t chunk)
{
    const hsize_t step = std::max<hsize_t>(chunk, 1);
    return std::max<hsize_t>((size + step - 1) / step, 1);
}

// How much the chunk cache must hold for a row not to be taken apart and put together again by every access: the chunks
// that a row goes through. HDF5's default serves small chunks; large ones are kept up to a limit, so that a handle
// never costs more than that, but a single chunk with filters always, which HDF5 has to hold whole in memory anyway.
std::uint64_t CacheBytesForRows(const Chunking& chunking, std::uint64_t chunkBytes)
{
    if (chunkBytes <= kLargestCacheBytes)
    {
        return std::min<std::uint64_t>(chunkBytes * ChunksAlong(chunking.columns, chunking.chunk[kColumns]),
                                       kLargestCacheBytes);
    }
    return chunking.filtered ? chunkBytes : kChunkCacheBytes;
}

// The same for a column, up to a lower limit, because a column goes through the whole length of the data. More chunks
// than the cache has slots for would push each other out.
std::uint64_t CacheBytesForColumns(const Chunking& chunking, std::uint64_t chunkBytes)
{
    const hsize_t chunks = ChunksAlong(chunking.rows, chunking.chunk[kRows]);
    const bool fits = chunks <= kCacheSlots && chunkBytes <= kLargestCacheForColumns &&
                      chunkBytes * chunks <= kLargestCacheForColumns;
    return fits ? chunkBytes * chunks : 0;
}

} // namespace

std::uint64_t CacheBytesFor(const Chunking& chunking)
{
    const std::uint64_t chunkBytes = chunking.chunk[kRows] * chunking.chunk[kColumns] * chunking.elementSize;
    const std::uint64_t bytes =
        std::max(CacheBytesForRows(chunking, chunkBytes), CacheBytesForColumns(chunking, chunkBytes));
    return std::max(bytes, kChunkCacheBytes);
}

ScopedPropertyList CreateCacheList(std::uint64_t cacheBytes)
{
    if (cacheBytes <= kChunkCacheBytes)
    {
        return ScopedPropertyList(H5P_DEFAULT);
    }
    ScopedPropertyList list(H5Pcreate(H5P_DATASET_ACCESS));
    H5Pset_chunk_cache(list.get(), kCacheSlots, cacheBytes, H5D_CHUNK_CACHE_W0_DEFAULT);
    return list;
}

Chunking ChunkingOf(hid_t dataSet, TDataType::TDataType type, hsize_t rows, hsize_t columns)
{
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    Chunking chunking = {{0, 0}, rows, columns, 0, H5Pget_nfilters(list.get()) > 0};
    // The stored size of a string isn't its type's, so strings keep the default cache.
    if (type != TDataType::String && type != TDataType::VarLenString)
    {
        chunking.elementSize = INode::GetDataTypeSize(type);
        H5Pget_chunk(list.get(), Chunking::kRank, chunking.chunk);
    }
    return chunking;
}

void WidenCache(ScopedDataSet& dataSet, hid_t parent, const std::string& name, std::uint64_t cacheBytes)
{
    const ScopedPropertyList access = CreateCacheList(cacheBytes);
    if (access.get() < 0)
    {
        return;
    }
    dataSet.reset();
    dataSet.reset(H5Dopen2(parent, name.c_str(), access.get()));
    if (dataSet.get() < 0)
    {
        dataSet.reset(H5Dopen1(parent, name.c_str()));
        CheckResult(dataSet.get(), "could not open extensible array '", name, "'");
    }
}

} // namespace tarnwick::hdf
