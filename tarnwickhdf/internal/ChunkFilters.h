#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

struct libdeflate_decompressor;

namespace tarnwick::hdf
{

/// Bytes on the heap without a first value.
using Bytes = std::unique_ptr<char[]>;

/// Null where there isn't so much memory: chunks are large, and HDF5 has a way without them.
Bytes TryAllocate(size_t size);

/// The elements' first bytes, then their second ones, and so on, as HDF5's filter of that name orders them; what is left
/// behind the last whole element stays where it is. `from` and `to` have `size` bytes and don't overlap.
void Shuffle(const char* from, char* to, size_t size, size_t elementSize);

/// The way back.
void Unshuffle(const char* from, char* to, size_t size, size_t elementSize);

struct PackedChunk
{
    Bytes bytes;
    size_t size = 0; ///< 0 where memory was lacking.
};

/// What HDF5's filters shuffle and deflate make of a chunk, or something that they read as the same. `level` is what the
/// deflate filter of the data set records, from 1 to 9.
PackedChunk ShuffleAndDeflate(const char* chunk, size_t size, size_t elementSize, int level);

/// The filters of a data set that ChunkUnpacker undoes, shuffle before deflate where there are both.
struct ChunkFilters
{
    bool hasShuffle = false;
    bool hasDeflate = false;
    size_t elementSize = 0; ///< As shuffle has it.
};

/// Undoes shuffle and deflate of one chunk after the other, and keeps to its buffers whatever a chunk holds.
class ChunkUnpacker
{
public:
    /// For chunks of `size` bytes when unpacked.
    ChunkUnpacker(const ChunkFilters& filters, size_t size);

    /// False where memory was lacking.
    bool IsReady() const;

    /// Unpacks what was read of a chunk; false if it isn't a chunk of the size. A bit of `skipped` says for each filter,
    /// counted from the first, that it wasn't applied.
    bool Unpack(const char* packed, size_t packedSize, std::uint32_t skipped, char* chunk);

private:
    bool Inflate(const char* packed, size_t packedSize, char* to);

    struct Free
    {
        void operator()(libdeflate_decompressor* decompressor) const;
    };

    ChunkFilters m_filters;
    size_t m_size;
    std::unique_ptr<libdeflate_decompressor, Free> m_decompressor;
    Bytes m_inflated;
};

} // namespace tarnwick::hdf
