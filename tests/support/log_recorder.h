// log_recorder - records the reports of the function library, with their priorities
//
// Replaces the logger while it lives.

#ifndef MAILVEK_TESTS_SUPPORT_LOG_RECORDER_H
#define MAILVEK_TESTS_SUPPORT_LOG_RECORDER_H

#include "lib/report/product_log.h"

#include <cstdarg>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

using Report = std::pair<int, std::string>; // priority and text

class LogRecorder
{
public:
    LogRecorder()
    {
        reports().clear();
        orvek_log = record;
        orvek_logv = recordv;
    }
    ~LogRecorder()
    {
        orvek_log = log;
        orvek_logv = logv;
    }
    LogRecorder(LogRecorder const&) = delete;
    LogRecorder& operator=(LogRecorder const&) = delete;

    static std::vector<Report>& reports()
    {
        static std::vector<Report> all;
        return all;
    }

private:
    __attribute__((format(printf, 2, 0))) static void recordv(int level, char const* fmt,
                                                              va_list args)
    {
        va_list again;
        va_copy(again, args);
        std::string text(static_cast<size_t>(vsnprintf(nullptr, 0, fmt, again)) + 1, '\0');
        va_end(again);
        vsnprintf(text.data(), text.size(), fmt, args);
        text.pop_back();
        reports().emplace_back(level, text);
    }

    __attribute__((format(printf, 2, 3))) static void record(int level, char const* fmt, ...)
    {
        va_list args;
        va_start(args, fmt);
        recordv(level, fmt, args);
        va_end(args);
    }

    LogFuncType const log = orvek_log;
    LogVFuncType const logv = orvek_logv;
};

#endif
