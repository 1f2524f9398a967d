#include "lib/programs/rst_serv.h"

#include "lib/conf/autoprepend.h"
#include "lib/conf/read_configuration.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/report.h"
#include "support/stand_in.h"
#include "support/temp_dir.h"
#include "unit/lib/programs/restart_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

// Sets a variable of the product configuration for the rest of the process.
void configure(char const* name, char const* value)
{
    autoprepend();
    if (!theOrvConfHash)
        theOrvConfHash = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
    conf_set_r(name, value, theOrvConfHash);
}

constexpr char cleanup[] = "/usr/local/orv/bin/apache_cleanup.sh";

using StopStartApacheOnHost = RestartDaemonOnHost;
using RestartApacheOnHost = RestartDaemonOnHost;

} // namespace

TEST(RestartDaemon, TouchesNothingWhileTheConfigurationSaysSo)
{
    for (char const* const value : {"1", "0", "no", ""}) {
        ChildRun const run = inChild([&] {
            configure("NO_RESTART_DAEMON", value);
            bool succeeds = true;
            for (char const* const daemon : {"", "mvk-missing", "tomcat6", "apache2", "jrun"})
                for (char const* const action : {"start", "stop", "status"})
                    succeeds = succeeds && restart_daemon(daemon, action) == 0;
            return succeeds && stop_start_apache() == 0 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << value;
        EXPECT_EQ(run.out + run.err, "");
    }
}

TEST(RestartDaemon, RefusesAnEmptyName)
{
    ChildRun const run = inChild([] {
        configure("ANOTHER", "1");
        errno = 0;
        return restart_daemon("", "start") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unknown service\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(PrintStatus, PrintsALine)
{
    ChildRun const run = inChild([] {
        bool const good = print_status(0) == 0 && print_status(1) == 0 && print_status(255) == 0;
        return good && print_status(-1) == -1 && print_status(-2) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "is running\nis stopped\nis stopped\ninternal error\ninternal error\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(RestartDaemonOnHost, RunsTheScriptOfThatName)
{
    scripts.add("/etc/init.d/mvk", "exit 0");
    scripts.add("/etc/init.d/mvk.sh", "exit 0");
    EXPECT_EQ(restarted("mvk", "reload"), "0|");
    EXPECT_EQ(scripts.journal(), "mvk reload\n");
}

TEST_F(RestartDaemonOnHost, FindsAScriptWithASuffix)
{
    scripts.add("/etc/init.d/mvk.sh", "exit 1");
    EXPECT_EQ(restarted("mvk", "start"), "-1|Service /etc/init.d/mvk.sh failed to start\n");
    EXPECT_EQ(scripts.journal(), "mvk.sh start\n");
}

// A script that is being replaced is missing for a moment.
TEST_F(RestartDaemonOnHost, LooksTwiceForAMissingScript)
{
    scripts.add("/etc/init.d/mvk", "exit 0");
    EXPECT_EQ(outcomeOf([] {
                  CallFailure const missing("stat", ENOENT);
                  return restart_daemon("mvk", "start");
              }),
              "0|");
    EXPECT_EQ(scripts.journal(), "mvk start\n");
}

TEST_F(RestartDaemonOnHost, ReportsAServiceWithoutAScript)
{
    EXPECT_EQ(restarted("mvk", "start"),
              "-1|" + withErrno("Unable to find start/stop script for 'mvk'\n", ENOENT));
    std::string const overlong(4090, 'x');
    EXPECT_EQ(restarted(overlong.c_str(), "status"),
              "-1|" + withErrno("Unable to find start/stop script for '" + overlong + "'\n",
                                ENAMETOOLONG));
}

TEST_F(RestartDaemonOnHost, GivesMinusOneSilentlyForAStoppedServicesStatus)
{
    scripts.add("/etc/init.d/mvk", "exit 3");
    EXPECT_EQ(restarted("mvk", "status"), "-1|");
}

TEST_F(RestartDaemonOnHost, DrivesTheTrueCourier)
{
    EXPECT_EQ(restarted("courier-imap", "status"), "-1|");
    // Courier's own programs print on standard error, which does not matter here.
    EXPECT_EQ(inChild([] { return restart_daemon("courier-imap", "start"); }).status, 0);
    EXPECT_EQ(restarted("courier-imap", "status"), "0|");
    EXPECT_EQ(inChild([] { return restart_daemon("courier-imap", "restart"); }).status, 0);
    EXPECT_EQ(restarted("courier-imap", "status"), "0|");
    EXPECT_EQ(inChild([] { return restart_daemon("courier-imap", "stop"); }).status, 0);
    EXPECT_EQ(restarted("courier-imap", "status"), "-1|");
}

TEST_F(RestartDaemonOnHost, DrivesTheTruePostfix)
{
    EXPECT_EQ(inChild([] { return restart_daemon("postfix", "start"); }).status, 0);
    EXPECT_EQ(restarted("postfix", "status"), "0|");
    EXPECT_EQ(inChild([] { return restart_daemon("postfix", "stop"); }).status, 0);
    EXPECT_EQ(restarted("postfix", "status"), "-1|");
}

TEST_F(RestartApacheOnHost, IsKnownByItsNamesBeginningInAnyCase)
{
    scripts.add(apache, "exit 0");
    for (char const* const name : {"apache2", "APACHE2", "Apache2-worker"})
        EXPECT_EQ(restarted(name, "status"), "0|");
    EXPECT_EQ(scripts.journal(), "apache2 status\napache2 status\napache2 status\n");
}

TEST_F(RestartApacheOnHost, IsTheServiceOfTheConfiguration)
{
    scripts.add("/etc/init.d/mvk-httpd", "exit 0");
    auto const configured = [] { configure("HTTPD_SERVICE", "mvk-httpd"); };
    EXPECT_EQ(restarted("mvk-httpd2", "status", configured), "0|");
    EXPECT_EQ(restarted("mvk-httpd", "start", configured), "0|");
    EXPECT_EQ(scripts.journal(), "mvk-httpd status\nmvk-httpd start\nmvk-httpd status\n");
}

TEST_F(RestartApacheOnHost, TakesNoActionForGraceful)
{
    scripts.add(apache, "exit 0");
    EXPECT_EQ(restarted("apache2", nullptr), "0|");
    EXPECT_EQ(scripts.journal(), "apache2 graceful\n");
    apacheFailsFor("*");
    EXPECT_EQ(restarted("apache2", nullptr),
              "-1|Service /etc/init.d/apache2 failed to gracefully restart\n");
}

TEST_F(RestartApacheOnHost, IsRestartedWhereTheServerKnowsNoGraceful)
{
    TempDir const dir;
    shellRun("cp /bin/sleep " + dir / "httpd2-prefork");
    shellRun(dir / "httpd2-prefork 60 > /dev/null 2>&1 & echo $! > " + dir / "pid");
    scripts.add(apache, "exit 1");
    EXPECT_EQ(restarted("apache2", "graceful"),
              "-1|Service /etc/init.d/apache2 failed to restart\n");
    EXPECT_EQ(scripts.journal(), "apache2 restart\n");
    shellRun("kill $(cat " + dir / "pid" + ")");
}

TEST_F(RestartApacheOnHost, IsWaitedForUntilItRuns)
{
    for (char const* const action : {"start", "restart", "force-reload"}) {
        scripts.forget();
        scripts.add(apache, "[ $1 != status ] || [ `grep -c status $journal` = 4 ]");
        EXPECT_EQ(restarted("apache2", action), "0|2 2 2 ");
        EXPECT_EQ(scripts.journal(), std::string("apache2 ") + action +
                                         "\napache2 status\napache2 status\napache2 status\n"
                                         "apache2 status\n");
    }
}

TEST_F(RestartApacheOnHost, IsWaitedForAtMostEightyTwoSeconds)
{
    apacheFailsFor("status");
    EXPECT_EQ(restarted("apache2", "start"), "-1|" + pauses(41, "2"));
    std::string const journal = scripts.journal();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), '\n'), 42);
}

TEST_F(RestartApacheOnHost, IsNotWaitedForAfterAnotherActionOrAFailure)
{
    apacheFailsFor("status");
    for (char const* const action : {"graceful", "reload", "status"})
        EXPECT_EQ(restarted("apache2", action), strcmp(action, "status") == 0 ? "-1|" : "0|");
    apacheFailsFor("*");
    EXPECT_EQ(restarted("apache2", "start"), "-1|Service /etc/init.d/apache2 failed to start\n");
    EXPECT_EQ(scripts.journal(),
              "apache2 graceful\napache2 reload\napache2 status\napache2 start\n");
}

TEST_F(RestartApacheOnHost, ClearsTheServersObjectsAwayBehindAStop)
{
    scripts.add(cleanup, "exit 1");
    scripts.add(apache, "exit 0");
    EXPECT_EQ(restarted("apache2", "stop"), "0|");
    EXPECT_EQ(scripts.journal(), "apache2 stop\napache_cleanup.sh \n");
    scripts.forget();
    apacheFailsFor("stop");
    EXPECT_EQ(restarted("apache2", "stop"), "-1|Service /etc/init.d/apache2 failed to stop\n");
    EXPECT_EQ(scripts.journal(), "apache2 stop\napache_cleanup.sh \n");
}

TEST_F(RestartApacheOnHost, IsStoppedWhereNothingClearsItsObjectsAway)
{
    ASSERT_FALSE(std::filesystem::exists(cleanup));
    scripts.add(apache, "exit 0");
    ChildRun const run = inChild([] { return restart_daemon("apache2", "stop"); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(cleanup), std::string::npos) << "the shell's own words: " << run.err;
}

TEST_F(RestartApacheOnHost, ReportsThatTheObjectsCannotBeClearedAway)
{
    scripts.add(apache, "exit 0");
    scripts.add(cleanup, "exit 0");
    std::string const text = "Error occured when trying to clean Apache IPC objects: ";
    EXPECT_EQ(restarted("apache2", "stop", [] { signal(SIGCHLD, SIG_IGN); }),
              "-1|" +
                  withErrno("Error occured during stop service /etc/init.d/apache2: "
                            "No child processes\n",
                            ECHILD) +
                  withErrno(text + "No child processes\n", ECHILD));
    static std::string const overlong(4090, 'x');
    EXPECT_EQ(restarted("apache2", "stop", [] { configure("PRODUCT_ROOT_D", overlong.c_str()); }),
              "-1|" + withErrno(text + "File name too long\n", ENAMETOOLONG));
}

TEST_F(RestartApacheOnHost, EndsTheProcessWithoutItsScript)
{
    ASSERT_FALSE(std::filesystem::exists(apache));
    EXPECT_EQ(
        restarted("apache2", "status"),
        "ended with 1: " +
            withErrno("No such file '/etc/init.d/apache2': No such file or directory", ENOENT));
}

TEST_F(StopStartApacheOnHost, RestartsAServerThatRuns)
{
    scripts.add(apache, "exit 0");
    EXPECT_EQ(outcomeOf(stop_start_apache), "0|");
    EXPECT_EQ(scripts.journal(), "apache2 status\napache2 restart\napache2 status\n");
    apacheFailsFor("restart");
    EXPECT_EQ(outcomeOf(stop_start_apache), "-1|Service /etc/init.d/apache2 failed to restart\n");
}

TEST_F(StopStartApacheOnHost, LeavesAServerThatDoesNotRun)
{
    apacheFailsFor("status");
    EXPECT_EQ(outcomeOf(stop_start_apache), "0|");
    EXPECT_EQ(scripts.journal(), "apache2 status\n");
}
