// restart_fixture - calls of restart_daemon, on scripts of the test in /etc/init.d

#ifndef MAILVEK_TESTS_UNIT_LIB_PROGRAMS_RESTART_FIXTURE_H
#define MAILVEK_TESTS_UNIT_LIB_PROGRAMS_RESTART_FIXTURE_H

#include "lib/programs/rst_serv.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/init_scripts.h"
#include "support/pauses.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

constexpr char apache[] = "/etc/init.d/apache2";

class RestartDaemonOnHost : public HostTest
{
protected:
    // The result of a call, its output on both streams, and its pauses.
    static std::string outcomeOf(
        std::function<int()> const& call, std::function<void()> const& prepare = [] {})
    {
        ChildRun const run = inChild([&] {
            prepare();
            errno = 0;
            int const result = call();
            printf("\n|%d|", result);
            for (unsigned int const pause : pauses_detail::pauses)
                printf("%u ", pause);
            return 0;
        });
        size_t const end = run.out.rfind("\n|");
        if (end == std::string::npos)
            return "ended with " + std::to_string(run.status) + ": " + run.out;
        EXPECT_EQ(run.out.substr(0, end), run.err);
        return run.out.substr(end + 2) + run.err;
    }

    static std::string restarted(
        char const* daemon, char const* action, std::function<void()> const& prepare = [] {})
    {
        return outcomeOf([=] { return restart_daemon(daemon, action); }, prepare);
    }

    // Makes the web server's script fail for these actions, an extended pattern of bash.
    void apacheFailsFor(std::string const& actions)
    {
        scripts.add(apache, "case $1 in " + actions + ") exit 1;; esac");
    }

    InitScripts scripts;
};

inline std::string pauses(int count, std::string const& seconds)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text += seconds + ' ';
    return text;
}

#endif
