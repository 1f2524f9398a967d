#include "mail/lib/aliases/mail_database.h"

#include "unit/mail/lib/aliases/mail_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

using MailDatabaseOnHost = MailDatabaseTest;

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

// Returns 1, as a function that visits further names does.
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

TEST_F(MailDatabaseOnHost, SetsNoMailAliasWhenAskedOnlyForDomains)
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

TEST_F(MailDatabaseOnHost, AsksForNoAliasAfterAFailedPassword)
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

TEST_F(MailDatabaseOnHost, ReportsUnreadableDomainAliasesAfterTheFirstRow)
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

TEST_F(MailDatabaseOnHost, AsksForNoAliasAfterAFailedRemoval)
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
    EXPECT_EQ(std::count(spy.calls.begin(), spy.calls.end(), "step"), 2) << "of the look-up";
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

TEST_F(MailDatabaseOnHost, ReportsAMailnameThatStaysInADomainAlias)
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

TEST_F(MailDatabaseOnHost, ReportsUnreadableListsWhenItRemovesAMailname)
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

TEST_F(MailDatabaseOnHost, StopsAtTheFirstMailAliasWithoutItsPassword)
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
