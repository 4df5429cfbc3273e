#include <tarnwickhdf/internal/CheckResult.h>
#include <tarnwickhdf/internal/ChunkFilters.h>
#include <tarnwickhdf/internal/ChunkTransfer.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <cstdint>

namespace tarnwick::hdf
{

namespace
{

constexpr std::uint64_t kLargestStoredChunk = 0xFFFFFFFFU;
const hsize_t kOrigin[H5S_MAX_RANK] = {0};

// Where the class tells nothing yet, the member is looked at itself: that takes several times as long.
bool IsMemberSelfContained(hid_t compound, unsigned int member)
{
    switch (H5Tget_member_class(compound, member))
    {
    case H5T_INTEGER:
    case H5T_FLOAT:
    case H5T_BITFIELD:
    case H5T_OPAQUE:
    case H5T_ENUM:
        return true;
    default:
        return IsSelfContained(ScopedType(H5Tget_member_type(compound, member)).get());
    }
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

} // namespace

bool IsSelfContained(hid_t type)
{
    switch (H5Tget_class(type))
    {
    case H5T_INTEGER:
    case H5T_FLOAT:
    case H5T_BITFIELD:
    case H5T_OPAQUE:
    case H5T_ENUM:
        return true;
    case H5T_STRING:
        return H5Tis_variable_str(type) == 0;
    case H5T_ARRAY:
        return IsSelfContained(ScopedType(H5Tget_super(type)).get());
    case H5T_COMPOUND:
        return AreMembersSelfContained(type);
    default:
        return false;
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

} // namespace tarnwick::hdf
