#include "mail/lib/mail_database.h"

#include "mail/lib/mail_authenticate.h"
#include "support/child_run.h"
#include "support/panel_mail_test.h"
#include "support/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAre;

namespace {

constexpr char not_connected[] = "Unable to connect to mysql database";
constexpr char not_read[] = "Unable to get data from mysql database";
constexpr char aliases_not_read[] = "Unable to get domain aliases from database for: d.test";

// What a change to the authentication database says of a statement that a trigger refuses.
constexpr char not_set[] = "Unable to execute the mail authorization registration query: refused";
constexpr char not_removed[] = "Unable to execute the mail authorization removal query: refused";
constexpr char domain_not_removed[] =
    "Unable to execute the domain mail authorization removal query: refused";

using List = std::vector<std::string>;

class MailDatabaseOnHost : public PanelMailTest
{
protected:
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

    // A domain with a domain alias, in it a mailname with a mail alias, and all their users.
    void addJoeEverywhere()
    {
        addDomain("d.test", {"a.test"});
        addMailname("d.test", "joe", {"j"});
        addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"joe", "a.test"}, {"j", "a.test"}});
    }

    // From now on the database refuses to insert or delete this user.
    void refuse(std::string const& what, std::string const& name, std::string const& domain)
    {
        std::string const row = what == "DELETE" ? "OLD" : "NEW";
        EXPECT_THAT(sql("CREATE TRIGGER refuse_" + what + " BEFORE " + what + " ON users WHEN " +
                        row + ".name = '" + name + "' AND " + row +
                        ".dom_id = (SELECT id FROM domains WHERE name = '" + domain +
                        "') BEGIN SELECT RAISE(ABORT, 'refused'); END"),
                    IsEmpty());
    }

    void refuseToRemoveDomain(std::string const& domain)
    {
        EXPECT_THAT(sql("CREATE TRIGGER refuse_domain BEFORE DELETE ON domains WHEN OLD.name = '" +
                        domain + "' BEGIN SELECT RAISE(ABORT, 'refused'); END"),
                    IsEmpty());
    }

    // The operation fails with these reports when its nth query of the panel, counted from 1,
    // does; the one connection is there all the time.
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

std::vector<std::string> acted_on;

int noteDomain(char const* domain)
{
    acted_on.emplace_back(domain);
    return 0;
}

int refuseAlias(char const* domain)
{
    acted_on.emplace_back(domain);
    return strcmp(domain, "a.test") == 0 ? -1 : 0;
}

int refuseAll(char const*)
{
    return -1;
}

// What a fan-out of other functions would give.
int walkedOn(char const*)
{
    return 1;
}

} // namespace

TEST_F(MailDatabaseOnHost, SetsThePasswordOfOneRowWithoutDomainAliases)
{
    addDomain("d.test");
    EXPECT_EQ(set_passwd_for_domains("joe", "d.test", "secret", 0), 0);
    EXPECT_THAT(users(), ElementsAre("d.test|0|joe|secret|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, SetsThePasswordOnEachDomainAlias)
{
    addDomain("d.test", {"a.test", "b.test"});
    EXPECT_EQ(
        set_passwd_for_domains("joe", "d.test", "crypted", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED),
        1);
    EXPECT_THAT(users(), ElementsAre("a.test|0|joe|NULL|crypted|1", "b.test|0|joe|NULL|crypted|1",
                                     "d.test|0|joe|NULL|crypted|1"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, SetsNoMailAliasWhenAskedForDomainsAlone)
{
    addJoeEverywhere();
    EXPECT_EQ(set_passwd_for_domains("joe", "d.test", "new", 0), 1);
    EXPECT_THAT(users(), ElementsAre("a.test|0|j|secret|NULL|0", "a.test|0|joe|new|NULL|0",
                                     "d.test|0|j|secret|NULL|0", "d.test|0|joe|new|NULL|0"));
}

TEST_F(MailDatabaseOnHost, RemovesTheRowsOfAnEmptyPassword)
{
    for (char const* const nothing : {"", static_cast<char const*>(nullptr)}) {
        addDomain("d.test", {"a.test"});
        addUsers({{"joe", "d.test"}, {"joe", "a.test"}, {"ann", "d.test"}});
        EXPECT_EQ(set_passwd_for_domains("joe", "d.test", nothing, 0), 1);
        EXPECT_THAT(addresses(), ElementsAre("ann@d.test"));
        panel.sql("DELETE FROM domains");
        panel.sql("DELETE FROM domainaliases");
    }
}

TEST_F(MailDatabaseOnHost, ReportsAPasswordThatCannotBeSetAndAsksForNoAlias)
{
    addDomain("d.test", {"a.test"});
    addUsers({{"ann", "d.test"}});
    refuse("INSERT", "joe", "d.test");
    EXPECT_EQ(set_passwd_for_domains("joe", "d.test", "secret", 0), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set, "Unable to set password for mailname joe@d.test"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseOnHost, StopsAtTheFirstAliasWhosePasswordCannotBeSet)
{
    addDomain("d.test", {"a.test", "b.test", "c.test"});
    addUsers({{"ann", "b.test"}});
    refuse("INSERT", "joe", "b.test");
    EXPECT_EQ(set_passwd_for_domains("joe", "d.test", "secret", 0), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set)) << "with no further report";
    EXPECT_THAT(addresses(), ElementsAre("joe@a.test", "ann@b.test", "joe@d.test"));
}

TEST_F(MailDatabaseOnHost, ReportsDomainAliasesThatCannotBeReadAfterTheFirstRow)
{
    addDomain("d.test", {"a.test"});
    expectQueryFailure(
        [] { return set_passwd_for_domains("joe", "d.test", "secret", 0); }, 1,
        {not_read, aliases_not_read, "Unable to get domain aliases for domain d.test"});
    EXPECT_THAT(addresses(), ElementsAre("joe@d.test"));
    expectQueryFailure(
        [] { return rm_mname_from_domains("joe", "d.test"); }, 1,
        {not_read, aliases_not_read, "Unable to get domain aliases for domain d.test"});
    EXPECT_THAT(addresses(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, RemovesAUserFromTheDomainAndItsAliases)
{
    addJoeEverywhere();
    EXPECT_EQ(rm_mname_from_domains("joe", "d.test"), 1);
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "j@d.test"));
    EXPECT_EQ(rm_mname_from_domains("unknown", "d.test"), 1);
    EXPECT_EQ(rm_mname_from_domains("joe", "unknown.test"), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsAUserThatCannotBeRemovedAndAsksForNoAlias)
{
    addJoeEverywhere();
    panel.spy.forget();
    refuse("DELETE", "joe", "d.test");
    EXPECT_EQ(rm_mname_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mailname joe@d.test"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsTheAliasFromWhichAUserCannotBeRemoved)
{
    addDomain("d.test", {"a.test", "b.test", "c.test"});
    addUsers({{"joe", "a.test"}, {"joe", "b.test"}, {"joe", "c.test"}, {"joe", "d.test"}});
    refuse("DELETE", "joe", "b.test");
    EXPECT_EQ(rm_mname_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mailname joe@b.test"));
    EXPECT_THAT(addresses(), ElementsAre("joe@b.test", "joe@c.test"));
}

TEST_F(MailDatabaseOnHost, ActsOnTheDomainAndThenOnItsAliases)
{
    addDomain("d.test", {"a.test", "b.test"});
    acted_on.clear();
    EXPECT_EQ(domain_auth_action("d.test", noteDomain, "note"), 1);
    EXPECT_THAT(acted_on, UnorderedElementsAre("d.test", "a.test", "b.test"));
    EXPECT_EQ(acted_on[0], "d.test");
    EXPECT_EQ(domain_auth_action("unknown.test", noteDomain, "note"), 0);
    EXPECT_EQ(domain_auth_action("d.test", walkedOn, "walk"), 1) << "only -1 is a failure";
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, EnablesDisablesAndRemovesADomainWithItsAliases)
{
    addJoeEverywhere();
    EXPECT_EQ(domain_auth_action("d.test", mailAuthDisableDomain, "disable auth records"), 1);
    EXPECT_THAT(domains(), ElementsAre("a.test|1", "d.test|1"));
    EXPECT_EQ(domain_auth_action("d.test", mailAuthEnableDomain, "enable auth records"), 1);
    EXPECT_THAT(domains(), ElementsAre("a.test|0", "d.test|0"));
    EXPECT_EQ(domain_auth_action("d.test", mailAuthRemoveDomain, "remove auth record"), 1);
    EXPECT_THAT(domains(), IsEmpty());
    EXPECT_THAT(addresses(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsWhatCouldNotBeDoneForADomain)
{
    addDomain("d.test", {"a.test"});
    EXPECT_EQ(domain_auth_action("d.test", refuseAll, "100%s"), -1);
    EXPECT_THAT(texts(), ElementsAre("Unable to 100%s for domain d.test"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsWhatCouldNotBeDoneForADomainAlias)
{
    addDomain("d.test", {"a.test", "b.test"});
    acted_on.clear();
    EXPECT_EQ(domain_auth_action("d.test", refuseAlias, "do it"), -1);
    EXPECT_THAT(texts(), ElementsAre("Unable to do it for domain alias a.test"));
    EXPECT_EQ(acted_on.back(), "a.test") << "none after it";
}

TEST_F(MailDatabaseOnHost, ReportsAliasesOfADomainThatCannotBeRead)
{
    acted_on.clear();
    expectQueryFailure([] { return domain_auth_action("d.test", noteDomain, "note"); }, 1,
                       {not_read, aliases_not_read, "Unable to get aliases for domain d.test"});
    EXPECT_THAT(acted_on, ElementsAre("d.test"));
}

TEST_F(MailDatabaseOnHost, RemovesAMailnameWithAllItsAliases)
{
    addJoeEverywhere();
    addMailname("d.test", "ann");
    addUsers({{"ann", "d.test"}, {"ann", "a.test"}});
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), 1);
    EXPECT_THAT(addresses(), ElementsAre("ann@a.test", "ann@d.test"));
    EXPECT_EQ(rm_mails_from_domains("ann", "d.test"), 0) << "it has no mail alias";
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, RemovesTheSameRowTwice)
{
    addDomain("d.test");
    spy.forget();
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), 0);
    EXPECT_EQ(std::count(spy.calls.begin(), spy.calls.end(), "open"), 2);
}

TEST_F(MailDatabaseOnHost, ReportsAMailnameThatCannotBeRemoved)
{
    addJoeEverywhere();
    panel.spy.forget();
    refuse("DELETE", "joe", "d.test");
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mailname joe@d.test"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsAMailnameThatCannotBeRemovedFromADomainAlias)
{
    addJoeEverywhere();
    refuse("DELETE", "joe", "a.test");
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mailname joe@a.test",
                                     "Unable to remove mailname from domain aliases"));
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "joe@a.test", "j@d.test"));
}

TEST_F(MailDatabaseOnHost, ReportsAMailAliasThatCannotBeRemoved)
{
    addJoeEverywhere();
    refuse("DELETE", "j", "a.test");
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mailname j@a.test",
                                     "Unable to remove mailname from domain aliases"));
    EXPECT_THAT(addresses(), ElementsAre("j@a.test"));
}

TEST_F(MailDatabaseOnHost, ReportsListsThatCannotBeReadWhileItRemovesAMailname)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"j"});
    auto const remove = [] { return rm_mails_from_domains("joe", "d.test"); };
    List const of_domain = {not_read, aliases_not_read,
                            "Unable to get domain aliases for domain d.test",
                            "Unable to remove mailname from domain aliases"};
    expectQueryFailure(remove, 1, of_domain);
    expectQueryFailure(remove, 2,
                       {not_read, "Unable to get aliases for mailname: joe@d.test",
                        "Unable to get mail aliases for mailname joed.test"});
    expectQueryFailure(remove, 3, of_domain);
}

TEST_F(MailDatabaseOnHost, SetsThePasswordOfAMailnameAndAllItsAliases)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"j"});
    EXPECT_EQ(set_mass_postbox_passwd("joe", "d.test", "secret", 0), 1);
    EXPECT_THAT(users(), ElementsAre("a.test|0|j|secret|NULL|0", "a.test|0|joe|secret|NULL|0",
                                     "d.test|0|j|secret|NULL|0", "d.test|0|joe|secret|NULL|0"));
    addMailname("d.test", "ann");
    EXPECT_EQ(set_mass_postbox_passwd("ann", "d.test", "", 0), 0) << "it has no mail alias";
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, StopsAtTheFirstMailAliasWhosePasswordCannotBeSet)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"i", "j", "k"});
    addUsers({{"ann", "d.test"}});
    refuse("INSERT", "j", "d.test");
    EXPECT_EQ(set_mass_postbox_passwd("joe", "d.test", "secret", 0), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set, "Unable to set password for mailname j@d.test"));
    EXPECT_THAT(addresses(),
                ElementsAre("i@a.test", "joe@a.test", "ann@d.test", "i@d.test", "joe@d.test"));
}

TEST_F(MailDatabaseOnHost, ReportsListsThatCannotBeReadWhileItSetsPasswords)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"j"});
    auto const set = [] { return set_mass_postbox_passwd("joe", "d.test", "secret", 0); };
    List const of_domain = {not_read, aliases_not_read,
                            "Unable to get domain aliases for domain d.test"};
    expectQueryFailure(set, 1, of_domain);
    expectQueryFailure(set, 2, {not_read, "Unable to get aliases for mailname: joe@d.test"});
    expectQueryFailure(set, 3, of_domain);
}

TEST_F(MailDatabaseOnHost, NeverReportsAPassword)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"j"});
    addUsers({{"ann", "d.test"}, {"ann", "a.test"}});
    refuse("INSERT", "j", "a.test");
    EXPECT_EQ(set_mass_postbox_passwd("joe", "d.test", "not-to-be-seen", 0), -1);
    panel.stop();
    EXPECT_EQ(set_mass_postbox_passwd("joe", "d.test", "not-to-be-seen", 0), -1);
    for (std::string const& text : texts())
        EXPECT_EQ(text.find("not-to-be-seen"), std::string::npos) << text;
}

TEST_F(MailDatabaseOnHost, CopiesUsersAndTheirMailAliasesToANewDomainAlias)
{
    addDomain("d.test");
    addMailname("d.test", "joe", {"j", "jo"});
    addMailname("d.test", "ann");
    addMailname("d.test", "nobox", {"none"});
    addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"ann", "d.test"}, {"stray", "d.test"}});
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), 1);
    EXPECT_THAT(addresses(), ElementsAre("ann@a.test", "j@a.test", "joe@a.test", "ann@d.test",
                                         "j@d.test", "joe@d.test", "stray@d.test"));
    EXPECT_EQ(add_domain_auth_alias("unknown.test", "a.test"), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, CopiesPasswordsAndTheDisabledState)
{
    addDomain("d.test");
    addMailname("d.test", "joe");
    addMailname("d.test", "ann");
    EXPECT_EQ(mailAuthSet("joe", "d.test", "crypted", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("ann", "d.test", "plain", 0), 0);
    EXPECT_EQ(mailAuthDisableDomain("d.test"), 0);
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), 1);
    EXPECT_THAT(users(),
                IsSupersetOf({"a.test|1|ann|plain|NULL|0", "a.test|1|joe|NULL|crypted|1"}));
}

TEST_F(MailDatabaseOnHost, ClonesTheMailAliasesBeforeTheirMailname)
{
    addDomain("d.test");
    addMailname("d.test", "joe", {"j"});
    addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"x", "a.test"}});
    refuse("INSERT", "joe", "a.test");
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set, "Unable to clone auth record for joe@d.test"));
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "x@a.test", "j@d.test", "joe@d.test"));
}

TEST_F(MailDatabaseOnHost, EndsWithTheFirstUserThatCannotBeCloned)
{
    addDomain("d.test");
    addMailname("d.test", "joe", {"j"});
    addMailname("d.test", "zed");
    addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"zed", "d.test"}, {"x", "a.test"}});
    refuse("INSERT", "j", "a.test");
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set, "Unable to clone auth record for j@d.test"));
    EXPECT_THAT(addresses(), ElementsAre("x@a.test", "j@d.test", "joe@d.test", "zed@d.test"));
}

TEST_F(MailDatabaseOnHost, ReportsListsThatCannotBeReadWhileItAddsADomainAlias)
{
    addDomain("d.test");
    addMailname("d.test", "joe");
    auto const add = [] { return add_domain_auth_alias("d.test", "a.test"); };
    expectQueryFailure(add, 1,
                       {not_read, "Unable to get mailnames from domain: d.test",
                        "Unable to get mailnames from domain d.test"});
    expectQueryFailure(add, 2,
                       {not_read, "Unable to get aliases for mailname: joe@d.test",
                        "Unable to get mail aliases for joe@d.test"});
}

TEST_F(MailDatabaseOnHost, RemovesTheRowsOfADomainAlias)
{
    addJoeEverywhere();
    EXPECT_EQ(rm_domain_auth_alias("a.test"), 0) << "never 1";
    EXPECT_THAT(addresses(), ElementsAre("j@d.test", "joe@d.test"));
    EXPECT_THAT(domains(), ElementsAre("d.test|0"));
    EXPECT_THAT(queries(), ElementsAre("SELECT d.name FROM domains d JOIN domainaliases da WHERE "
                                       "d.id=da.dom_id AND da.name='a.test'",
                                       "SELECT m.mail_name FROM mail m JOIN domains d WHERE "
                                       "m.dom_id=d.id AND d.name='d.test'",
                                       "SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains "
                                       "d WHERE ma.mn_id=m.id AND m.mail_name='joe' AND "
                                       "m.dom_id=d.id AND d.name='d.test'"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, RemovesADomainAliasThatThePanelDoesNotKnow)
{
    addUsers({{"joe", "a.test"}});
    EXPECT_EQ(rm_domain_auth_alias("a.test"), 0);
    EXPECT_THAT(domains(), IsEmpty());
    EXPECT_EQ(queries().size(), 1U);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsADomainAliasThatCannotBeRemoved)
{
    addJoeEverywhere();
    panel.spy.forget();
    refuseToRemoveDomain("a.test");
    EXPECT_EQ(rm_domain_auth_alias("a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(domain_not_removed,
                                     "Unable to remove domain a.test from auth database"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseOnHost, ReportsListsThatCannotBeReadWhileItRemovesADomainAlias)
{
    addDomain("d.test", {"a.test"});
    addMailname("d.test", "joe", {"j"});
    auto const remove = [] { return rm_domain_auth_alias("a.test"); };
    expectQueryFailure(remove, 1,
                       {not_read, "Unable to get domain by domainalias: a.test",
                        "Unable to get domain by domain alias a.test"});
    expectQueryFailure(remove, 2,
                       {not_read, "Unable to get mailnames from domain: d.test",
                        "Unable to get mailnames from domain a.test"});
    expectQueryFailure(remove, 3,
                       {not_read, "Unable to get aliases for mailname: joe@d.test",
                        "Unable to get aliases for mailname joe@d.test"});
}

TEST_F(MailDatabaseOnHost, ReportsAMailAliasThatCannotBeRemovedFromADomainAlias)
{
    addJoeEverywhere();
    spy.forget();
    spy.fault("open", 2); // the first one is the domain's removal
    EXPECT_EQ(rm_domain_auth_alias("a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre("Unable to open database " + path + ": general DB errror",
                                     "Unable to remove mail alias j@a.test"));
}

TEST_F(MailDatabaseOnHost, ReportsAMissingConnectionWithWhatItWasFor)
{
    addUsers({{"joe", "d.test"}});
    panel.stop();
    EXPECT_EQ(rm_mails_from_domains("joe", "d.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_connected, aliases_not_read,
                                     "Unable to get domain aliases for domain d.test",
                                     "Unable to remove mailname from domain aliases"));
    EXPECT_THAT(addresses(), IsEmpty()) << "the first row is gone all the same";
}

TEST_F(MailDatabaseOnHost, LivesThroughAConnectionThatBreaksInTheMiddle)
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

TEST_F(MailDatabaseOnHost, ReportsAServerThatStopsInTheMiddleAsOneThatCannotBeReached)
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

TEST_F(MailDatabaseOnHost, TakesOddNamesAsTheyAre)
{
    // Without escaping such a name is part of the statement. Here it adds a domain alias.
    addDomain("x");
    EXPECT_EQ(set_passwd_for_domains("50%s%n", "x' UNION SELECT 'more.test", "secret", 0), 1);
    EXPECT_THAT(addresses(), ElementsAre("50%s%n@more.test", "50%s%n@x' UNION SELECT 'more.test"));
    EXPECT_EQ(set_passwd_for_domains("caf\xc3\xa9\\", "d\xff.test", "secret", 0), -1);
    EXPECT_THAT(texts(),
                ElementsAre(not_read, "Unable to get domain aliases from database for: d\xff.test",
                            "Unable to get domain aliases for domain d\xff.test"));
    EXPECT_EQ(rm_mails_from_domains("o'hara", "x"), -1);
    EXPECT_EQ(texts().back(), "Unable to get mail aliases for mailname o'harax");
    EXPECT_EQ(rm_mails_from_domains("back\\", "x"), -1);
    EXPECT_EQ(texts().back(), "Unable to get mail aliases for mailname back\\x");
}
