#pragma once

#include <hdf5.h>

namespace tarnwick::hdf
{

/// Keeps HDF5's automatic error printing still for the time of its life: for calls whose failure is an answer. Where
/// nothing is printed anyway, as after the first open of a file, that costs two questions.
class QuietErrors
{
public:
    QuietErrors() noexcept
    {
        H5Eauto_is_v2(H5E_DEFAULT, &m_isSecondForm);
        if (m_isSecondForm != 0)
        {
            H5Eget_auto2(H5E_DEFAULT, &m_secondForm, &m_data);
        }
        else
        {
            H5Eget_auto1(&m_firstForm, &m_data);
        }
        Set(nullptr, nullptr, nullptr);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() { Set(m_firstForm, m_secondForm, m_data); }

private:
    bool Prints() const noexcept { return m_isSecondForm != 0 ? m_secondForm != nullptr : m_firstForm != nullptr; }

    void Set(H5E_auto1_t firstForm, H5E_auto2_t secondForm, void* data) noexcept
    {
        if (!Prints())
        {
            return;
        }
        if (m_isSecondForm != 0)
        {
            H5Eset_auto2(H5E_DEFAULT, secondForm, data);
        }
        else
        {
            H5Eset_auto1(firstForm, data);
        }
    }

    unsigned int m_isSecondForm = 0;
    H5E_auto1_t m_firstForm = nullptr;
    H5E_auto2_t m_secondForm = nullptr;
    void* m_data = nullptr;
};

} // namespace tarnwick::hdf
