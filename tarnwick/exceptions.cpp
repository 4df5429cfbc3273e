#include <tarnwick/IException.h>

namespace tarnwick
{

IException::IException(const std::string& text) : m_text(std::make_shared<const std::string>(text))
{
}
IException::IException(const IException& other) noexcept = default;
IException& IException::operator=(const IException& other) noexcept = default;
IException::~IException() = default;

const char* IException::what() const noexcept
{
    return m_text->c_str();
}

IHeaderException::IHeaderException(const std::string& message, const std::string& file, size_t line)
    : IException(file + ":" + std::to_string(line) + ": " + message)
{
}
IHeaderException::IHeaderException(const IHeaderException& other) noexcept = default;
IHeaderException& IHeaderException::operator=(const IHeaderException& other) noexcept = default;
IHeaderException::~IHeaderException() = default;

IPreconditionException::IPreconditionException(const std::string& condition, const std::string& message,
                                               const std::string& file, size_t line)
    : IHeaderException(message + " [precondition failed: " + condition + "]", file, line)
{
}
IPreconditionException::IPreconditionException(const IPreconditionException& other) noexcept = default;
IPreconditionException& IPreconditionException::operator=(const IPreconditionException& other) noexcept = default;
IPreconditionException::~IPreconditionException() = default;

} // namespace tarnwick
