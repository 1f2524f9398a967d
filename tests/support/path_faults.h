// path_faults - lets a path that the code under test forms be too long
//
// While a PathOverflow lives, the path with that number, counted from 1, does not fit. A
// BeforePath does something right before such a path is formed: what another process might do
// in between. One of either lives at a time. What counts is form_path as called by the program,
// which has to be linked with --wrap for it.

#ifndef MAILVEK_TESTS_SUPPORT_PATH_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_PATH_FAULTS_H

#include "lib/report/form_path.h"

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <utility>

namespace path_faults_detail {

inline int paths_to_fault = 0;      // 0: there is none
inline std::function<void()> event; // instead of an overflow, if there is one

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

// By the name that form_path has for the linker.
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
