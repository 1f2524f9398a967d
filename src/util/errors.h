// errors - the exception classes of the upper layer
//
// Whatever fails in the upper layer travels as one of these up to main, which reports it and
// makes it the exit status. Nobody reports an error that he raises.

#ifndef MAILVEK_UTIL_ERRORS_H
#define MAILVEK_UTIL_ERRORS_H

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/path.hpp>

#include <cerrno>
#include <stdexcept>
#include <string>

namespace orvek {

// A failed system call: what() is the message, ": " and the text of the error number, or that
// text alone for an empty message. It is formed once, at the first what(). Code 0 stands for
// the errno of the moment of construction.
class SystemError : public std::runtime_error
{
public:
    SystemError(std::string const& message, int code);
    ~SystemError() override;
    char const* what() const noexcept override;

    int code() const noexcept { return error_code; }

private:
    int error_code;
    mutable std::string full_text;
};

// A SystemError whose number is part of its type, so that it can be caught by it.
template<int N>
class ExSystemError : public SystemError
{
public:
    explicit ExSystemError(std::string const& message) : SystemError(message, N) {}
};

extern template class ExSystemError<EPERM>;
extern template class ExSystemError<ENOENT>;
extern template class ExSystemError<EINTR>;
extern template class ExSystemError<ECHILD>;
extern template class ExSystemError<EAGAIN>;

// Raises the class that fits the code: ExSystemError for the five numbers above, SystemError
// for any other. The choice looks at the argument alone; code 0 is a plain SystemError with
// the current errno, whatever that is.
[[noreturn]] void throwSystemError(std::string const& message, int code);

// A request that the mail server cannot carry out.
class NotSupportedError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace orvek

namespace orvek::mail {

// A failed step on the file system; the texts and paths are those of the base class.
class FSError : public boost::filesystem::filesystem_error
{
public:
    using boost::filesystem::filesystem_error::filesystem_error;
};

} // namespace orvek::mail

namespace orvek::mail::postfix {

// What the two errors of the Postfix layer have in common; never raised itself.
class PostfixError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A failed run of a Postfix tool, or a record that does not hold what it must.
class PostfixConfigurationError : public PostfixError
{
public:
    using PostfixError::PostfixError;
};

// A change that a map refused, or a bad answer from one.
class PostfixDatabaseError : public PostfixError
{
public:
    using PostfixError::PostfixError;
};

// The report of a failed restore: head, the name of what could not be put back, tail.
// Deliberate: "Constact" stays as it stands.
extern char const doubleErrorHead[];
extern char const doubleErrorTail[];

} // namespace orvek::mail::postfix

#endif
