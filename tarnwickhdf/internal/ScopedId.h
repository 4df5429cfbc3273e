#pragma once

#include <hdf5.h>

namespace tarnwick::hdf
{

/// The one owner of an HDF5 id inside a function: closes it on every way out, unless it was released to another owner.
/// Moving leaves nothing behind. A result below zero may be put in as it comes from HDF5: it is never closed.
template <herr_t (*CloseId)(hid_t)>
class ScopedId
{
public:
    explicit ScopedId(hid_t id = -1) noexcept : m_id(id) {}
    ScopedId(ScopedId&& other) noexcept : m_id(other.release()) {}
    ScopedId& operator=(ScopedId&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ScopedId(const ScopedId&) = delete;
    ScopedId& operator=(const ScopedId&) = delete;
    ~ScopedId() { reset(); }

    hid_t get() const noexcept { return m_id; }

    hid_t release() noexcept
    {
        const hid_t id = m_id;
        m_id = -1;
        return id;
    }

    void reset(hid_t id = -1) noexcept
    {
        if (m_id > 0)
        {
            CloseId(m_id);
        }
        m_id = id;
    }

private:
    hid_t m_id;
};

using ScopedFile = ScopedId<H5Fclose>;
using ScopedGroup = ScopedId<H5Gclose>;
using ScopedDataSet = ScopedId<H5Dclose>;
using ScopedSpace = ScopedId<H5Sclose>;
using ScopedType = ScopedId<H5Tclose>;
using ScopedAttribute = ScopedId<H5Aclose>;
using ScopedPropertyList = ScopedId<H5Pclose>;

/// Gives the copy of a node its share of an id; both owners close it. What HDF5 can't share, because the id is gone for
/// example, comes out as -1: the copy is invalid, and its source keeps the id alone.
inline hid_t ShareId(hid_t id) noexcept
{
    return id > 0 && H5Iinc_ref(id) < 0 ? -1 : id;
}

} // namespace tarnwick::hdf
