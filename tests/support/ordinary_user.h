// ordinary_user - runs a piece of code as a user for whom file permissions hold
//
// Runs it in a child, as inChild does. The status is 99 when root's rights could not be given up.

#ifndef MAILVEK_TESTS_SUPPORT_ORDINARY_USER_H
#define MAILVEK_TESTS_SUPPORT_ORDINARY_USER_H

#include "support/child_run.h"

#include <functional>

#include <unistd.h>

inline ChildRun asOrdinaryUser(std::function<int()> const& code)
{
    constexpr unsigned nobody = 65534;
    return inChild([&] {
        if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0))
            return 99;
        return code();
    });
}

#endif
