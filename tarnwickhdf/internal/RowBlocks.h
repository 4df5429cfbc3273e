#pragma once

#include <tarnwickhdf/internal/ScopedId.h>
#include <tarnwickhdf/internal/StorageLayout.h>

#include <hdf5.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace tarnwick::hdf
{

/// What a table tells of its rows, and an array of one dimension of its elements.
struct StoredRows
{
    hid_t dataSet;
    hid_t type;             ///< The type of a row, as it is stored.
    bool areFixed;          ///< Whether a row is a number, or a compound of numbers and texts of fixed length.
    StorageTraits& storage; ///< What the handle remembers of the layout.
};

/// Moves selected rows of a table by blocks of adjacent rows. HDF5 moves each element of a point selection, and of a
/// hyperslab with gaps, by itself, at a cost that adjacent rows don't have: a block goes through a buffer of a fixed
/// size, from where each row is copied to its place. The result is that of the selection, byte for byte.
///
/// That holds where a row is the same bytes in the file and in memory and where every row that is read has bytes, and it pays where
/// HDF5 doesn't have to unpack the same chunk for block after block. Each operation tells whether it has moved all rows.
/// If not, because its selection isn't one that HDF5 accepts, isn't worth the blocks, or because a block couldn't be
/// moved (a block has rows that aren't selected, and their chunk may be damaged), the caller goes HDF5's way, for the
/// result or the words. Some rows may have been moved by then.
class RowBlocks
{
public:
    /// Rows that were never written matter to who reads.
    enum class Use
    {
        Read,
        Write
    };

    /// No block gets more than `largestBlock` rows.
    RowBlocks(const StoredRows& table, hid_t memoryType, size_t selectedRows, hsize_t largestBlock, Use use);

    /// Whether selected rows of the table lie close enough together to be worth the questions that the constructor
    /// asks.
    static bool AreClose(const std::vector<hsize_t>& selection, hid_t memoryType);

    /// Whether every `stride`-th row may be worth those questions: HDF5 is slow in chunks that its cache can't hold, and
    /// elsewhere as fast as blocks.
    static bool MayPick(const StoredRows& table, size_t count, hsize_t stride, hid_t memoryType);

    /// Table row fileStart + i goes to buffer row selection[i].
    bool ReadRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, void* buffer);

    /// Buffer row selection[i] goes to table row fileStart + i.
    bool WriteRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, const void* buffer);

    /// Table row selection[i] goes to buffer row i.
    bool ReadRows(const std::vector<hsize_t>& selection, void* buffer);

    /// Table row start + i * stride goes to buffer row i.
    bool ReadEvery(hsize_t start, hsize_t stride, size_t count, void* buffer);

    /// The rows of the table; 0 if nothing can be moved.
    hsize_t RowsInFile() const { return m_rowsInFile; }

private:
    bool IsRun(hsize_t fileStart, size_t count) const;
    bool PrepareBlock();
    bool SelectRows(hsize_t start, hsize_t count);
    bool ReadBlock(hsize_t start, hsize_t count);
    bool WriteBlock(hsize_t start, hsize_t count);

    hid_t m_dataSet;
    hid_t m_memoryType;
    size_t m_rowSize = 0;
    hsize_t m_rowsInFile = 0;
    hsize_t m_rowsInBlock = 0;
    ScopedSpace m_fileSpace;
    ScopedSpace m_memorySpace;
    std::unique_ptr<char[]> m_block;
};

} // namespace tarnwick::hdf
