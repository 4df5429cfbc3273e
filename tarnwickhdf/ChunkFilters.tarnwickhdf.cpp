#include <tarnwickhdf/internal/ChunkFilters.h>

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace tarnwick::hdf
{

namespace
{

// Shuffling is the transposition of a matrix of bytes, an element a row. It goes by tiles of 8 x 8 bytes, which fit into
// eight registers, and by blocks of elements that fill whole cache lines of each of the places they go to.
constexpr size_t kTile = 8;
constexpr size_t kBlock = 64;
constexpr bool kHasTiles = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

using Tile = std::uint64_t[kTile];

// Exchanges the upper part of each `2 * Bits` bits of one row with the lower part of another's.
template <unsigned int Bits, std::uint64_t Lower>
void Exchange(std::uint64_t& one, std::uint64_t& other)
{
    const std::uint64_t difference = ((one >> Bits) ^ other) & Lower;
    other ^= difference;
    one ^= difference << Bits;
}

void Transpose(Tile& rows)
{
    for (size_t i = 0; i < 4; ++i)
    {
        Exchange<32, 0x00000000FFFFFFFFU>(rows[i], rows[i + 4]);
    }
    for (const size_t i : {0U, 1U, 4U, 5U})
    {
        Exchange<16, 0x0000FFFF0000FFFFU>(rows[i], rows[i + 2]);
    }
    for (const size_t i : {0U, 2U, 4U, 6U})
    {
        Exchange<8, 0x00FF00FF00FF00FFU>(rows[i], rows[i + 1]);
    }
}

// Eight columns of a block: `elements` rows at a distance of `elementSize` become eight rows of a block's length.
void TransposeToRows(const char* from, size_t elementSize, size_t elements, char (&rows)[kTile][kBlock])
{
    for (size_t i = 0; i < elements; i += kTile)
    {
        Tile tile;
        for (size_t k = 0; k < kTile; ++k)
        {
            std::memcpy(&tile[k], from + (i + k) * elementSize, kTile);
        }
        Transpose(tile);
        for (size_t k = 0; k < kTile; ++k)
        {
            std::memcpy(&rows[k][i], &tile[k], kTile);
        }
    }
}

void TransposeToColumns(const char (&rows)[kTile][kBlock], size_t elementSize, size_t elements, char* to)
{
    for (size_t i = 0; i < elements; i += kTile)
    {
        Tile tile;
        for (size_t k = 0; k < kTile; ++k)
        {
            std::memcpy(&tile[k], &rows[k][i], kTile);
        }
        Transpose(tile);
        for (size_t k = 0; k < kTile; ++k)
        {
            std::memcpy(to + (i + k) * elementSize, &tile[k], kTile);
        }
    }
}

// A tile of a short element reaches into the elements behind it, so the last ones aren't for tiles.
size_t ElementsOfNextBlock(size_t elementsLeft)
{
    return kHasTiles && elementsLeft >= 2 * kTile ? std::min(kBlock, (elementsLeft - kTile) / kTile * kTile) : 0;
}

// The first column of the tile that follows; the last tile of a long element overlaps the one before.
size_t FirstColumn(size_t column, size_t elementSize)
{
    return elementSize > kTile ? std::min(column, elementSize - kTile) : 0;
}

// The level of libdeflate behind a level of zlib: the lowest that comes to zlib's size or less also for counters and time
// axes, in a half of zlib's time; levels 1 to 3 are for speed, because the size of zlib's would take its time as well.
int EffortOf(int level)
{
    constexpr int efforts[] = {1, 1, 2, 3, 4, 6, 7, 7, 8, 9};
    return efforts[std::clamp(level, 1, 9)];
}

} // namespace

Bytes TryAllocate(size_t size)
{
    return Bytes(new (std::nothrow) char[size]);
}

void Shuffle(const char* from, char* to, size_t size, size_t elementSize)
{
    const size_t elements = size / elementSize;
    size_t first = 0;
    while (const size_t count = ElementsOfNextBlock(elements - first))
    {
        char rows[kTile][kBlock];
        for (size_t next = 0; next < elementSize; next += kTile)
        {
            const size_t column = FirstColumn(next, elementSize);
            TransposeToRows(from + first * elementSize + column, elementSize, count, rows);
            for (size_t k = 0; k < std::min(kTile, elementSize); ++k)
            {
                std::memcpy(to + (column + k) * elements + first, rows[k], count);
            }
        }
        first += count;
    }
    for (size_t column = 0; column < elementSize; ++column)
    {
        for (size_t i = first; i < elements; ++i)
        {
            to[column * elements + i] = from[i * elementSize + column];
        }
    }
    std::memcpy(to + elements * elementSize, from + elements * elementSize, size % elementSize);
}

void Unshuffle(const char* from, char* to, size_t size, size_t elementSize)
{
    const size_t elements = size / elementSize;
    size_t first = 0;
    while (const size_t count = ElementsOfNextBlock(elements - first))
    {
        char rows[kTile][kBlock] = {};
        for (size_t next = 0; next < elementSize; next += kTile)
        {
            const size_t column = FirstColumn(next, elementSize);
            for (size_t k = 0; k < std::min(kTile, elementSize); ++k)
            {
                std::memcpy(rows[k], from + (column + k) * elements + first, count);
            }
            TransposeToColumns(rows, elementSize, count, to + first * elementSize + column);
        }
        first += count;
    }
    for (size_t i = first; i < elements; ++i)
    {
        for (size_t column = 0; column < elementSize; ++column)
        {
            to[i * elementSize + column] = from[column * elements + i];
        }
    }
    std::memcpy(to + elements * elementSize, from + elements * elementSize, size % elementSize);
}

PackedChunk ShuffleAndDeflate(const char* chunk, size_t size, size_t elementSize, int level)
{
    Bytes shuffled;
    if (elementSize > 1 && size > elementSize)
    {
        shuffled = TryAllocate(size);
        if (!shuffled)
        {
            return {};
        }
        Shuffle(chunk, shuffled.get(), size, elementSize);
        chunk = shuffled.get();
    }
    const std::unique_ptr<libdeflate_compressor, void (*)(libdeflate_compressor*)> compressor(
        libdeflate_alloc_compressor(EffortOf(level)), &libdeflate_free_compressor);
    if (!compressor)
    {
        return {};
    }
    const size_t most = libdeflate_zlib_compress_bound(compressor.get(), size);
    PackedChunk packed;
    packed.bytes = TryAllocate(most);
    if (packed.bytes)
    {
        packed.size = libdeflate_zlib_compress(compressor.get(), chunk, size, packed.bytes.get(), most);
    }
    return packed;
}

void ChunkUnpacker::Free::operator()(libdeflate_decompressor* decompressor) const
{
    libdeflate_free_decompressor(decompressor);
}

ChunkUnpacker::ChunkUnpacker(const ChunkFilters& filters, size_t size) : m_filters(filters), m_size(size)
{
    if (filters.hasDeflate)
    {
        m_decompressor.reset(libdeflate_alloc_decompressor());
        m_inflated = TryAllocate(filters.hasShuffle ? size : 0);
    }
}

bool ChunkUnpacker::IsReady() const
{
    return !m_filters.hasDeflate || (m_decompressor && m_inflated);
}

bool ChunkUnpacker::Inflate(const char* packed, size_t packedSize, char* to)
{
    size_t read = 0;
    size_t written = 0;
    const libdeflate_result result =
        libdeflate_zlib_decompress_ex(m_decompressor.get(), packed, packedSize, to, m_size, &read, &written);
    return result == LIBDEFLATE_SUCCESS && written == m_size;
}

bool ChunkUnpacker::Unpack(const char* packed, size_t packedSize, std::uint32_t skipped, char* chunk)
{
    const std::uint32_t deflateBit = m_filters.hasShuffle ? 2 : 1;
    const bool isDeflated = m_filters.hasDeflate && (skipped & deflateBit) == 0;
    const bool isShuffled = m_filters.hasShuffle && (skipped & 1U) == 0;
    if (isDeflated && !Inflate(packed, packedSize, isShuffled ? m_inflated.get() : chunk))
    {
        return false;
    }
    if (!isDeflated && packedSize != m_size)
    {
        return false;
    }
    if (isShuffled)
    {
        Unshuffle(isDeflated ? m_inflated.get() : packed, chunk, m_size, m_filters.elementSize);
    }
    else if (!isDeflated)
    {
        std::memcpy(chunk, packed, m_size);
    }
    return true;
}

} // namespace tarnwick::hdf
