#include "lib/names/mail_validation.h"

#include "lib/report/product_log.h"

#include <cstring>

#include <syslog.h>

int mail_validate(char const* str, mail_validation_t type)
{
    switch (type) {
    case VALIDATE_EMAIL_LOCAL_PART:
        // The mailname becomes a directory, and ".." would lead out of the domain's directory.
        return strstr(str, "..") ? 0 : 1;
    }
    orvek_log(LOG_INFO, "unknown validation_type: %d", static_cast<int>(type));
    return 0;
}
