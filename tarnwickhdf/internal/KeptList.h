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

/// The one property list that a file keeps: first its access list, later the creation list of the array that was
/// created last. Many small arrays of one shape are created with one list so, which takes a fifth off the time of each.
class KeptList
{
public:
    explicit KeptList(ScopedPropertyList accessList) : m_list(std::move(accessList)) {}

private:
    ScopedPropertyList m_list;
    ArrayStorage m_storage;

    friend class ListLoan;
};

/// The list's way into a builder and back. The builder owns the list in between; a failure leaves a file with the list
/// that it had.
class ListLoan
{
public:
    /// `kept` may be null: a file that is closed keeps none.
    ListLoan(KeptList* kept, IDataSetBuilder& builder, const ArrayStorage& storage)
        : m_kept(kept), m_builder(builder), m_storage(storage), m_isLent(kept != nullptr && storage == kept->m_storage)
    {
        if (m_isLent)
        {
            builder.dcpl = kept->m_list.release();
        }
    }
    ListLoan(const ListLoan&) = delete;
    ListLoan& operator=(const ListLoan&) = delete;

    ~ListLoan()
    {
        if (m_isLent)
        {
            m_kept->m_list.reset(std::exchange(m_builder.dcpl, 0));
        }
    }

    bool IsLent() const { return m_isLent; }

    /// The array is created: the file keeps the builder's list.
    void Keep()
    {
        if (m_kept != nullptr && !m_isLent)
        {
            m_kept->m_list.reset(std::exchange(m_builder.dcpl, 0));
            m_kept->m_storage = m_storage;
        }
    }

private:
    KeptList* m_kept;
    IDataSetBuilder& m_builder;
    ArrayStorage m_storage;
    bool m_isLent;
};

} // namespace tarnwick::hdf
