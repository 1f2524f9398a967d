#include "util/idn.h"

#include "lib/names/idn_error.h"
#include "lib/report/owned.h"

#include <idna.h>

#include <new>

namespace orvek::idn {

namespace {

using Conversion = int (*)(char const* input, char** output, int flags);

std::string converted(Conversion conversion, std::string const& name)
{
    char* buffer = nullptr;
    int const code = conversion(name.c_str(), &buffer, 0);
    CString const result(buffer);
    if (code != IDNA_SUCCESS)
        throw IdnaError(code);
    if (!result)
        throw std::bad_alloc();
    return result.get();
}

} // namespace

IdnaError::~IdnaError() = default;

char const* IdnaError::what() const noexcept
{
    return idn_strerror(result_code);
}

std::string toAscii(std::string const& domain)
{
    return converted(idna_to_ascii_8z, domain);
}

std::string toUtf8(std::string const& domain)
{
    return converted(idna_to_unicode_8z8z, domain);
}

std::string emailToAscii(std::string const& address)
{
    auto const at = address.find('@');
    if (at == std::string::npos)
        return address;
    return address.substr(0, at + 1) + toAscii(address.substr(at + 1));
}

} // namespace orvek::idn
