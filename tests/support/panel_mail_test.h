// panel_mail_test - the panel's database and a mail authentication database of the test
//
// Reports to the logger are recorded. Domains and mailnames are written to the panel's tables as
// the panel would.

#ifndef MAILVEK_TESTS_SUPPORT_PANEL_MAIL_TEST_H
#define MAILVEK_TESTS_SUPPORT_PANEL_MAIL_TEST_H

#include "support/auth_database_test.h"
#include "support/host_test.h"
#include "support/panel_database.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

class PanelMailTest : public AuthDatabaseTest
{
protected:
    void SetUp() override
    {
        requireHost();
        if (HasFatalFailure())
            return;
        AuthDatabaseTest::SetUp();
        panel.start();
    }

    void TearDown() override
    {
        panel.restore();
        AuthDatabaseTest::TearDown();
    }

    void addDomain(std::string const& name, std::initializer_list<std::string> aliases = {})
    {
        EXPECT_THAT(panel.sql("INSERT INTO domains (name) VALUES ('" + name + "')"),
                    ::testing::IsEmpty());
        for (std::string const& alias : aliases)
            EXPECT_THAT(panel.sql("INSERT INTO domainaliases (dom_id, name) SELECT id, '" + alias +
                                  "' FROM domains WHERE name = '" + name + "'"),
                        ::testing::IsEmpty());
    }

    void addMailname(std::string const& domain, std::string const& name,
                     std::initializer_list<std::string> aliases = {})
    {
        EXPECT_THAT(panel.sql("INSERT INTO mail (mail_name, dom_id) SELECT '" + name +
                              "', id FROM domains WHERE name = '" + domain + "'"),
                    ::testing::IsEmpty());
        for (std::string const& alias : aliases)
            EXPECT_THAT(panel.sql("INSERT INTO mail_aliases (mn_id, alias) SELECT m.id, '" + alias +
                                  "' FROM mail m JOIN domains d ON m.dom_id = d.id WHERE "
                                  "m.mail_name = '" +
                                  name + "' AND d.name = '" + domain + "'"),
                        ::testing::IsEmpty());
    }

    // The statements, without those that set a connection up.
    std::vector<std::string> queries() const
    {
        std::vector<std::string> left;
        for (std::string const& statement : panel.spy.statements)
            if (std::find(panel_set_up.begin(), panel_set_up.end(), statement) ==
                panel_set_up.end())
                left.push_back(statement);
        return left;
    }

    // The texts of the recorded reports, which must all have priority 3.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> all;
        for (Report const& report : reports()) {
            EXPECT_EQ(report.first, 3);
            all.push_back(report.second);
        }
        return all;
    }

    PanelDatabase panel;
};

#endif
