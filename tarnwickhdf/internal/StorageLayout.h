#pragma once

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tarnwick::hdf
{

/// HDF5's chunk cache, where nobody asked for another: a chunk that fits is unpacked once for all the reads that it serves.
constexpr std::uint64_t kChunkCacheBytes = std::uint64_t{1} << 20U;

/// How a data set lies in the file: all that a way of moving bytes beside HDF5's selections rests on. It can't change
/// while the data set lives.
struct StorageLayout
{
    static constexpr int kMostDimensions = 2;
    static constexpr int kMostFilters = 2;

    H5D_layout_t layout = H5D_LAYOUT_ERROR;   ///< H5D_LAYOUT_ERROR if HDF5 can't tell: nothing else counts then.
    int chunkRank = 0;                        ///< The dimensions of a chunk; 0 without chunks.
    hsize_t chunk[kMostDimensions] = {0, 0};  ///< The first two of them.
    int filterCount = 0;                      ///< All filters.
    H5Z_filter_t filters[kMostFilters] = {0}; ///< The first two of them, in the order in which they are applied.
    size_t shuffledSize = 0;                  ///< The bytes of an element as shuffle has them; 0 without shuffle.
    bool filtersShortChunks = true;           ///< Whether chunks that reach behind the extent are filtered as well.
    bool hasExternalFiles = false;
    /// Whether elements that were never written read as a fill value. If not, HDF5 leaves a reader's buffer as it is.
    bool fillsUnwritten = false;
};

/// Asks HDF5. This takes the time of reading some hundred elements, so what is to be known often is remembered as
/// StorageTraits.
StorageLayout StorageLayoutOf(hid_t dataSet);

/// What can be known of the layout at a tenth of its price: the bytes in the file of the chunk that the first element lies
/// in, 0 if it was never written. Nothing if there are no chunks or HDF5 can't tell.
std::optional<std::uint64_t> StoredBytesOfFirstChunk(hid_t dataSet);

/// Whether the filters are shuffle, deflate or shuffle and then deflate, and nothing else.
bool IsPacked(const StorageLayout& layout);

/// What a handle remembers of its layout: few enough bits for the space that the members of an exported class leave.
enum class StorageTraits : std::uint8_t
{
    Unknown = 0,        ///< Not asked yet.
    Known = 1,          ///< Asked; in every answer.
    FillsUnwritten = 2, ///< As in StorageLayout.
    CheapByBlocks = 4,  ///< No chunk has to be unpacked again for each of several blocks that it serves.
    LargeChunks = 8, ///< Unfiltered chunks that HDF5's cache can't hold: each element of a selection is read by itself.
    Packed = 16,     ///< Chunks that are filtered by shuffle, deflate or shuffle and then deflate, and by nothing else.
    ReadBefore = 32, ///< The handle has read the data set as a whole; in no answer.
    NotPacked = 64,  ///< Not Packed, which is known before the rest; in no answer.
    NotLarge = 128   ///< Not LargeChunks, which is known before the rest; in no answer.
};

constexpr bool Has(StorageTraits traits, StorageTraits wanted)
{
    return (static_cast<unsigned int>(traits) & static_cast<unsigned int>(wanted)) != 0;
}

constexpr StorageTraits With(StorageTraits traits, StorageTraits added)
{
    return static_cast<StorageTraits>(static_cast<unsigned int>(traits) | static_cast<unsigned int>(added));
}

/// The traits of a data set of elements of `elementSize` bytes.
StorageTraits TraitsOf(const StorageLayout& layout, size_t elementSize);

/// The same. Asks once and leaves the answer in `remembered`, which
/// belongs to one handle and starts as Unknown with each data set that the handle opens.
StorageTraits AskOnce(StorageTraits& remembered, hid_t dataSet, size_t elementSize);

} // namespace tarnwick::hdf
