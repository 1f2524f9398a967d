#include "mail/lib/aliases/append_domainaliases.h"

#include "support/log_recorder.h"
#include "support/panel_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using orvek::mail::append_domainaliases_by_domain;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

class AppendDomainaliasesOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        if (HasFatalFailure())
            return;
        panel.sql("INSERT INTO domains (name) VALUES ('a.com'), ('b.com'), ('c.com')");
        panel.sql("INSERT INTO domainaliases (dom_id, name) SELECT id, CONCAT('1.', name) FROM "
                  "domains WHERE name <> 'c.com'");
        panel.sql("INSERT INTO domainaliases (dom_id, name) SELECT id, CONCAT('2.', name) FROM "
                  "domains WHERE name = 'a.com'");
    }

    std::vector<std::string> names = {"first"};
    LogRecorder const recorder;
};

} // namespace

TEST_F(AppendDomainaliasesOnHost, AppendsOneDomainsAliasesToTheNames)
{
    append_domainaliases_by_domain(names, "a.com");
    EXPECT_THAT(names, UnorderedElementsAre("first", "1.a.com", "2.a.com"));
    EXPECT_EQ(names.front(), "first");
    append_domainaliases_by_domain(names, "b.com");
    EXPECT_EQ(names.size(), 4U);
    EXPECT_EQ(names.back(), "1.b.com");
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

TEST_F(AppendDomainaliasesOnHost, AddsNothingForADomainWithoutAliases)
{
    append_domainaliases_by_domain(names, "c.com");
    append_domainaliases_by_domain(names, "unknown.com");
    append_domainaliases_by_domain(names, "1.a.com");
    EXPECT_THAT(names, ElementsAre("first"));
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

TEST_F(AppendDomainaliasesOnHost, LeavesTheNamesAsTheyWereWhenTheQueryFails)
{
    {
        WithoutTable const without(panel, "domainaliases");
        EXPECT_NO_THROW(append_domainaliases_by_domain(names, "a.com"));
    }
    EXPECT_THAT(names, ElementsAre("first"));
    ASSERT_THAT(LogRecorder::reports(), ::testing::Not(IsEmpty()));
    EXPECT_EQ(LogRecorder::reports().back(),
              Report(3, "Unable to get domain aliases from database for: a.com"));
}

TEST_F(AppendDomainaliasesOnHost, LeavesTheNamesAsTheyWereWithoutTheServer)
{
    panel.stop();
    EXPECT_NO_THROW(append_domainaliases_by_domain(names, "a.com"));
    EXPECT_THAT(names, ElementsAre("first"));
    ASSERT_THAT(LogRecorder::reports(), ::testing::Not(IsEmpty()));
    EXPECT_EQ(LogRecorder::reports().back(),
              Report(3, "Unable to get domain aliases from database for: a.com"));
}
