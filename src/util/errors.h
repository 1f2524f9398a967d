// errors - the exception classes of the upper layer
//
// A failure of the upper half travels as one of these up to main, which reports it and turns it
// into the exit status. Code that raises an error does not report it.

#ifndef MAILVEK_UTIL_ERRORS_H
#define MAILVEK_UTIL_ERRORS_H

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/path.hpp>

#include <cerrno>
#include <stdexcept>
#include <string>

namespace orvek {

// A failed system call. what() is the message, ": " and the text of the error number; with an empty
// message it is that text alone. The first what() forms it. Code 0 means errno at construction.
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

// A SystemError with its number in its type, so that a catch can name the number.
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

// Raises ExSystemError for the five numbers above and SystemError for any other. Only the argument
// counts: code 0 is a plain SystemError with the current errno.
[[noreturn]] void throwSystemError(std::string const& message, int code);

// A request that the mail server cannot carry out.
class NotSupportedError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace orvek

namespace orvek::mail {

// A failed operation of the file-system library. The text is the operation, the text of the error
// and the paths in quotes, with every version of the library: some add the number of the error.
class LibraryError : public boost::filesystem::filesystem_error
{
public:
    // An empty path is left out of the text.
    LibraryError(std::string const& operation, boost::filesystem::path const& from,
                 boost::filesystem::path const& to, boost::system::error_code code);
    LibraryError(std::string const& operation, boost::filesystem::path const& where,
                 boost::system::error_code code);
    char const* what() const noexcept override;

private:
    std::string full_text;
};

// A failed step on the file system that the tool takes itself; paths and text are those of the base
// class.
class FSError : public LibraryError
{
public:
    using LibraryError::LibraryError;
};

} // namespace orvek::mail

namespace orvek::mail::postfix {

// The base of the two errors of the Postfix rooms. Never raised itself.
class PostfixError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// A failed run of a Postfix tool, or a record with a wrong content.
class PostfixConfigurationError : public PostfixError
{
public:
    using PostfixError::PostfixError;
};

// A map refused a change or gave a bad answer.
class PostfixDatabaseError : public PostfixError
{
public:
    using PostfixError::PostfixError;
};

// The report of a failed restore: head, the name of what could not be restored, tail.
// Deliberate: "Constact" stays.
extern char const doubleErrorHead[];
extern char const doubleErrorTail[];

} // namespace orvek::mail::postfix

#endif
