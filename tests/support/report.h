// report - the output of messlog2 while errno is set

#ifndef MAILVEK_TESTS_SUPPORT_REPORT_H
#define MAILVEK_TESTS_SUPPORT_REPORT_H

#include <cstring>
#include <string>

inline std::string withErrno(std::string const& text, int error)
{
    return text + "\nSystem error " + std::to_string(error) + ": " + strerror(error) + "\n";
}

#endif
