#include <tarnwickhdf/internal/ChunkFilters.h>

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace tarnwick::hdf
{

namespace
{

// Shuffling is the transposition of a matrix of bytes, an element a row. It goes by blocks of elements, and within a block
// by columns of four, two or one bytes: of loops over these and a fixed number of elements compilers make vector code.
constexpr size_t kBlock = 256;

// The k-th byte of each group of `Width` goes to row k of `rows`, which are `distance` bytes apart.
template <size_t Width>
void SplitGroups(const char* __restrict groups, char* __restrict rows, size_t distance)
{
    for (size_t i = 0; i < kBlock; ++i)
    {
        for (size_t k = 0; k < Width; ++k)
        {
            rows[k * distance + i] = groups[i * Width + k];
        }
    }
}

template <size_t Width>
void JoinGroups(const char* __restrict rows, size_t distance, char* __restrict groups)
{
    for (size_t i = 0; i < kBlock; ++i)
    {
        for (size_t k = 0; k < Width; ++k)
        {
            groups[i * Width + k] = rows[k * distance + i];
        }
    }
}

// Shuffles the columns of a block from `column` on as long as `Width` bytes of the elements are left, and gives the column
// that follows.
template <size_t Width>
size_t ShuffleColumns(const char* block, size_t elementSize, char* rows, size_t distance, size_t column)
{
    for (; column + Width <= elementSize; column += Width)
    {
        if (elementSize == Width)
        {
            SplitGroups<Width>(block, rows, distance);
            continue;
        }
        char groups[kBlock * Width];
        for (size_t i = 0; i < kBlock; ++i)
        {
            std::memcpy(groups + i * Width, block + i * elementSize + column, Width);
        }
        SplitGroups<Width>(groups, rows + column * distance, distance);
    }
    return column;
}

template <size_t Width>
size_t UnshuffleColumns(const char* rows, size_t distance, char* block, size_t elementSize, size_t column)
{
    for (; column + Width <= elementSize; column += Width)
    {
        if (elementSize == Width)
        {
            JoinGroups<Width>(rows, distance, block);
            continue;
        }
        char groups[kBlock * Width];
        JoinGroups<Width>(rows + column * distance, distance, groups);
        for (size_t i = 0; i < kBlock; ++i)
        {
            std::memcpy(block + i * elementSize + column, groups + i * Width, Width);
        }
    }
    return column;
}

// The level of libdeflate behind a level of zlib. Levels 1 to 3 are for speed: about half of zlib's time, and of noise a
// little more than zlib's size. From 4 on it is the lowest that comes to zlib's size or less also for counters and time axes.
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
    for (; first + kBlock <= elements; first += kBlock)
    {
        const char* const block = from + first * elementSize;
        size_t column = ShuffleColumns<4>(block, elementSize, to + first, elements, 0);
        column = ShuffleColumns<2>(block, elementSize, to + first, elements, column);
        ShuffleColumns<1>(block, elementSize, to + first, elements, column);
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
    for (; first + kBlock <= elements; first += kBlock)
    {
        char* const block = to + first * elementSize;
        size_t column = UnshuffleColumns<4>(from + first, elements, block, elementSize, 0);
        column = UnshuffleColumns<2>(from + first, elements, block, elementSize, column);
        UnshuffleColumns<1>(from + first, elements, block, elementSize, column);
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
