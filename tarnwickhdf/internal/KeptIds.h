#pragma once

#include <tarnwickhdf/internal/IDataSetBuilder.h>
#include <tarnwickhdf/internal/ScopedId.h>

#include <hdf5.h>

#include <cstddef>
#include <utility>

namespace tarnwick::hdf
{

/// What decides the creation list of an array.
struct ArrayStorage
{
    int rank = 0;
    hsize_t dimensions[2] = {0, 0};
    size_t elementSize = 0;
    int compression = 0;

    bool operator==(const ArrayStorage& other) const
    {
        return rank == other.rank && dimensions[0] == other.dimensions[0] && dimensions[1] == other.dimensions[1] &&
               elementSize == other.elementSize && compression == other.compression;
    }
};

/// Ids that an open file keeps for its next use of them. Many small arrays of one shape, and many texts, are written
/// with the same few ids so: making them anew takes a fifth of the time of an array and a third of that of an
/// attribute.
struct KeptIds
{
    ScopedPropertyList arrayList;            ///< The creation list of the array that was created last.
    ArrayStorage arrayStorage;               ///< What that list was made for.
    ScopedSpace textSpace;                   ///< The space of every text attribute.
    ScopedType textType;                     ///< The type of the text attribute that was set last.
    H5T_cset_t textCharset = H5T_CSET_ERROR; ///< The character set of that type.
};

/// The creation list's way into a builder and back. The builder owns the list in between; a failure leaves a file with
/// the list that it had.
class ListLoan
{
public:
    /// `kept` may be null: a file that is closed keeps none.
    ListLoan(KeptIds* kept, IDataSetBuilder& builder, const ArrayStorage& storage)
        : m_kept(kept), m_builder(builder), m_storage(storage),
          m_isLent(kept != nullptr && storage == kept->arrayStorage)
    {
        if (m_isLent)
        {
            builder.dcpl = kept->arrayList.release();
        }
    }
    ListLoan(const ListLoan&) = delete;
    ListLoan& operator=(const ListLoan&) = delete;

    ~ListLoan()
    {
        if (m_isLent)
        {
            m_kept->arrayList.reset(std::exchange(m_builder.dcpl, 0));
        }
    }

    bool IsLent() const { return m_isLent; }

    /// The array is created: the file keeps the builder's list.
    void Keep()
    {
        if (m_kept != nullptr && !m_isLent)
        {
            m_kept->arrayList.reset(std::exchange(m_builder.dcpl, 0));
            m_kept->arrayStorage = m_storage;
        }
    }

private:
    KeptIds* m_kept;
    IDataSetBuilder& m_builder;
    ArrayStorage m_storage;
    bool m_isLent;
};

} // namespace tarnwick::hdf
