#include <tarnwickhdf/internal/RowBlocks.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <utility>

namespace tarnwick::hdf
{

namespace
{

// Below this number a selection isn't worth the questions about the table.
constexpr size_t kFewestRows = 256;
constexpr size_t kBlockBytes = size_t{512} << 10U;
constexpr size_t kRowsAhead = 16;
using ShortRows = std::make_index_sequence<16>;
// The default chunk cache: a chunk that fits is unpacked once for the blocks that it serves.
constexpr std::uint64_t kChunkCacheBytes = std::uint64_t{1} << 20U;
// Reading so many bytes in a block takes about as long as HDF5 takes for a row of its own.
constexpr hsize_t kBytesWorthARow = 2048;

bool IsFixedMember(hid_t compound, unsigned int index)
{
    switch (H5Tget_member_class(compound, index))
    {
    case H5T_INTEGER:
    case H5T_FLOAT:
    case H5T_BITFIELD:
    case H5T_OPAQUE:
    case H5T_ENUM:
        return true;
    case H5T_STRING:
    {
        const ScopedType member(H5Tget_member_type(compound, index));
        return H5Tis_variable_str(member.get()) == 0;
    }
    default:
        return false;
    }
}

// Members whose bytes in memory aren't those in the file, or may not be, are left to HDF5.
bool AreRowsTheSameBytes(hid_t storedType, hid_t memoryType)
{
    if (H5Tget_class(storedType) != H5T_COMPOUND || H5Tequal(storedType, memoryType) <= 0)
    {
        return false;
    }
    const int members = H5Tget_nmembers(storedType);
    for (int i = 0; i < members; ++i)
    {
        if (!IsFixedMember(storedType, static_cast<unsigned int>(i)))
        {
            return false;
        }
    }
    return members > 0;
}

bool AreBlocksCheap(hid_t dataSet, size_t rowSize)
{
    const ScopedPropertyList list(H5Dget_create_plist(dataSet));
    if (H5Pget_layout(list.get()) != H5D_CHUNKED)
    {
        return H5Pget_layout(list.get()) == H5D_CONTIGUOUS && H5Pget_external_count(list.get()) == 0;
    }
    hsize_t chunk = 0;
    return H5Pget_nfilters(list.get()) == 0 ||
           (H5Pget_chunk(list.get(), 1, &chunk) == 1 && chunk * rowSize <= kChunkCacheBytes);
}

// A row at or behind the end, or one too large for the question, sets the highest bit of the sum of all bits: that takes a
// fraction of the time of a comparison each. Where there could be rows up to there the answer is no.
bool AreAllBelow(const std::vector<hsize_t>& rows, hsize_t end)
{
    hsize_t bits = 0;
    for (const hsize_t row : rows)
    {
        bits |= (end - 1 - row) | row;
    }
    return bits >> 63U == 0;
}

// How `count` rows of a block go to the rows of a buffer that `places` names. A row is mostly short, and where its size is
// known to the compiler, a copy takes a fraction of a call of memcpy: 0 stands for a size that isn't.
template <size_t Size>
struct Scatter
{
    static void Move(const char* block, char* rows, const hsize_t* places, size_t count, size_t rowSize)
    {
        const size_t size = Size != 0 ? Size : rowSize;
        for (size_t i = 0; i < count; ++i)
        {
            std::memcpy(rows + places[i] * size, block + i * size, size);
        }
    }
};

// The other direction. Stores wait for nobody, but a scattered row comes from memory only when it is asked for, so rows are
// asked for ahead.
template <size_t Size>
struct Gather
{
    static void Move(char* block, const char* rows, const hsize_t* places, size_t count, size_t rowSize)
    {
        const size_t size = Size != 0 ? Size : rowSize;
        for (size_t i = 0; i < count; ++i)
        {
            const char* const ahead = rows + places[std::min(i + kRowsAhead, count - 1)] * size;
            __builtin_prefetch(ahead);
            __builtin_prefetch(ahead + size - 1);
            std::memcpy(block + i * size, rows + places[i] * size, size);
        }
    }
};

template <template <size_t> class Way, size_t... Words>
auto MoveOf(size_t rowSize, std::index_sequence<Words...> /*words*/)
{
    constexpr size_t word = 8;
    constexpr decltype(&Way<0>::Move) moves[] = {&Way<(Words + 1) * word>::Move...};
    return rowSize % word == 0 && rowSize <= sizeof...(Words) * word ? moves[rowSize / word - 1] : &Way<0>::Move;
}

// The places of a selection, block by block of the table from row `least` on: `ends` tells where the places of each block
// end. Sorting within a block wouldn't make it cheaper.
struct PlacesByBlock
{
    std::vector<size_t> places;
    std::vector<size_t> ends;
};

PlacesByBlock DivideIntoBlocks(const std::vector<hsize_t>& selection, hsize_t least, hsize_t most, hsize_t rowsInBlock)
{
    PlacesByBlock divided{std::vector<size_t>(selection.size()), std::vector<size_t>((most - least) / rowsInBlock + 1)};
    for (const hsize_t row : selection)
    {
        ++divided.ends[(row - least) / rowsInBlock];
    }
    std::partial_sum(divided.ends.begin(), divided.ends.end(), divided.ends.begin());
    for (size_t place = selection.size(); place-- > 0;)
    {
        divided.places[--divided.ends[(selection[place] - least) / rowsInBlock]] = place;
    }
    std::rotate(divided.ends.begin(), divided.ends.begin() + 1, divided.ends.end());
    divided.ends.back() = selection.size();
    return divided;
}

} // namespace

RowBlocks::RowBlocks(hid_t dataSet, hid_t storedType, hid_t memoryType, size_t selectedRows, hsize_t largestBlock)
    : m_dataSet(dataSet), m_memoryType(memoryType)
{
    if (selectedRows < kFewestRows || !AreRowsTheSameBytes(storedType, memoryType))
    {
        return;
    }
    const size_t rowSize = H5Tget_size(memoryType);
    m_fileSpace.reset(H5Dget_space(dataSet));
    const bool isFlat = H5Sget_simple_extent_ndims(m_fileSpace.get()) == 1 &&
                        H5Sget_simple_extent_dims(m_fileSpace.get(), &m_rowsInFile, nullptr) == 1;
    if (!isFlat || rowSize == 0 || rowSize > kBlockBytes)
    {
        return;
    }
    // A single block unpacks each chunk once, as HDF5 does.
    if (largestBlock > kBlockBytes / rowSize && !AreBlocksCheap(dataSet, rowSize))
    {
        return;
    }
    m_rowsInBlock = std::min<hsize_t>(kBlockBytes / rowSize, std::max<hsize_t>(largestBlock, 1));
    m_memorySpace.reset(H5Screate_simple(1, &m_rowsInBlock, nullptr));
    m_block.reset(new char[m_rowsInBlock * rowSize]);
    m_rowSize = m_memorySpace.get() > 0 ? rowSize : 0;
}

bool RowBlocks::AreClose(const std::vector<hsize_t>& selection, hid_t memoryType)
{
    if (selection.size() < kFewestRows)
    {
        return false;
    }
    const auto [least, most] = std::minmax_element(selection.begin(), selection.end());
    return (*most - *least) / selection.size() <= kBytesWorthARow / std::max<size_t>(H5Tget_size(memoryType), 1);
}

bool RowBlocks::ReadRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, void* buffer,
                        herr_t& status)
{
    if (!IsRun(fileStart, selection.size()) || !AreAllBelow(selection, memoryRows))
    {
        return false;
    }
    auto* rows = static_cast<char*>(buffer);
    const auto move = MoveOf<Scatter>(m_rowSize, ShortRows());
    status = 0;
    for (size_t done = 0; done < selection.size() && status >= 0;)
    {
        const size_t count = std::min<size_t>(selection.size() - done, m_rowsInBlock);
        status = ReadBlock(fileStart + done, count);
        status >= 0 ? move(m_block.get(), rows, selection.data() + done, count, m_rowSize) : void();
        done += count;
    }
    return true;
}

bool RowBlocks::WriteRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows,
                         const void* buffer, herr_t& status)
{
    if (!IsRun(fileStart, selection.size()) || !AreAllBelow(selection, memoryRows))
    {
        return false;
    }
    const auto* rows = static_cast<const char*>(buffer);
    const auto move = MoveOf<Gather>(m_rowSize, ShortRows());
    status = 0;
    for (size_t done = 0; done < selection.size() && status >= 0;)
    {
        const size_t count = std::min<size_t>(selection.size() - done, m_rowsInBlock);
        move(m_block.get(), rows, selection.data() + done, count, m_rowSize);
        SelectRows(fileStart + done, count);
        status = H5Dwrite(m_dataSet, m_memoryType, m_memorySpace.get(), m_fileSpace.get(), H5P_DEFAULT, m_block.get());
        done += count;
    }
    return true;
}

bool RowBlocks::ReadRows(const std::vector<hsize_t>& selection, void* buffer, herr_t& status)
{
    if (!IsPossible() || selection.empty() || !AreAllBelow(selection, m_rowsInFile))
    {
        return false;
    }
    const auto [least, most] = std::minmax_element(selection.begin(), selection.end());
    const PlacesByBlock divided = DivideIntoBlocks(selection, *least, *most, m_rowsInBlock);
    auto* rows = static_cast<char*>(buffer);
    status = 0;
    size_t done = 0;
    for (size_t block = 0; block < divided.ends.size() && status >= 0; ++block)
    {
        const hsize_t start = *least + block * m_rowsInBlock;
        if (done < divided.ends[block])
        {
            status = ReadBlock(start, std::min(m_rowsInBlock, *most + 1 - start));
        }
        for (; done < divided.ends[block] && status >= 0; ++done)
        {
            const size_t place = divided.places[done];
            std::memcpy(rows + place * m_rowSize, m_block.get() + (selection[place] - start) * m_rowSize, m_rowSize);
        }
    }
    return true;
}

bool RowBlocks::IsRun(hsize_t fileStart, size_t count) const
{
    return IsPossible() && count > 0 && fileStart <= m_rowsInFile && count <= m_rowsInFile - fileStart;
}

void RowBlocks::SelectRows(hsize_t start, hsize_t count)
{
    const hsize_t first = 0;
    H5Sselect_hyperslab(m_fileSpace.get(), H5S_SELECT_SET, &start, nullptr, &count, nullptr);
    // The memory space begins with all of a block selected, and only the last of several blocks is shorter.
    if (count < m_rowsInBlock)
    {
        H5Sselect_hyperslab(m_memorySpace.get(), H5S_SELECT_SET, &first, nullptr, &count, nullptr);
    }
}

herr_t RowBlocks::ReadBlock(hsize_t start, hsize_t count)
{
    SelectRows(start, count);
    return H5Dread(m_dataSet, m_memoryType, m_memorySpace.get(), m_fileSpace.get(), H5P_DEFAULT, m_block.get());
}

} // namespace tarnwick::hdf
