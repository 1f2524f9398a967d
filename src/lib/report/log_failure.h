// log_failure - report to the product log and give up in one statement
//
// Both report through orvek_logv at priority 3 (error) and return -1 or null. errno is kept.

#ifndef MAILVEK_LIB_REPORT_LOG_FAILURE_H
#define MAILVEK_LIB_REPORT_LOG_FAILURE_H

#include <cstddef>

[[nodiscard]] int log_failure(char const* fmt, ...) __attribute__((format(printf, 1, 2)));
[[nodiscard]] std::nullptr_t log_null(char const* fmt, ...) __attribute__((format(printf, 1, 2)));

#endif
