// idn - internationalised names for the upper layer
//
// Domains arrive in UTF-8 and are stored in their ASCII form. Where the library refuses a
// name these raise IdnaError with its result code; a success without a result is
// std::bad_alloc.

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

// Converts what stands behind the first "@". The local part is never converted, and a text
// without "@" comes back as it is.
std::string emailToAscii(std::string const& address);

} // namespace orvek::idn

#endif
