// failure - report and give up in one statement
//
// Reports through messlog2, which does not end the process then, and returns result. errno is
// kept.

#ifndef MAILVEK_LIB_REPORT_FAILURE_H
#define MAILVEK_LIB_REPORT_FAILURE_H

[[nodiscard]] int failure(int result, char const* fmt, ...) __attribute__((format(printf, 2, 3)));

#endif
