#pragma once

#include <tarnwickhdf/internal/ScopedId.h>

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
    hid_t type;    ///< The type of a row, as it is stored.
    bool areFixed; ///< Whether a row is a number, or a compound of numbers and texts of fixed length.
};

/// Moves selected rows of a table by blocks of adjacent rows. HDF5 moves each element of a point selection, and of a
/// hyperslab with gaps, by itself, at a cost that adjacent rows don't have: a block goes through a buffer of a fixed
/// size, from where each row is copied to its place. The result is that of the selection, byte for byte.
///
/// That holds where a row is the same bytes in the file and in memory, and pays where HDF5 doesn't have to unpack the
/// same chunk for block after block: IsPossible says so. Each operation gives false, and has moved nothing, if its
/// selection isn't one that HDF5 accepts or isn't worth the blocks: the caller goes HDF5's way then, for the result or
/// the words. A status below zero must be judged while the object lives: its end clears HDF5's error stack.
class RowBlocks
{
public:
    /// No block gets more than `largestBlock` rows.
    RowBlocks(const StoredRows& table, hid_t memoryType, size_t selectedRows, hsize_t largestBlock);

    /// Whether selected rows of the table lie close enough together to be worth the questions that the constructor
    /// asks.
    static bool AreClose(const std::vector<hsize_t>& selection, hid_t memoryType);

    /// Whether every `stride`-th of `rows` rows may be worth those questions: HDF5 is slow in chunks that its cache
    /// can't hold, and elsewhere as fast as blocks.
    static bool MayPick(hsize_t rows, hsize_t stride, hid_t memoryType);

    bool IsPossible() const { return m_rowSize != 0; }

    /// Table row fileStart + i goes to buffer row selection[i].
    bool ReadRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, void* buffer,
                 herr_t& status);

    /// Buffer row selection[i] goes to table row fileStart + i.
    bool WriteRun(hsize_t fileStart, const std::vector<hsize_t>& selection, size_t memoryRows, const void* buffer,
                  herr_t& status);

    /// Table row selection[i] goes to buffer row i.
    bool ReadRows(const std::vector<hsize_t>& selection, void* buffer, herr_t& status);

    /// Table row start + i * stride goes to buffer row i.
    bool ReadEvery(hsize_t start, hsize_t stride, size_t count, void* buffer, herr_t& status);

    /// The rows of the table.
    hsize_t RowsInFile() const { return m_rowsInFile; }

private:
    bool IsRun(hsize_t fileStart, size_t count) const;
    herr_t SelectRows(hsize_t start, hsize_t count);
    herr_t ReadBlock(hsize_t start, hsize_t count);
    herr_t WriteBlock(hsize_t start, hsize_t count);

    hid_t m_dataSet;
    hid_t m_memoryType;
    size_t m_rowSize = 0;
    hsize_t m_rowsInFile = 0;
    hsize_t m_rowsInBlock = 0;
    bool m_hasLargeChunks = false;
    ScopedSpace m_fileSpace;
    ScopedSpace m_memorySpace;
    std::unique_ptr<char[]> m_block;
};

} // namespace tarnwick::hdf
