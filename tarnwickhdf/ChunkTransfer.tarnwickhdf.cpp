#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/SameOnEveryHdf5.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tarnwick::hdf
{

namespace
{

constexpr std::uint64_t kLargestStoredChunk = 0xFFFFFFFFU;
const hsize_t kOrigin[H5S_MAX_RANK] = {0};

// Whether the class alone tells that an element is all in its own bytes.
bool IsPlain(H5T_class_t elementClass)
{
    return elementClass == H5T_INTEGER || elementClass == H5T_FLOAT || elementClass == H5T_BITFIELD ||
           elementClass == H5T_OPAQUE || elementClass == H5T_ENUM;
}

// Opening a member's type takes several times as long as asking for its class.
bool IsMemberSelfContained(hid_t compound, unsigned int member)
{
    return IsPlain(H5Tget_member_class(compound, member)) ||
           IsSelfContained(ScopedType(H5Tget_member_type(compound, member)).get());
}

bool AreMembersSelfContained(hid_t compound)
{
    const int members = H5Tget_nmembers(compound);
    for (int i = 0; i < members; ++i)
    {
        if (!IsMemberSelfContained(compound, static_cast<unsigned int>(i)))
        {
            return false;
        }
    }
    return members > 0;
}

// Smaller data sets aren't worth a question.
constexpr hsize_t kFewestElements = 256;
constexpr std::uint64_t kFewestBytes = std::uint64_t{8} << 10U;

// Whether an unfiltered data set is ruled out.
bool MayBePacked(hid_t dataSet, std::uint64_t size)
{
    const std::uint64_t stored = StoredBytesOfFirstChunk(dataSet).value_or(0);
    return stored != 0 && stored != size;
}

// Asks for nothing that a handle knows.
bool IsWorthReadingChunks(StorageTraits& remembered, hid_t dataSet, std::uint64_t size)
{
    const bool isKnown = Has(remembered, StorageTraits::Known);
    const bool isPlain = isKnown ? !Has(remembered, StorageTraits::Packed) : Has(remembered, StorageTraits::NotPacked);
    if (size < kFewestBytes || isPlain)
    {
        return false;
    }
    const bool fitsCache = size <= kChunkCacheBytes;
    if (fitsCache && !isKnown && !MayBePacked(dataSet, size))
    {
        remembered = With(remembered, StorageTraits::NotPacked);
        return false;
    }
    const bool isCached = fitsCache && Has(remembered, StorageTraits::ReadBefore);
    remembered = With(remembered, StorageTraits::ReadBefore);
    return !isCached;
}

// A data set whose chunks lie one behind the other in a buffer of all of it, by its first dimension.
struct ChunkRows
{
    hsize_t rows = 0; ///< Of the data set; 0 if its chunks don't lie so.
    hsize_t rowsInChunk = 1;
    std::uint64_t rowSize = 0;
};

ChunkRows ChunkRowsOf(hid_t dataSet, const StorageLayout& layout, size_t elementSize)
{
    const ScopedSpace space(H5Dget_space(dataSet));
    hsize_t extent[StorageLayout::kMostDimensions] = {0, 0};
    const int rank = H5Sget_simple_extent_ndims(space.get());
    if (rank != layout.chunkRank || rank < 1 || rank > StorageLayout::kMostDimensions ||
        H5Sget_simple_extent_dims(space.get(), extent, nullptr) != rank)
    {
        return {};
    }
    const bool isWide = rank == 2;
    const std::uint64_t rowSize = isWide ? elementSize * extent[1] : elementSize;
    const bool fits = rowSize > 0 && layout.chunk[0] <= kLargestStoredChunk / rowSize;
    return fits && (!isWide || layout.chunk[1] == extent[1]) ? ChunkRows{extent[0], layout.chunk[0], rowSize}
                                                             : ChunkRows();
}

// Reads one chunk after the other.
class ChunkReader
{
public:
    ChunkReader(hid_t dataSet, const ChunkFilters& filters, size_t chunkSize)
        : m_dataSet(dataSet), m_chunkSize(chunkSize), m_unpacker(filters, chunkSize)
    {
    }

    bool IsReady() const { return m_unpacker.IsReady(); }

    // The first `wanted` bytes of the chunk that begins at a row.
    bool Read(hsize_t row, char* to, size_t wanted)
    {
        const hsize_t offset[StorageLayout::kMostDimensions] = {row, 0};
        hsize_t stored = 0;
        std::uint32_t skipped = 0;
        if (H5Dget_chunk_storage_size(m_dataSet, offset, &stored) < 0 || !MakeRoom(stored) ||
            ReadStoredChunk(m_dataSet, offset, skipped, m_packed.get()) < 0)
        {
            return false;
        }
        if (wanted == m_chunkSize)
        {
            return m_unpacker.Unpack(m_packed.get(), stored, skipped, to);
        }
        const Bytes whole = TryAllocate(m_chunkSize);
        if (!whole || !m_unpacker.Unpack(m_packed.get(), stored, skipped, whole.get()))
        {
            return false;
        }
        std::memcpy(to, whole.get(), wanted);
        return true;
    }

private:
    // A chunk that isn't there has no bytes. One that says it has far more than unpacked would ask for memory in vain.
    bool MakeRoom(hsize_t stored)
    {
        constexpr hsize_t overhead = 4096;
        if (stored == 0 || stored > m_chunkSize + m_chunkSize / 8 + overhead)
        {
            return false;
        }
        if (stored > m_room)
        {
            m_packed = TryAllocate(stored);
            m_room = m_packed ? stored : 0;
        }
        return m_packed != nullptr;
    }

    hid_t m_dataSet;
    size_t m_chunkSize;
    ChunkUnpacker m_unpacker;
    Bytes m_packed;
    size_t m_room = 0;
};

bool ReadEveryChunk(StorageTraits& remembered, hid_t dataSet, size_t elementSize, char* buffer)
{
    const StorageLayout layout = StorageLayoutOf(dataSet);
    remembered = With(remembered, TraitsOf(layout, elementSize));
    const ChunkRows rows = IsPacked(layout) ? ChunkRowsOf(dataSet, layout, elementSize) : ChunkRows();
    const bool hasShuffle = layout.filters[0] == H5Z_FILTER_SHUFFLE;
    const bool isShort = rows.rows % rows.rowsInChunk != 0;
    if (rows.rows == 0 || (isShort && !layout.filtersShortChunks) || (hasShuffle && layout.shuffledSize == 0))
    {
        return false;
    }
    const bool hasDeflate = layout.filters[layout.filterCount - 1] == H5Z_FILTER_DEFLATE;
    ChunkReader reader(dataSet, {hasShuffle, hasDeflate, layout.shuffledSize}, rows.rowsInChunk * rows.rowSize);
    if (!reader.IsReady())
    {
        return false;
    }
    for (hsize_t row = 0; row < rows.rows; row += rows.rowsInChunk)
    {
        const hsize_t count = std::min(rows.rowsInChunk, rows.rows - row);
        if (!reader.Read(row, buffer + row * rows.rowSize, count * rows.rowSize))
        {
            return false;
        }
    }
    return true;
}

} // namespace

bool IsSelfContained(hid_t type)
{
    const H5T_class_t elementClass = H5Tget_class(type);
    switch (elementClass)
    {
    case H5T_STRING:
        return H5Tis_variable_str(type) == 0;
    case H5T_ARRAY:
        return IsSelfContained(ScopedType(H5Tget_super(type)).get());
    case H5T_COMPOUND:
        return AreMembersSelfContained(type);
    default:
        return IsPlain(elementClass);
    }
}

bool WriteWholeChunk(hid_t dataSet, const WholeChunk& chunk, size_t elementSize, const void* buffer)
{
    const std::uint64_t size = chunk.elements * elementSize;
    if (size == 0 || size > kLargestStoredChunk)
    {
        return false;
    }
    PackedChunk packed;
    if (chunk.compression > 0)
    {
        packed = ShuffleAndDeflate(static_cast<const char*>(buffer), size, elementSize, chunk.compression);
        if (packed.size == 0 || packed.size > kLargestStoredChunk)
        {
            return false;
        }
    }
    const void* const bytes = packed.bytes ? packed.bytes.get() : buffer;
    const size_t stored = packed.bytes ? packed.size : size;
    CheckResult(H5Dwrite_chunk(dataSet, H5P_DEFAULT, 0, kOrigin, stored, bytes), "error writing to dataset");
    return true;
}

bool ReadPackedChunks(StorageTraits& remembered, const WholeRead& read, void* buffer)
{
    if (read.elements < kFewestElements || buffer == nullptr)
    {
        return false;
    }
    const size_t elementSize = H5Tget_size(read.storedType);
    return elementSize > 0 && IsWorthReadingChunks(remembered, read.dataSet, read.elements * elementSize) &&
           IsSelfContained(read.storedType) && IsSameType(read.storedType, read.memoryType) &&
           ReadEveryChunk(remembered, read.dataSet, elementSize, static_cast<char*>(buffer));
}

} // namespace tarnwick::hdf
