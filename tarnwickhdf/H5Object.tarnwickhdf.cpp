#include <tarnwickhdf/IH5Object.h>
#include <tarnwickhdf/internal/CheckResult.h>

#include <hdf5.h>

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

namespace tarnwick::hdf
{

namespace
{

void AppendOwnedText(std::string& traceback, char* text)
{
    const std::unique_ptr<char, herr_t (*)(void*)> owner(text, &H5free_memory);
    if (text != nullptr)
    {
        traceback += text;
    }
}

void AppendText(std::string& traceback, const char* text)
{
    if (text != nullptr)
    {
        traceback += text;
    }
}

// No exception may cross HDF5's own frames: a frame that can't be written ends the walk as a failed one.
herr_t AppendFrame(int number, H5E_error1_t* frame, void* text)
{
    try
    {
        std::string& traceback = *static_cast<std::string*>(text);
        traceback += "#";
        traceback += std::to_string(number);
        traceback += ": in func ";
        AppendText(traceback, frame->func_name);
        traceback += "(): ";
        AppendText(traceback, frame->desc);
        traceback += "\n  major: ";
        AppendOwnedText(traceback, H5Eget_major(frame->maj_num));
        traceback += "\n  minor: ";
        AppendOwnedText(traceback, H5Eget_minor(frame->min_num));
        traceback += "\n";
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
    std::string traceback;
    if (H5Ewalk1(H5E_WALK_DOWNWARD, &AppendFrame, &traceback) < 0)
    {
        traceback += "<internal error while walking HDF5 traceback>";
    }
    return traceback;
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
