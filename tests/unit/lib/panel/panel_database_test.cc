#include "support/panel_database.h"

#include "lib/panel/dbconnect.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class PanelDatabaseOnHost : public PanelDatabaseTest
{
protected:
    // Runs and tears down a test like this one in a child. The next tests find what it has left.
    ChildRun ended(std::function<void()> const& test)
    {
        return inChild([&] {
            test();
            TearDown();
            return panel.spy.open.empty() && panel.spy.results.empty() ? 0 : 1;
        });
    }

    // Expects that everything is as the next test needs it.
    void expectFresh()
    {
        EXPECT_THAT(panel.sql("SELECT * FROM domains"), IsEmpty());
        char message[100] = "";
        EXPECT_TRUE(OpenMysql(orvek_db_connect(message, sizeof message))) << message;
    }
};

void failAnAssertion()
{
    FAIL() << "on purpose";
}

} // namespace

TEST_F(PanelDatabaseOnHost, IsRestoredAfterAnAssertionThatFailed)
{
    ChildRun const run = ended([&] {
        panel.sql("INSERT INTO domains (name) VALUES ('d.test')");
        unlink(panel_password_file);
        panel.stop();
        failAnAssertion();
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("on purpose"));
    expectFresh();
}

TEST_F(PanelDatabaseOnHost, ForgetsWhatATestHasLostOnceItSaidSo)
{
    ChildRun const run = ended([] {
        static MYSQL* my; // lost to the test, but still known to the leak sanitizer
        static MYSQL_RES* result;
        my = db_connect();
        ASSERT_EQ(mysql_query(my, "SELECT 1"), 0);
        result = mysql_store_result(my);
        ASSERT_TRUE(result);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.out, HasSubstr("a connection was left open"));
    EXPECT_THAT(run.out, HasSubstr("a result was left unfreed"));
}

TEST_F(PanelDatabaseOnHost, IsLeftAloneByOneThatWasNotStarted)
{
    panel.sql("INSERT INTO domains (name) VALUES ('d.test')");
    PanelDatabase other;
    other.sql("DELETE FROM domains");
    other.restore();
    EXPECT_THAT(panel.sql("SELECT name FROM domains"), ElementsAre("d.test"));
}
