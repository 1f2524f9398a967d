#include "lib/names/idn.h"

#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include <idna.h>
#include <regex.h>

int idn_errno = IDNA_SUCCESS;

namespace {

constexpr size_t url_size = 4096;

[[noreturn]] void allocation_failed()
{
    fatal("Allocation failed");
}

using Conversion = int (*)(char const* input, char** output, int flags);

// Returns whether the conversion succeeded. *output gets what the library made in either case.
bool convert(Conversion conversion, char const* domain, CString* output)
{
    char* left = nullptr;
    int const result = conversion(domain, &left, 0);
    output->reset(left);
    if (result == IDNA_MALLOC_ERROR)
        allocation_failed();
    if (result != IDNA_SUCCESS)
        idn_errno = result;
    return result == IDNA_SUCCESS;
}

char* safe(char const* function, char const* argument, char* result)
{
    if (!result)
        fatal("%s(%s) failed: %s", function, argument, idn_strerror(idn_errno));
    return result;
}

constexpr char url_pattern[] = "^(ftp://|https?://)?([^@]+@)?([^/:]+)(.*)?$";
enum Group
{
    scheme = 1,
    user,
    host,
    rest,
    groups
};

std::array<char, 256> regex_reason(int result, regex_t const* compiled)
{
    std::array<char, 256> text;
    regerror(result, compiled, text.data(), text.size());
    return text;
}

bool match_url(char const* url, regmatch_t (&parts)[groups])
{
    regex_t compiled;
    int result = regcomp(&compiled, url_pattern, REG_EXTENDED);
    if (result != 0)
        fatal("regcomp() failed: %s", regex_reason(result, &compiled).data());
    result = regexec(&compiled, url, groups, parts, 0);
    if (result != 0)
        messlog2(0, 0, "regexec() failed: %s", regex_reason(result, &compiled).data());
    regfree(&compiled);
    return result == 0;
}

std::string_view part_of(char const* url, regmatch_t const& part)
{
    if (part.rm_so < 0)
        return {};
    return {url + part.rm_so, static_cast<size_t>(part.rm_eo - part.rm_so)};
}

char* host_toascii(std::string_view name)
{
    CString const copy(strndup(name.data(), name.size()));
    if (!copy)
        allocation_failed();
    return idn_toascii(copy.get());
}

bool rebuild(char (&result)[url_size], std::initializer_list<std::string_view> pieces)
{
    size_t used = 0;
    for (auto const piece : pieces) {
        if (piece.size() >= url_size - used) {
            idn_errno = IDNA_INVALID_LENGTH;
            return false;
        }
        used += piece.copy(result + used, piece.size());
    }
    result[used] = '\0';
    return true;
}

} // namespace

char* idn_toascii(char const* domain)
{
    CString ascii;
    return convert(idna_to_ascii_8z, domain, &ascii) ? ascii.release() : nullptr;
}

char* idn_toascii_safe(char const* domain)
{
    return safe(__func__, domain, idn_toascii(domain));
}

char* idn_toutf8(char const* domain)
{
    CString utf8;
    // Deliberate: a failure shows in idn_errno only, and the library's output is returned all the
    // same.
    static_cast<void>(convert(idna_to_unicode_8z8z, domain, &utf8));
    return utf8.release();
}

char* idn_toutf8_safe(char const* domain)
{
    return safe(__func__, domain, idn_toutf8(domain));
}

char* idn_email_toascii(char const* email)
{
    char const* const at = strchr(email, '@');
    if (!at)
        return nullptr;
    CString const domain(idn_toascii(at + 1));
    char* address = nullptr;
    // Deliberate: a failed conversion is not checked here. It shows as "(null)" in the address.
    if (asprintf(&address, "%.*s@%s", static_cast<int>(at - email), email,
                 domain ? domain.get() : "(null)") < 0)
        allocation_failed();
    return address;
}

char* idn_email_toascii_safe(char const* email)
{
    return safe(__func__, email, idn_email_toascii(email));
}

char* idn_url_toascii(char const* url)
{
    static char result[url_size];
    regmatch_t parts[groups];
    if (!match_url(url, parts))
        return nullptr;
    if (parts[host].rm_so < 0) {
        messlog2(0, 0, "no hostname found in URL");
        return nullptr;
    }
    CString const ascii(host_toascii(part_of(url, parts[host])));
    char rebuilt[url_size];
    if (!ascii || !rebuild(rebuilt, {part_of(url, parts[scheme]), part_of(url, parts[user]),
                                     ascii.get(), part_of(url, parts[rest])})) {
        messlog2(0, 0, "idn_toascii() failed: %s", idn_strerror(idn_errno));
        return nullptr;
    }
    // Written last, because url may be the result of the previous call.
    snprintf(result, sizeof result, "%s", rebuilt);
    return result;
}
