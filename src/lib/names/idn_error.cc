#include "lib/names/idn_error.h"

#include <algorithm>
#include <iterator>

#include <idna.h>

namespace {

struct Text
{
    int code;
    char const* text;
};

constexpr Text texts[] = {
    {IDNA_SUCCESS, "Success"},
    {IDNA_STRINGPREP_ERROR, "Stringprep error"},
    {IDNA_PUNYCODE_ERROR, "Punycode error"},
    {IDNA_CONTAINS_NON_LDH, "Contains non-LDH characters"},
    {IDNA_CONTAINS_MINUS, "Contains minus"},
    {IDNA_INVALID_LENGTH, "Invalid length"},
    {IDNA_NO_ACE_PREFIX, "ACE prefix not found"},
    {IDNA_ROUNDTRIP_VERIFY_ERROR, "Verify error"},
    {IDNA_CONTAINS_ACE_PREFIX, "ACE prefix found"},
    {IDNA_ICONV_ERROR, "Iconv error"},
    {IDNA_MALLOC_ERROR, "Cannot allocate buffer"},
};
static_assert(std::size(texts) == 11);

} // namespace

char const* idn_strerror(int errcode)
{
    auto const* const found = std::find_if(std::begin(texts), std::end(texts),
                                           [=](Text const& row) { return row.code == errcode; });
    return found == std::end(texts) ? "Unknown error" : found->text;
}
