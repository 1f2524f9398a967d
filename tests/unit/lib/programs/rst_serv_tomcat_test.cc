#include "lib/programs/rst_serv.h"

#include "support/report.h"
#include "support/stand_in.h"
#include "support/temp_dir.h"
#include "unit/lib/programs/restart_fixture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using RestartTomcatOnHost = RestartDaemonOnHost;

constexpr char tomcat[] = "/etc/init.d/tomcat6";

} // namespace

TEST_F(RestartTomcatOnHost, IsKnownByItsNamesBeginningInAnyCase)
{
    scripts.add(tomcat, "exit 0");
    for (char const* const name : {"tomcat6", "TomCat6-x"})
        EXPECT_EQ(restarted(name, "start"), "0|");
    EXPECT_EQ(scripts.journal(), "tomcat6 start\ntomcat6 start\n");
}

TEST_F(RestartTomcatOnHost, GivesTheFailureOfItsScript)
{
    scripts.add(tomcat, "exit 1");
    EXPECT_EQ(restarted("tomcat6", "restart"), "-1|Service tomcat6 failed to restart\n");
    EXPECT_EQ(restarted("tomcat6", "status"), "-1|");
    EXPECT_EQ(scripts.journal(), "tomcat6 restart\ntomcat6 status\n");
}

TEST_F(RestartTomcatOnHost, RestartsTheWebServerBehindAStop)
{
    scripts.add(tomcat, "exit 0");
    scripts.add(apache, "exit 0");
    EXPECT_EQ(restarted("tomcat6", "stop"), "0|");
    EXPECT_EQ(scripts.journal(), "tomcat6 stop\napache2 status\napache2 restart\napache2 status\n");
    apacheFailsFor("restart");
    EXPECT_EQ(restarted("tomcat6", "stop"), "0|Service /etc/init.d/apache2 failed to restart\n");
}

namespace {

// A Tomcat that its script cannot stop: a process with its class name that ignores SIGTERM if
// asked to.
class StuckTomcatOnHost : public RestartDaemonOnHost
{
protected:
    void SetUp() override
    {
        RestartDaemonOnHost::SetUp();
        if (HasFatalFailure())
            return;
        scripts.add(tomcat, "exit 1");
        apacheFailsFor("status");
    }

    void TearDown() override
    {
        if (!HasFatalFailure())
            shellRun("[ ! -e " + pid + " ] || kill -9 $(cat " + pid + ") 2>/dev/null; true");
        ps.remove();
    }

    void startTomcat(bool ignores)
    {
        shellRun(std::string(ignores ? "trap '' TERM; " : "") + "setsid bash -c 'exec -a " +
                 "/usr/bin/java-org.apache.catalina.startup.Bootstrap sleep 60' > /dev/null 2>&1 "
                 "& echo $! > " +
                 pid + "; until grep -q Bootstrap /proc/$!/cmdline; do sleep 0.01; done");
    }

    TempDir const dir;
    std::string const pid = dir / "pid";

    // Waits until the process has gone, as a real pause would.
    std::string const wait =
        "for i in {1..500}; do kill -0 $(cat " + pid + ") 2>/dev/null || break; sleep 0.01; done";

    StandIn ps{"/bin/ps"};
};

} // namespace

TEST_F(StuckTomcatOnHost, IsStoppedAfterAllWhenNoProcessIsLeft)
{
    EXPECT_EQ(restarted("tomcat6", "stop"), "0|5 ");
    EXPECT_EQ(scripts.journal(), "tomcat6 stop\napache2 status\n");
}

TEST_F(StuckTomcatOnHost, IsAskedToEnd)
{
    startTomcat(false);
    auto const prepare = [this] { pauses_detail::event = [this](size_t) { shellRun(wait); }; };
    EXPECT_EQ(restarted("tomcat6", "stop", prepare), "0|5 ");
}

TEST_F(StuckTomcatOnHost, IsGivenTimeToEnd)
{
    startTomcat(true);
    auto const prepare = [this] {
        pauses_detail::event = [this](size_t number) {
            if (number == 3)
                shellRun("kill -9 $(cat " + pid + "); " + wait);
        };
    };
    EXPECT_EQ(restarted("tomcat6", "stop", prepare), "0|5 5 5 ");
}

TEST_F(StuckTomcatOnHost, IsEndedByForceAfterFiveLooks)
{
    startTomcat(true);
    auto const prepare = [this] {
        pauses_detail::event = [this](size_t number) {
            if (number == 6)
                shellRun(wait);
        };
    };
    EXPECT_EQ(restarted("tomcat6", "stop", prepare), "0|" + pauses(6, "5"));
    EXPECT_EQ(scripts.journal(), "tomcat6 stop\napache2 status\n");
}

TEST_F(StuckTomcatOnHost, IsAFailureWhenItCannotBeEnded)
{
    ps.prepare();
    ps.run("echo ' 999999 org.apache.catalina.startup.Bootstrap'");
    std::string const failed =
        withErrno("send_signal_field(): failed to kill 999999: No such process", ESRCH);
    std::string expected = "-1|" + pauses(6, "5");
    for (int call = 0; call < 8; ++call)
        expected += failed;
    EXPECT_EQ(restarted("tomcat6", "stop"), expected);
    EXPECT_EQ(scripts.journal(), "tomcat6 stop\n");
}

TEST_F(StuckTomcatOnHost, IsNotTakenForGoneWithoutAProcessTable)
{
    ps.prepare();
    ps.run("exit 1");
    std::string expected = "-1|" + pauses(6, "5");
    for (int call = 0; call < 8; ++call)
        expected += "send_signal_field(): /bin/ps failed\n";
    EXPECT_EQ(restarted("tomcat6", "stop"), expected);
    EXPECT_EQ(scripts.journal(), "tomcat6 stop\n");
}
