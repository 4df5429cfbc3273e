#pragma once

#include <tarnwickhdf/export.h>

#include <string>

namespace tarnwick::hdf
{

/// Root of every class that wraps an HDF5 handle. It has no state: copying and assigning it copies nothing.
///
/// How failures arrive: a failure is an exception; an operation that answers instead says so. A failed HDF5 call gives
/// `std::runtime_error` whose `what()` is the operation's message, a colon, a line feed and HDF5's traceback: three lines
/// for each frame, from the HDF5 function that the library called down to the deepest internal one,
///
///     #0: in func H5Dopen1(): not found
///       major: Dataset
///       minor: Object not found
///
/// A broken rule of the library itself has the same shape, as a rule with an empty traceback; where an operation says
/// "throws plain", `what()` is the message alone.
class TARNWICKHDF_EXPORT IH5Object
{
public:
    /// Does nothing.
    IH5Object();
    /// Copies no state.
    IH5Object(const IH5Object& other);
    /// Assigns nothing and returns this object.
    IH5Object& operator=(const IH5Object& other);
    /// Does nothing. It is the one virtual operation.
    virtual ~IH5Object();

private:
    static std::string ObtainTracebackErrors();

    friend void CheckResult(int result, const std::string& message);
    friend void CheckResult(long long result, const std::string& message);
};

/// Asks HDF5 to free the memory on its internal free lists. May be called at any time, with or without open files.
/// @throws std::runtime_error "Error when trying to garbage collect HDF5" with traceback if HDF5 fails.
TARNWICKHDF_EXPORT void GarbageCollect();

} // namespace tarnwick::hdf
