#include "process/child_report.h"

#include "lib/report/owned.h"
#include "lib/report/visible.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <boost/lexical_cast.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <vector>

#include <unistd.h>

namespace orvek::process {

namespace {

constexpr size_t tag_length = 4;

void writeAll(int fd, char const* data, size_t length)
{
    while (length > 0) {
        ssize_t const written = retryOnSignal([=] { return write(fd, data, length); });
        if (written == -1)
            return;
        data += written;
        length -= static_cast<size_t>(written);
    }
}

void writeText(int fd, char const* text)
{
    writeAll(fd, text, strlen(text) + 1);
}

// Splits text at its NUL bytes. The rest after the last one stays in text.
void takeRecords(std::string& text, std::vector<std::string>& records)
{
    size_t begin = 0;
    for (size_t end; (end = text.find('\0', begin)) != std::string::npos; begin = end + 1)
        records.push_back(text.substr(begin, end - begin));
    text.erase(0, begin);
}

std::vector<std::string> readRecords(FdOwner& read_end)
{
    std::vector<std::string> records;
    std::string tail;
    char block[1024];
    for (;;) {
        ssize_t const got = retryOnSignal([&] { return read(read_end.fd, block, sizeof block); });
        if (got == -1)
            throw SystemError("control pipe read", errno);
        if (got == 0)
            break;
        tail.append(block, static_cast<size_t>(got));
        takeRecords(tail, records);
    }
    if (!tail.empty())
        records.push_back(tail);
    ErrnoKeeper const keeper;
    read_end.close();
    return records;
}

int codeFrom(std::string const& digits)
{
    int code = 0;
    return boost::conversion::try_lexical_convert(digits, code) ? code : EINVAL;
}

// The child's what() ends with the text of its error number, and the parent's exception adds that
// text again. Cuts it off, so that the message has it once.
std::string withoutErrorText(std::string message, int code)
{
    std::string const text = strerror(code != 0 ? code : errno);
    if (message == text)
        return std::string();
    std::string const ending = ": " + text;
    if (message.ends_with(ending))
        message.erase(message.size() - ending.size());
    return message;
}

} // namespace

void writeException(int fd, char const* type, char const* message)
{
    if (fd < 0)
        return;
    writeAll(fd, "ET: ", tag_length);
    writeText(fd, type);
    writeAll(fd, "EM: ", tag_length);
    writeText(fd, message);
}

void writeErrorCode(int fd, int code)
{
    char record[47];
    snprintf(record, sizeof record, "EC: %d", code);
    writeText(fd, record);
}

ChildReport readReport(FdOwner& readEnd)
{
    ChildReport report;
    for (std::string const& record : readRecords(readEnd)) {
        std::string_view const tag = std::string_view(record).substr(0, tag_length);
        if (tag == "ET: ")
            report.type = record.substr(tag_length);
        else if (tag == "EM: ")
            report.message = record.substr(tag_length);
        else if (tag == "EC: ")
            report.code = codeFrom(record.substr(tag_length));
        else
            std::clog << "child output: " << visible(record) << std::endl;
    }
    return report;
}

void raiseReported(ChildReport const& report)
{
    std::string const message =
        report.message.empty() ? "an error in child process" : report.message;
    if (report.type == "SystemError")
        throw SystemError(withoutErrorText(message, report.code), report.code);
    if (report.type == "std::runtime_error")
        throw std::runtime_error(message);
    if (report.type == "std::exception")
        throw std::exception();
    throw std::bad_exception();
}

} // namespace orvek::process
