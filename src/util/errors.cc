#include "util/errors.h"

#include <cstring>

namespace orvek {

SystemError::SystemError(std::string const& message, int code)
    : std::runtime_error(message), error_code(code != 0 ? code : errno)
{
}

SystemError::~SystemError() = default;

char const* SystemError::what() const noexcept
{
    if (!full_text.empty())
        return full_text.c_str();
    char const* const message = std::runtime_error::what();
    if (message && *message)
        full_text.append(message).append(": ");
    full_text += strerror(error_code);
    return full_text.c_str();
}

template class ExSystemError<EPERM>;
template class ExSystemError<ENOENT>;
template class ExSystemError<EINTR>;
template class ExSystemError<ECHILD>;
template class ExSystemError<EAGAIN>;

void throwSystemError(std::string const& message, int code)
{
    switch (code) {
    case EPERM:
        throw ExSystemError<EPERM>(message);
    case ENOENT:
        throw ExSystemError<ENOENT>(message);
    case EINTR:
        throw ExSystemError<EINTR>(message);
    case ECHILD:
        throw ExSystemError<ECHILD>(message);
    case EAGAIN:
        throw ExSystemError<EAGAIN>(message);
    default:
        throw SystemError(message, code);
    }
}

} // namespace orvek

namespace orvek::mail {

using boost::filesystem::path;

LibraryError::LibraryError(std::string const& operation, path const& from, path const& to,
                           boost::system::error_code code)
    : filesystem_error(operation, from, to, code), full_text(operation + ": " + code.message())
{
    if (!from.empty())
        full_text += ": \"" + from.string() + "\"";
    if (!to.empty())
        full_text += ", \"" + to.string() + "\"";
}

LibraryError::LibraryError(std::string const& operation, path const& where,
                           boost::system::error_code code)
    : LibraryError(operation, where, path(), code)
{
}

char const* LibraryError::what() const noexcept
{
    return full_text.c_str();
}

} // namespace orvek::mail

namespace orvek::mail::postfix {

char const doubleErrorHead[] = "CRITICAL ERROR: Unable to properly restore ";
char const doubleErrorTail[] =
    " used by Orvek.\n"
    "Mail system may be not usable at the moment and it cannot be repaired automatically.\n"
    "Constact Tessarine support to resolve this issue.";

} // namespace orvek::mail::postfix
