// mail_database_test - base of the suites of changes for all aliases
//
// Has a panel with domains and mailnames, and an authentication database that can refuse a user or
// a domain.

#ifndef MAILVEK_TESTS_UNIT_MAIL_LIB_ALIASES_MAIL_DATABASE_TEST_H
#define MAILVEK_TESTS_UNIT_MAIL_LIB_ALIASES_MAIL_DATABASE_TEST_H

#include "mail/lib/accounts/mail_authenticate.h"
#include "support/panel_mail_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

inline constexpr char not_connected[] = "Unable to connect to mysql database";
inline constexpr char not_read[] = "Unable to get data from mysql database";
inline constexpr char aliases_not_read[] = "Unable to get domain aliases from database for: d.test";

// The reports of changes to the authentication database that a trigger refuses.
inline constexpr char not_set[] =
    "Unable to execute the mail authorization registration query: refused";
inline constexpr char not_removed[] =
    "Unable to execute the mail authorization removal query: refused";
inline constexpr char domain_not_removed[] =
    "Unable to execute the domain mail authorization removal query: refused";

class MailDatabaseTest : public PanelMailTest
{
protected:
    using List = std::vector<std::string>;

    // name@domain of every user
    List addresses() const
    {
        return sql("SELECT u.name || '@' || d.name FROM users u JOIN domains d ON u.dom_id = d.id "
                   "ORDER BY d.name, u.name");
    }

    void addUsers(std::initializer_list<std::pair<char const*, char const*>> users)
    {
        for (auto const& [name, domain] : users)
            EXPECT_EQ(mailAuthSet(name, domain, "secret", 0), 0);
    }

    // Makes a domain with a domain alias, a mailname with a mail alias, and all their users.
    void addJoeEverywhere()
    {
        addDomain("d.test", {"a.test"});
        addMailname("d.test", "joe", {"j"});
        addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"joe", "a.test"}, {"j", "a.test"}});
    }

    // Makes the database refuse to insert or delete this user from now on.
    void refuse(std::string const& what, std::string const& name, std::string const& domain)
    {
        std::string const row = what == "DELETE" ? "OLD" : "NEW";
        EXPECT_THAT(sql("CREATE TRIGGER refuse_" + what + " BEFORE " + what + " ON users WHEN " +
                        row + ".name = '" + name + "' AND " + row +
                        ".dom_id = (SELECT id FROM domains WHERE name = '" + domain +
                        "') BEGIN SELECT RAISE(ABORT, 'refused'); END"),
                    ::testing::IsEmpty());
    }

    void refuseToRemoveDomain(std::string const& domain)
    {
        EXPECT_THAT(sql("CREATE TRIGGER refuse_domain BEFORE DELETE ON domains WHEN OLD.name = '" +
                        domain + "' BEGIN SELECT RAISE(ABORT, 'refused'); END"),
                    ::testing::IsEmpty());
    }

    // Expects that the operation fails with these reports when its nth query of the panel, counted
    // from 1, fails. The connection stays open.
    void expectQueryFailure(std::function<int()> const& operation, int nth, List const& expected)
    {
        SCOPED_TRACE("query " + std::to_string(nth));
        LogRecorder::reports().clear();
        panel.spy.forget();
        int seen = 0;
        panel.spy.before = [&](int number) {
            std::string const& statement = panel.spy.statements[static_cast<size_t>(number) - 1];
            if (statement.find(" JOIN ") != std::string::npos && ++seen == nth)
                panel.spy.replace(statement, "SELECT * FROM gone");
        };
        EXPECT_EQ(operation(), -1);
        EXPECT_EQ(texts(), expected);
    }
};

#endif
