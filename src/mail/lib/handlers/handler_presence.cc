#include "mail/lib/handlers/handler_presence.h"

#include "lib/files/next_entry.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "mail/lib/handlers/handler_parameters.h"

#include <cerrno>
#include <cstring>

#include <dirent.h>

bool has_handler_of(char const* name)
{
    OpenDir const info(opendir(handlers_info));
    if (!info) {
        static_cast<void>(
            log_failure("Unable to open directory %s: %s", handlers_info, strerror(errno)));
        return false;
    }
    char const* entry = nullptr;
    while (next_entry(info, &entry) > 0) {
        CString const type(get_handler_parameter(entry, "handler-type"));
        CString const value(type ? get_handler_parameter(entry, type.get()) : nullptr);
        if (value && strcmp(value.get(), name) == 0)
            return true;
    }
    return false;
}
