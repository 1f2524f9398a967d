#include "lib/programs/rst_serv.h"

#include "support/child_run.h"
#include "support/init_scripts.h"
#include "support/panel_database_test.h"
#include "support/pauses.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr char apache[] = "/etc/init.d/apache2";

// The application servers of the panel's database. The web server runs.
class ApplicationServerOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        scripts.add(apache, "exit 0");
        scripts.add(instance + "/bin/coldfusion", "exit 0");
        scripts.add(instance + "/bin/jrun", "exit 0");
    }

    void setInstance(std::string const& path)
    {
        panel.sql("REPLACE INTO misc VALUES ('cf_instance_path', '" + path + "')");
    }

    // The result of a call and its output on both streams.
    std::string restarted(char const* daemon, char const* action)
    {
        scripts.forget();
        ChildRun const run = inChild([=] { return restart_daemon(daemon, action) + 10; });
        EXPECT_EQ(run.out, run.err);
        return std::to_string(run.status - 10) + "|" + run.err;
    }

    InitScripts scripts;
    std::string const instance = scripts.dir / "cf";
};

} // namespace

TEST_F(ApplicationServerOnHost, IsStartedByItsScriptAndRestartsTheWebServer)
{
    setInstance(instance);
    std::string const web_server = "apache2 status\napache2 restart\napache2 status\n";
    for (char const* const name : {"coldfusion", "ColdFusion8"}) {
        EXPECT_EQ(restarted(name, "start"), "0|");
        EXPECT_EQ(scripts.journal(), "coldfusion start\n" + web_server);
    }
    for (char const* const name : {"jrun", "JRun4"}) {
        EXPECT_EQ(restarted(name, "stop"), "0|");
        EXPECT_EQ(scripts.journal(), "jrun stop\n" + web_server);
    }
}

TEST_F(ApplicationServerOnHost, LeavesTheWebServerWhenItsStatusIsAskedFor)
{
    setInstance(instance);
    EXPECT_EQ(restarted("jrun", "status"), "0|");
    EXPECT_EQ(scripts.journal(), "jrun status\n");
}

TEST_F(ApplicationServerOnHost, LeavesTheWebServerWhenItsOwnScriptFails)
{
    setInstance(instance);
    scripts.add(instance + "/bin/jrun", "exit 1");
    EXPECT_EQ(restarted("jrun", "start"), "-1|Service " + instance + "/bin/jrun failed to start\n");
    EXPECT_EQ(scripts.journal(), "jrun start\n");
}

TEST_F(ApplicationServerOnHost, SucceedsWhateverBecomesOfTheWebServer)
{
    setInstance(instance);
    scripts.add(apache, "[ $1 = status ]");
    EXPECT_EQ(restarted("jrun", "start"), "0|Service /etc/init.d/apache2 failed to restart\n");
}

TEST_F(ApplicationServerOnHost, IsReportedWhenThePanelKnowsOfNone)
{
    EXPECT_EQ(restarted("coldfusion", "start"), "-1|CF not configured in Orvek.\n");
    for (char const* const path : {"", "/"}) {
        setInstance(path);
        EXPECT_EQ(restarted("jrun", "status"), "-1|CF not configured in Orvek.\n");
    }
    EXPECT_EQ(scripts.journal(), "");
}

TEST_F(ApplicationServerOnHost, IsReportedWhenThePanelCannotBeAsked)
{
    setInstance(instance);
    spy.replace("select val from misc where param='cf_instance_path'", "no query");
    std::string const outcome = restarted("jrun", "status");
    EXPECT_EQ(outcome.rfind("-1|Unable to query parameter by query ", 0), 0U) << outcome;
    EXPECT_NE(outcome.find("\nCF not configured in Orvek.\n"), std::string::npos) << outcome;
    EXPECT_EQ(scripts.journal(), "");
}

TEST_F(ApplicationServerOnHost, EndsTheProcessWithoutThePanelsDatabase)
{
    panel.stop();
    ChildRun const run = inChild([] { return restart_daemon("coldfusion", "status"); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, run.err);
    EXPECT_NE(run.err.find("Unable to connect to the mysql database\n"), std::string::npos);
    EXPECT_EQ(scripts.journal(), "");
}

// The connection is closed before the script starts.
TEST_F(ApplicationServerOnHost, HoldsNoConnectionWhileTheScriptRuns)
{
    setInstance(instance);
    scripts.add(instance + "/bin/jrun",
                "mariadb -NBe \"SELECT COUNT(*) FROM information_schema.processlist "
                "WHERE user = 'admin'\" >> $journal");
    EXPECT_EQ(restarted("jrun", "status"), "0|");
    EXPECT_EQ(scripts.journal(), "jrun status\n0\n");
}
