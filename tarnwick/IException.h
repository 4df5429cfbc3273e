#pragma once

#include <tarnwick/export.h>

#include <cstddef>
#include <exception>
#include <memory>
#include <string>

namespace tarnwick
{

/// Base of the exceptions of the base layer. Copying one never throws, so that it can be passed on by value.
class TARNWICK_EXPORT IException : public std::exception
{
public:
    /// Makes an exception whose `what()` is `text`.
    explicit IException(const std::string& text);
    /// Copies share the text.
    IException(const IException& other) noexcept;
    /// Shares the text of `other`.
    IException& operator=(const IException& other) noexcept;
    ~IException() override;

    /// The text that the exception was made with; it lives as long as any copy of the exception.
    const char* what() const noexcept override;

private:
    std::shared_ptr<const std::string> m_text;
};

/// An exception that knows the place in the sources where it was raised.
/// `what()` reads "<file>:<line>: <message>".
class TARNWICK_EXPORT IHeaderException : public IException
{
public:
    /// `message` is the reason, `file` and `line` the place.
    IHeaderException(const std::string& message, const std::string& file, size_t line);
    /// Copies share the text.
    IHeaderException(const IHeaderException& other) noexcept;
    /// Shares the text of `other`.
    IHeaderException& operator=(const IHeaderException& other) noexcept;
    ~IHeaderException() override;
};

/// A condition that the caller has to keep did not hold.
/// `what()` reads "<file>:<line>: <message> [precondition failed: <condition>]".
class TARNWICK_EXPORT IPreconditionException : public IHeaderException
{
public:
    /// `condition` is the text of the failed test, `message` what it means to the caller, `file` and `line` where the
    /// test stands.
    IPreconditionException(const std::string& condition, const std::string& message, const std::string& file,
                           size_t line);
    /// Copies share the text.
    IPreconditionException(const IPreconditionException& other) noexcept;
    /// Shares the text of `other`.
    IPreconditionException& operator=(const IPreconditionException& other) noexcept;
    ~IPreconditionException() override;
};

} // namespace tarnwick
