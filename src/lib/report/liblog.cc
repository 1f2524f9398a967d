#include "lib/report/liblog.h"

#include "lib/report/owned.h"
#include "lib/report/visible.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

char const* PROGNAME = nullptr;

namespace {

constexpr size_t first_capacity = 4096;

struct Report
{
    CString text;
    size_t capacity = 0;

    [[nodiscard]] bool grow(size_t wanted)
    {
        if (wanted <= capacity)
            return true;
        auto* bigger = static_cast<char*>(realloc(text.get(), wanted));
        if (!bigger)
            return false;
        static_cast<void>(text.release());
        text.reset(bigger);
        capacity = wanted;
        return true;
    }
};

// Formats into the report and grows it once if needed. Cuts the text without memory for that.
__attribute__((format(printf, 2, 0))) void format(Report& report, char const* fmt, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    int const length = vsnprintf(report.text.get(), report.capacity, fmt, copy);
    va_end(copy);
    if (length < 0) {
        *report.text = '\0';
        return;
    }
    auto const wanted = static_cast<size_t>(length) + 1;
    if (wanted <= report.capacity || !report.grow(wanted))
        return;
    va_copy(copy, args);
    vsnprintf(report.text.get(), report.capacity, fmt, copy);
    va_end(copy);
}

__attribute__((format(printf, 2, 0))) void show_arguments(Report& report, char const* fmt,
                                                          va_list args)
{
    CString shown = visible_arguments(report.text.get(), fmt, args);
    if (!shown)
        return;
    report.text = std::move(shown);
    report.capacity = strlen(report.text.get()) + 1;
}

void append_system_error(Report& report, int error)
{
    char const* const fmt = "\nSystem error %d: %s";
    char const* const reason = strerror(error);
    size_t const used = strlen(report.text.get());
    int const length = snprintf(nullptr, 0, fmt, error, reason);
    // Without memory to grow, the text is cut to the room there is.
    static_cast<void>(report.grow(used + static_cast<size_t>(length) + 1));
    snprintf(report.text.get() + used, report.capacity - used, fmt, error, reason);
}

char const* base_name(char const* path)
{
    char const* const slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void print(FILE* stream, char const* msg)
{
    if (PROGNAME && *base_name(PROGNAME))
        fprintf(stream, "%s: ", base_name(PROGNAME));
    size_t const length = strlen(msg);
    fputs(msg, stream);
    if (length == 0 || msg[length - 1] != '\n')
        fputc('\n', stream);
    fflush(stream);
}

} // namespace

int ex_messlog(char const* msg, int status, int)
{
    print(stderr, msg);
    print(stdout, msg);
    if (status != 0)
        exit(status);
    return 0;
}

int vmesslog2(int status, int mess_out, char const* fmt, va_list args)
{
    int const saved = errno;
    Report report;
    if (!report.grow(first_capacity)) {
        errno = saved;
        return ex_messlog("Can't allocate memory for error message", status, mess_out);
    }
    format(report, fmt, args);
    show_arguments(report, fmt, args);
    if (saved != 0)
        append_system_error(report, saved);
    errno = saved;
    return ex_messlog(report.text.get(), status, mess_out);
}

int messlog2(int status, int mess_out, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    int const result = vmesslog2(status, mess_out, fmt, args);
    va_end(args);
    return result;
}
