#pragma once

#include <stdexcept>
#include <string>

/// Ends an example whose file gave back something else than it was given.
inline void Check(bool isRight, const std::string& what)
{
    if (!isRight)
    {
        throw std::runtime_error("wrong value: " + what);
    }
}
