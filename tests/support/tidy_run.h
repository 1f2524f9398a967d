// tidy_run - runs code in a child of its own that must leave nothing behind
//
// tidyRun is inChild for code that returns. The exit status is 0 when the code has left the
// descriptors unchanged and no child, running or dead. Differences are printed on standard
// error.

#ifndef MAILVEK_TESTS_SUPPORT_TIDY_RUN_H
#define MAILVEK_TESTS_SUPPORT_TIDY_RUN_H

#include "support/child_run.h"
#include "support/fd_census.h"

#include <cerrno>
#include <cstdio>
#include <functional>

#include <sys/wait.h>

namespace tidy_run_detail {

inline bool hasNoChild()
{
    if (waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD)
        return true;
    fputs("a child is left\n", stderr);
    return false;
}

inline bool hasDescriptors(std::set<int> const& expected)
{
    if (openDescriptors() == expected)
        return true;
    fputs("the descriptors have changed\n", stderr);
    return false;
}

} // namespace tidy_run_detail

inline ChildRun tidyRun(std::function<void()> const& code)
{
    return inChild([&] {
        auto const before = openDescriptors();
        errno = 0;
        code();
        bool const tidy = tidy_run_detail::hasDescriptors(before) && tidy_run_detail::hasNoChild();
        return tidy ? 0 : 1;
    });
}

#endif
