#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <algorithm>

namespace tarnwick::hdf
{

namespace
{

H5Z_filter_t FilterAt(hid_t list, int position, unsigned int& firstValue)
{
    unsigned int flags = 0;
    unsigned int configuration = 0;
    size_t valueCount = 1;
    return H5Pget_filter2(list, static_cast<unsigned int>(position), &flags, &valueCount, &firstValue, 0, nullptr,
                          &configuration);
}

bool FiltersShortChunks(hid_t list)
{
    unsigned int options = 0;
    return H5Pget_chunk_opts(list, &options) >= 0 && (options & H5D_CHUNK_DONT_FILTER_PARTIAL_CHUNKS) == 0;
}

bool FillsUnwritten(hid_t list)
{
    H5D_fill_time_t time = H5D_FILL_TIME_ERROR;
    H5D_fill_value_t value = H5D_FILL_VALUE_ERROR;
    if (H5Pget_fill_time(list, &time) < 0 || H5Pfill_value_defined(list, &value) < 0)
    {
        return false;
    }
    const bool hasValue = value == H5D_FILL_VALUE_DEFAULT || value == H5D_FILL_VALUE_USER_DEFINED;
    return time == H5D_FILL_TIME_ALLOC || (time == H5D_FILL_TIME_IFSET && hasValue);
}

bool FitsCache(const StorageLayout& layout, size_t elementSize)
{
    return layout.chunkRank == 1 && layout.chunk[0] <= kChunkCacheBytes / std::max<size_t>(elementSize, 1);
}

unsigned int Bit(StorageTraits trait, bool isSet)
{
    return isSet ? static_cast<unsigned int>(trait) : 0U;
}

} // namespace

bool IsPacked(const StorageLayout& layout)
{
    const H5Z_filter_t first = layout.filters[0];
    if (layout.layout != H5D_CHUNKED)
    {
        return false;
    }
    if (layout.filterCount == 1)
    {
        return first == H5Z_FILTER_SHUFFLE || first == H5Z_FILTER_DEFLATE;
    }
    return layout.filterCount == 2 && first == H5Z_FILTER_SHUFFLE && layout.filters[1] == H5Z_FILTER_DEFLATE;
}

StorageLayout StorageLayoutOf(hid_t dataSet)
{
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    StorageLayout found;
    found.layout = H5Pget_layout(list.get());
    if (found.layout == H5D_CHUNKED)
    {
        found.chunkRank = std::max(H5Pget_chunk(list.get(), StorageLayout::kMostDimensions, found.chunk), 0);
        found.filtersShortChunks = FiltersShortChunks(list.get());
    }
    found.filterCount = std::max(H5Pget_nfilters(list.get()), 0);
    for (int i = 0; i < std::min(found.filterCount, StorageLayout::kMostFilters); ++i)
    {
        unsigned int value = 0;
        found.filters[i] = FilterAt(list.get(), i, value);
        found.shuffledSize = found.filters[i] == H5Z_FILTER_SHUFFLE ? value : found.shuffledSize;
    }
    found.hasExternalFiles = H5Pget_external_count(list.get()) > 0;
    found.fillsUnwritten = FillsUnwritten(list.get());
    return found;
}

std::optional<std::uint64_t> StoredBytesOfFirstChunk(hid_t dataSet)
{
    const QuietErrors quiet;
    const hsize_t origin[H5S_MAX_RANK] = {0};
    hsize_t stored = 0;
    return H5Dget_chunk_storage_size(dataSet, origin, &stored) >= 0 ? std::optional(stored) : std::nullopt;
}

StorageTraits TraitsOf(const StorageLayout& layout, size_t elementSize)
{
    const bool isChunked = layout.layout == H5D_CHUNKED;
    const bool isUnfiltered = layout.filterCount == 0;
    const bool fitsCache = FitsCache(layout, elementSize);
    const bool isOneRun = layout.layout == H5D_CONTIGUOUS && !layout.hasExternalFiles;
    const bool isCheap = isChunked ? isUnfiltered || fitsCache : isOneRun;
    const bool hasLargeChunks = isChunked && isUnfiltered && layout.chunkRank == 1 && !fitsCache;
    return static_cast<StorageTraits>(
        Bit(StorageTraits::Known, true) | Bit(StorageTraits::FillsUnwritten, layout.fillsUnwritten) |
        Bit(StorageTraits::CheapByBlocks, isCheap) | Bit(StorageTraits::LargeChunks, hasLargeChunks) |
        Bit(StorageTraits::Packed, IsPacked(layout)));
}

StorageTraits AskOnce(StorageTraits& remembered, hid_t dataSet, size_t elementSize)
{
    if (!Has(remembered, StorageTraits::Known))
    {
        remembered = With(remembered, TraitsOf(StorageLayoutOf(dataSet), elementSize));
    }
    return remembered;
}

} // namespace tarnwick::hdf
