#include <tarnwickhdf/IH5Object.h>
#include <tarnwickhdf/internal/CheckResult.h>

#include <hdf5.h>

#include <exception>
#include <ostream>
#include <sstream>
#include <stdexcept>

namespace tarnwick::hdf
{

namespace
{

void WriteOwnedText(std::ostream& out, char* text)
{
    if (text != nullptr)
    {
        out << text;
        H5free_memory(text);
    }
}

void WriteText(std::ostream& out, const char* text)
{
    if (text != nullptr)
    {
        out << text;
    }
}

// No exception may cross HDF5's own frames: a frame that can't be written ends the walk as a failed one.
herr_t WriteFrame(int number, H5E_error1_t* frame, void* stream)
{
    try
    {
        std::ostream& out = *static_cast<std::ostream*>(stream);
        out << "#" << number << ": in func ";
        WriteText(out, frame->func_name);
        out << "(): ";
        WriteText(out, frame->desc);
        out << "\n  major: ";
        WriteOwnedText(out, H5Eget_major(frame->maj_num));
        out << "\n  minor: ";
        WriteOwnedText(out, H5Eget_minor(frame->min_num));
        out << "\n";
        return 0;
    }
    catch (const std::exception&)
    {
        return -1;
    }
}

} // namespace

IH5Object::IH5Object() = default;
IH5Object::IH5Object(const IH5Object&) = default;
IH5Object& IH5Object::operator=(const IH5Object&) = default;
IH5Object::~IH5Object() = default;

std::string IH5Object::ObtainTracebackErrors()
{
    std::ostringstream traceback;
    if (H5Ewalk1(H5E_WALK_DOWNWARD, &WriteFrame, static_cast<std::ostream*>(&traceback)) < 0)
    {
        traceback << "<internal error while walking HDF5 traceback>";
    }
    return traceback.str();
}

void CheckResult(int result, const std::string& message)
{
    CheckResult(static_cast<long long>(result), message);
}

void CheckResult(long long result, const std::string& message)
{
    if (result < 0)
    {
        throw std::runtime_error(message + ":\n" + IH5Object::ObtainTracebackErrors());
    }
}

void GarbageCollect()
{
    CheckResult(H5garbage_collect(), "Error when trying to garbage collect HDF5");
}

} // namespace tarnwick::hdf
