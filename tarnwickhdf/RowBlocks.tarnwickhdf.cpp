#include <tarnwickhdf/internal/DataTypeLookup.h>
#include <tarnwickhdf/internal/QuietErrors.h>
#include <tarnwickhdf/internal/RowBlocks.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <optional>
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
// Reading so many bytes in a block takes about as long as HDF5 takes for a row of its own.
constexpr hsize_t kBytesWorthARow = 4096;

// A row at or behind the end, or one too large for the question, sets the highest bit of the sum of all bits: that
// takes a fraction of the time of a comparison each. Where there could be rows up to there the answer is no.
bool AreAllBelow(const std::vector<hsize_t>& rows, hsize_t end)
{
    hsize_t bits = 0;
    for (const hsize_t row : rows)
    {
        bits |= (end - 1 - row) | row;
    }
    return bits >> 63U == 0;
}

// How `count` rows of a block go to the rows of a buffer that `places` names. A row is mostly short, and where its size
// is known to the compiler, a copy takes a fraction of a call of memcpy: 0 stands for a size that isn't.
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

// The other direction. Stores wait for nobody, but a scattered row comes from memory only when it is asked for, so rows
// are asked for ahead.
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

// Rows of a block at equal distances, packed.
template <size_t Size>
struct Every
{
    static void Move(const char* block, char* rows, hsize_t stride, size_t count, size_t rowSize)
    {
        const size_t size = Size != 0 ? Size : rowSize;
        for (size_t i = 0; i < count; ++i)
        {
            std::memcpy(rows + i * size, block + i * stride * size, size);
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

// Unfiltered chunks are as large in the file as in HDF5's cache. One that was never written tells nothing.
bool MayHaveLargeChunks(StorageTraits& remembered, hid_t dataSet)
{
    if (Has(remembered, StorageTraits::Known))
    {
        return Has(remembered, StorageTraits::LargeChunks);
    }
    if (!Has(remembered, StorageTraits::NotLarge))
    {
        const std::optional<std::uint64_t> stored = StoredBytesOfFirstChunk(dataSet);
        const bool isLarge = stored && (*stored == 0 || *stored > kChunkCacheBytes);
        remembered = isLarge ? remembered : With(remembered, StorageTraits::NotLarge);
    }
    return !Has(remembered, StorageTraits::NotLarge);
}

// A single block unpacks each chunk once, as HDF5 does, and what is written needs no bytes in the file yet.
bool AreWorthBlocks(const StoredRows& table, size_t rowSize, bool isSingle, RowBlocks::Use use)
{
    if (isSingle && use == RowBlocks::Use::Write)
    {
        return true;
    }
    const StorageTraits storage = AskOnce(table.storage, table.dataSet, rowSize);
    return (isSingle || Has(storage, StorageTraits::CheapByBlocks)) &&
           (use == RowBlocks::Use::Write || Has(storage, StorageTraits::FillsUnwritten));
}

hsize_t RowsOf(const ScopedSpace& space)
{
    hsize_t dimensions[H5S_MAX_RANK] = {0};
    const bool isFlat = H5Sget_simple_extent_dims(space.get(), dimensions, nullptr) == 1;
    return isFlat ? dimensions[0] : 0;
}

// The places of a selection, block by block of the table from row `least` on: `ends` tells where the places of each
// block end. Sorting within a block wouldn't make it cheaper.
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

RowBlocks::RowBlocks(const StoredRows& table, hid_t memoryType, size_t selectedRows, hsize_t largestBlock, Use use)
    : m_dataSet(table.dataSet), m_memoryType(memoryType)
{
    if (selectedRows < kFewestRows || !table.areFixed)
    {
        return;
    }
    const size_t rowSize = H5Tget_size(memoryType);
    if (rowSize == 0 || rowSize > kBlockBytes)
    {
        return;
    }
    const bool isSingle = largestBlock <= kBlockBytes / rowSize;
    if (!AreWorthBlocks(table, rowSize, isSingle, use) || !IsSameType(table.type, memoryType))
    {
        return;
    }
    m_fileSpace.reset(H5Dget_space(m_dataSet));
    m_rowsInFile = RowsOf(m_fileSpace);
    m_rowSize = rowSize;
    m_rowsInBlock = std::min<hsize_t>(kBlockBytes / rowSize, std::max<hsize_t>(largestBlock, 1));
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

bool RowBlocks::MayPick(const StoredRows& table, size_t count, hsize_t stride, hid_t memoryType)
{
    if (stride < 2 || stride > kBytesWorthARow || count < kFewestRows)
    {
        return false;
    }
    if (!MayHaveLargeChunks(table.storage, table.dataSet))
    {
        return false;
    }
    const size_t rowSize = std::max<size_t>(H5Tget_size(memoryType), 1);
    return stride <= kBytesWorthARow / rowSize &&
           Has(AskOnce(table.storage, table.dataSet, rowSize), StorageTraits::LargeChunks);
}

bool RowBlocks::ReadRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, void* buffer)
{
    if (!IsRun(fileStart, selection.size()) || !AreAllBelow(selection, memoryRows) || !PrepareBlock())
    {
        return false;
    }
    auto* rows = static_cast<char*>(buffer);
    const auto move = MoveOf<Scatter>(m_rowSize, ShortRows());
    for (size_t done = 0; done < selection.size();)
    {
        const size_t count = std::min<size_t>(selection.size() - done, m_rowsInBlock);
        if (!ReadBlock(fileStart + done, count))
        {
            return false;
        }
        move(m_block.get(), rows, selection.data() + done, count, m_rowSize);
        done += count;
    }
    return true;
}

bool RowBlocks::WriteRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows,
                         const void* buffer)
{
    if (!IsRun(fileStart, selection.size()) || !AreAllBelow(selection, memoryRows) || !PrepareBlock())
    {
        return false;
    }
    const auto* rows = static_cast<const char*>(buffer);
    const auto move = MoveOf<Gather>(m_rowSize, ShortRows());
    for (size_t done = 0; done < selection.size();)
    {
        const size_t count = std::min<size_t>(selection.size() - done, m_rowsInBlock);
        move(m_block.get(), rows, selection.data() + done, count, m_rowSize);
        if (!WriteBlock(fileStart + done, count))
        {
            return false;
        }
        done += count;
    }
    return true;
}

bool RowBlocks::ReadRows(const std::vector<hsize_t>& selection, void* buffer)
{
    if (selection.empty() || !AreAllBelow(selection, m_rowsInFile) || !PrepareBlock())
    {
        return false;
    }
    const auto [least, most] = std::minmax_element(selection.begin(), selection.end());
    const PlacesByBlock divided = DivideIntoBlocks(selection, *least, *most, m_rowsInBlock);
    auto* rows = static_cast<char*>(buffer);
    size_t done = 0;
    for (size_t block = 0; block < divided.ends.size(); ++block)
    {
        const hsize_t start = *least + block * m_rowsInBlock;
        if (done < divided.ends[block] && !ReadBlock(start, std::min(m_rowsInBlock, *most + 1 - start)))
        {
            return false;
        }
        for (; done < divided.ends[block]; ++done)
        {
            const size_t place = divided.places[done];
            std::memcpy(rows + place * m_rowSize, m_block.get() + (selection[place] - start) * m_rowSize, m_rowSize);
        }
    }
    return true;
}

bool RowBlocks::ReadEvery(hsize_t start, hsize_t stride, size_t count, void* buffer)
{
    const bool fits = start < m_rowsInFile && count - 1 <= (m_rowsInFile - 1 - start) / stride;
    if (!fits || !PrepareBlock())
    {
        return false;
    }
    auto* rows = static_cast<char*>(buffer);
    const auto move = MoveOf<Every>(m_rowSize, ShortRows());
    const hsize_t end = start + (count - 1) * stride + 1;
    for (size_t done = 0; done < count;)
    {
        const hsize_t first = start + done * stride;
        const hsize_t inBlock = std::min(m_rowsInBlock, end - first);
        const size_t picked = (inBlock - 1) / stride + 1;
        if (!ReadBlock(first, inBlock))
        {
            return false;
        }
        move(m_block.get(), rows + done * m_rowSize, stride, picked, m_rowSize);
        done += picked;
    }
    return true;
}

bool RowBlocks::IsRun(hsize_t fileStart, size_t count) const
{
    return count > 0 && fileStart <= m_rowsInFile && count <= m_rowsInFile - fileStart;
}

// Nothing is allocated for a selection that ends on HDF5's way.
bool RowBlocks::PrepareBlock()
{
    m_memorySpace.reset(H5Screate_simple(1, &m_rowsInBlock, nullptr));
    m_block.reset(new char[m_rowsInBlock * m_rowSize]);
    return m_memorySpace.get() > 0;
}

// Without a selection of its own a block would move the rows of the one before.
bool RowBlocks::SelectRows(hsize_t start, hsize_t count)
{
    const hsize_t first = 0;
    if (H5Sselect_hyperslab(m_fileSpace.get(), H5S_SELECT_SET, &start, nullptr, &count, nullptr) < 0)
    {
        return false;
    }
    // The memory space begins with all of a block selected, and only the last of several blocks is shorter.
    return count == m_rowsInBlock ||
           H5Sselect_hyperslab(m_memorySpace.get(), H5S_SELECT_SET, &first, nullptr, &count, nullptr) >= 0;
}

bool RowBlocks::ReadBlock(hsize_t start, hsize_t count)
{
    const QuietErrors quiet;
    return SelectRows(start, count) &&
           H5Dread(m_dataSet, m_memoryType, m_memorySpace.get(), m_fileSpace.get(), H5P_DEFAULT, m_block.get()) >= 0;
}

bool RowBlocks::WriteBlock(hsize_t start, hsize_t count)
{
    const QuietErrors quiet;
    return SelectRows(start, count) &&
           H5Dwrite(m_dataSet, m_memoryType, m_memorySpace.get(), m_fileSpace.get(), H5P_DEFAULT, m_block.get()) >= 0;
}

} // namespace tarnwick::hdf
