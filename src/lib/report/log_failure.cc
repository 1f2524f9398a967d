#include "lib/report/log_failure.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"

#include <cstdarg>

#include <syslog.h>

int log_failure(char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    orvek_logv(LOG_ERR, fmt, args);
    va_end(args);
    return -1;
}

std::nullptr_t log_null(char const* fmt, ...)
{
    ErrnoKeeper const keeper;
    va_list args;
    va_start(args, fmt);
    orvek_logv(LOG_ERR, fmt, args);
    va_end(args);
    return nullptr;
}
