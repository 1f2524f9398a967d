// idn - internationalised names for the upper layer
//
// Domains arrive in UTF-8 and are stored in their ASCII form. The functions raise IdnaError with
// the library's result code when it refuses a name, and std::bad_alloc when it succeeds without a
// result.
//
// No command calls these; they are for callers to come: toUtf8.

#ifndef MAILVEK_UTIL_IDN_H
#define MAILVEK_UTIL_IDN_H

#include <exception>
#include <string>

namespace orvek::idn {

// what() is the text of the result code in the tool's own table.
class IdnaError : public std::exception
{
public:
    explicit IdnaError(int code) : result_code(code) {}
    ~IdnaError() override;
    char const* what() const noexcept override;

    int code() const noexcept { return result_code; }

private:
    int result_code;
};

std::string toAscii(std::string const& domain);
std::string toUtf8(std::string const& domain);

// Converts what follows the first "@", never the local part. A text without "@" is not changed.
std::string emailToAscii(std::string const& address);

} // namespace orvek::idn

#endif
