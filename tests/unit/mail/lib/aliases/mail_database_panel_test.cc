#include "mail/lib/aliases/mail_database.h"

#include "lib/panel/dbconnect.h"
#include "support/child_run.h"
#include "support/odd_names.h"
#include "support/report.h"
#include "unit/mail/lib/aliases/mail_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class MailDatabasePanelOnHost : public MailDatabaseTest
{
protected:
    // Expects that the operation's first statement to the panel is this one.
    void expectFirstQuery(std::function<int()> const& operation, std::string const& expected)
    {
        panel.spy.forget();
        int const result = operation();
        EXPECT_TRUE(result == 0 || result == -1) << result;
        List const seen = queries();
        EXPECT_EQ(seen.empty() ? "none" : seen[0], expected);
    }
};

int leaveAlone(char const*)
{
    return 0;
}

} // namespace

TEST_F(MailDatabasePanelOnHost, ReportsAMissingConnectionWithWhatItWasFor)
{
    addUsers({{"joe", "d.test"}});
    panel.stop();
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_connected, aliases_not_read,
                                     "Unable to get domain aliases for domain d.test",
                                     "Unable to remove mailname from domain aliases"));
    EXPECT_THAT(addresses(), IsEmpty()) << "the first row is gone all the same";
}

TEST_F(MailDatabasePanelOnHost, LivesThroughAConnectionThatBreaksInTheMiddle)
{
    addJoeEverywhere();
    int queries_seen = 0;
    panel.spy.before = [&](int number) {
        std::string const& statement = panel.spy.statements[static_cast<size_t>(number) - 1];
        if (statement.find(" JOIN ") != std::string::npos && ++queries_seen == 2)
            panel.killConnections();
    };
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), 1);
    EXPECT_EQ(panel.spy.connects.size(), 2U);
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabasePanelOnHost, ReportsAServerThatStopsMidwayAsUnreachable)
{
    addJoeEverywhere();
    panel.spy.before = [&](int number) {
        if (panel.spy.statements[static_cast<size_t>(number) - 1].find("mail_aliases") !=
            std::string::npos)
            panel.stop();
    };
    auto const run = inChild([] {
        orvek_logv = _orvek_utility_logv;
        return rm_mails_from_domains("joe", "d.test") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("Unable to connect to Orvek Database: Can't connect to local "
                                 "server through socket '/run/mysqld/mysqld.sock' (2)",
                                 ENOENT) +
                           not_connected +
                           "\nUnable to get aliases for mailname: joe@d.test\n"
                           "Unable to get mail aliases for mailname joed.test\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "j@d.test"));
}

TEST_F(MailDatabasePanelOnHost, TakesStatementsInNamesAsNames)
{
    addDomain("x");
    EXPECT_EQ(set_passwd_for_domains("50%s%n", "x' UNION SELECT 'more.test", "secret", 0), 0);
    EXPECT_THAT(addresses(), ElementsAre("50%s%n@x' UNION SELECT 'more.test"));
    EXPECT_EQ(rm_mails_from_domains("o'hara", "x"), 0);
    EXPECT_EQ(rm_mails_from_domains("back\\", "x"), 0);
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(MailDatabasePanelOnHost, PutsAllNamesIntoTheStatementsEscaped)
{
    OpenMysql const my(mysql_init(nullptr)); // can escape without a server
    for (std::string const& odd : oddNames()) {
        char const* const name = odd.c_str();
        SCOPED_TRACE(odd.substr(0, 40));
        std::string text(2 * odd.size() + 1, '\0');
        text.resize(mysql_real_escape_string(my.get(), text.data(), name, odd.size()));
        std::string const aliases = "SELECT da.name FROM domainaliases da JOIN domains d WHERE "
                                    "da.dom_id=d.id and d.name='" +
                                    text + "'";
        std::string const mailnames =
            "SELECT m.mail_name FROM mail m JOIN domains d WHERE m.dom_id=d.id AND d.name='" +
            text + "'";
        expectFirstQuery([=] { return set_passwd_for_domains(name, name, "secret", 0); }, aliases);
        expectFirstQuery([=] { return rm_mname_from_domains(name, name); }, aliases);
        expectFirstQuery([=] { return domain_auth_action(name, leaveAlone, "leave"); }, aliases);
        expectFirstQuery([=] { return set_mass_postbox_passwd(name, name, "secret", 0); }, aliases);
        expectFirstQuery([=] { return rm_mails_from_domains(name, name); }, aliases);
        expectFirstQuery([=] { return add_domain_auth_alias(name, "a.test"); }, mailnames);
        expectFirstQuery([=] { return rm_domain_auth_alias(name); },
                         "SELECT d.name FROM domains d JOIN domainaliases da WHERE d.id=da.dom_id "
                         "AND da.name='" +
                             text + "'");
    }
}

TEST_F(MailDatabasePanelOnHost, CopiesAMailnameWithAQuote)
{
    addDomain("d.test");
    addMailname("d.test", "o\\'hara", {"d\\'arcy"});
    ASSERT_EQ(mailAuthSet("o'hara", "d.test", "secret", 0), 0);
    ASSERT_EQ(mailAuthSet("d'arcy", "d.test", "secret", 0), 0);
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), 1);
    EXPECT_THAT(addresses(),
                ElementsAre("d'arcy@a.test", "o'hara@a.test", "d'arcy@d.test", "o'hara@d.test"));
}
