#include "mail/lib/handlers/handler_types.h"

#include <cstring>
#include <iterator>

#include <strings.h>

char const* const handler_types[] = {
    "sender", "recipient", "sender-domain", "recipient-domain", "global", nullptr,
};
static_assert(std::size(handler_types) == global_handler_type + 2);

std::size_t find_handler_type(char const* type)
{
    for (std::size_t i = 0; type && handler_types[i]; ++i)
        if (strcasecmp(type, handler_types[i]) == 0)
            return i;
    return no_handler_type;
}
