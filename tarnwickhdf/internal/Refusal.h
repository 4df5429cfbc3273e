#pragma once

#include <tarnwickhdf/internal/CheckResult.h>

#include <stdexcept>

namespace tarnwick::hdf
{

/// Why an open data set isn't of a class's kind; no text if it is. Listings pass over a refused data set without the
/// cost of an exception.
struct Refusal
{
    const char* text = nullptr;
    bool isPlain = false; ///< Reported without a traceback.

    explicit operator bool() const noexcept { return text != nullptr; }
};

/// Reports a refusal, if it is one.
inline void Raise(const Refusal& refusal)
{
    if (refusal && refusal.isPlain)
    {
        throw std::runtime_error(refusal.text);
    }
    CheckResult(refusal ? -1 : 0, refusal.text);
}

} // namespace tarnwick::hdf
