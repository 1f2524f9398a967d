// path_faults - makes a path that the code under test forms too long
//
// While a PathOverflow lives, the nth path, counted from 1, does not fit. A BeforePath runs code
// right before such a path is formed: code that another process might run in between. Only one of
// either may live at a time. This holds for the program's own calls of form_path. Link the program
// with --wrap for it.

#ifndef MAILVEK_TESTS_SUPPORT_PATH_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_PATH_FAULTS_H

#include "lib/report/form_path.h"

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <utility>

namespace path_faults_detail {

inline int paths_to_fault = 0;      // 0: no fault
inline std::function<void()> event; // runs instead of an overflow, if set

inline bool overflows()
{
    if (paths_to_fault == 0 || --paths_to_fault != 0)
        return false;
    if (!event)
        return true;
    event();
    return false;
}

} // namespace path_faults_detail

class PathOverflow
{
public:
    explicit PathOverflow(int number) { path_faults_detail::paths_to_fault = number; }
    ~PathOverflow() { path_faults_detail::paths_to_fault = 0; }
    PathOverflow(PathOverflow const&) = delete;
    PathOverflow& operator=(PathOverflow const&) = delete;
};

class BeforePath : PathOverflow
{
public:
    BeforePath(int number, std::function<void()> event) : PathOverflow(number)
    {
        path_faults_detail::event = std::move(event);
    }
    ~BeforePath() { path_faults_detail::event = nullptr; }
};

// Uses form_path's linker name.
extern "C" [[gnu::used]] __attribute__((format(printf, 2, 3))) inline bool
__wrap__Z9form_pathRA4096_cPKcz(char (&path)[path_size], char const* fmt, ...)
{
    if (path_faults_detail::overflows())
        return false;
    va_list args;
    va_start(args, fmt);
    int const length = vsnprintf(path, path_size, fmt, args);
    va_end(args);
    return length >= 0 && static_cast<std::size_t>(length) < path_size;
}

#endif
