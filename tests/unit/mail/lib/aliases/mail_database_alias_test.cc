#include "mail/lib/aliases/mail_database.h"

#include "unit/mail/lib/aliases/mail_database_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <string>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

namespace {

using MailDatabaseAliasOnHost = MailDatabaseTest;

} // namespace

TEST_F(MailDatabaseAliasOnHost, CopiesUsersAndAliasesToANewDomainAlias)
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

TEST_F(MailDatabaseAliasOnHost, CopiesPasswordsAndTheDisabledState)
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

TEST_F(MailDatabaseAliasOnHost, ClonesTheMailAliasesBeforeTheirMailname)
{
    addDomain("d.test");
    addMailname("d.test", "joe", {"j"});
    addUsers({{"joe", "d.test"}, {"j", "d.test"}, {"x", "a.test"}});
    refuse("INSERT", "joe", "a.test");
    EXPECT_EQ(add_domain_auth_alias("d.test", "a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_set, "Unable to clone auth record for joe@d.test"));
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "x@a.test", "j@d.test", "joe@d.test"));
}

TEST_F(MailDatabaseAliasOnHost, EndsWithTheFirstUserThatCannotBeCloned)
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

TEST_F(MailDatabaseAliasOnHost, ReportsUnreadableListsWhenItAddsADomainAlias)
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

TEST_F(MailDatabaseAliasOnHost, RemovesTheRowsOfADomainAlias)
{
    addJoeEverywhere();
    EXPECT_EQ(rm_domain_auth_alias("a.test"), 0) << "never 1";
    EXPECT_THAT(addresses(), ElementsAre("j@d.test", "joe@d.test"));
    EXPECT_THAT(domains(), ElementsAre("d.test|0"));
    EXPECT_THAT(queries(), ElementsAre("SELECT d.name FROM domains d JOIN domainaliases da WHERE "
                                       "d.id=da.dom_id AND da.name='a.test'",
                                       "SELECT m.mail_name FROM mail m JOIN domains d WHERE "
                                       "m.dom_id=d.id AND d.name='d.test'",
                                       "SELECT m.mail_name, ma.alias FROM mail_aliases ma JOIN "
                                       "mail m, domains d WHERE ma.mn_id=m.id AND m.dom_id=d.id "
                                       "AND d.name='d.test'"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseAliasOnHost, RemovesADomainAliasThatThePanelDoesNotKnow)
{
    addUsers({{"joe", "a.test"}});
    EXPECT_EQ(rm_domain_auth_alias("a.test"), 0);
    EXPECT_THAT(domains(), IsEmpty());
    EXPECT_EQ(queries().size(), 1U);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseAliasOnHost, ReportsADomainAliasThatCannotBeRemoved)
{
    addJoeEverywhere();
    panel.spy.forget();
    refuseToRemoveDomain("a.test");
    EXPECT_EQ(rm_domain_auth_alias("a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(domain_not_removed,
                                     "Unable to remove domain a.test from auth database"));
    EXPECT_THAT(panel.spy.statements, IsEmpty());
}

TEST_F(MailDatabaseAliasOnHost, ReportsUnreadableListsWhenItRemovesADomainAlias)
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

TEST_F(MailDatabaseAliasOnHost, ReportsAMailAliasThatStaysInADomainAlias)
{
    addJoeEverywhere();
    // The domain comes back with another row of the mail alias, which stays.
    sql("CREATE TRIGGER back AFTER DELETE ON domains BEGIN INSERT INTO domains (name) VALUES "
        "(OLD.name); INSERT INTO users (dom_id, name) SELECT id, 'j' FROM domains WHERE name = "
        "OLD.name; END");
    sql("CREATE TRIGGER stays BEFORE DELETE ON users WHEN OLD.userPassword IS NULL BEGIN SELECT "
        "RAISE(ABORT, 'refused'); END");
    EXPECT_EQ(rm_domain_auth_alias("a.test"), -1);
    EXPECT_THAT(texts(), ElementsAre(not_removed, "Unable to remove mail alias j@a.test"));
    EXPECT_THAT(addresses(), ElementsAre("j@a.test", "j@d.test", "joe@d.test"));
}

TEST_F(MailDatabaseAliasOnHost, ChangesAllAccountsInOneTransactionEach)
{
    addJoeEverywhere();
    addMailname("d.test", "ann", {"a"});
    addUsers({{"ann", "d.test"}, {"a", "d.test"}});
    auto const add = [] { return add_domain_auth_alias("d.test", "b.test"); };
    auto const remove = [] { return rm_domain_auth_alias("a.test"); };
    auto const set = [] { return set_mass_postbox_passwd("joe", "d.test", "new", 0); };
    auto const clear = [] { return rm_mails_from_domains("joe", "d.test"); };
    auto const off = [] { return domain_auth_action("d.test", mailAuthDisableDomain, "turn off"); };
    for (std::function<int()> const& change :
         std::initializer_list<std::function<int()>>{add, set, clear, off, remove}) {
        spy.forget();
        EXPECT_NE(change(), -1);
        EXPECT_EQ(std::count(spy.calls.begin(), spy.calls.end(), "open_v2"), 1);
        EXPECT_LE(std::count(spy.calls.begin(), spy.calls.end(), "exec"), 3) << "one commit";
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailDatabaseAliasOnHost, FailsWithoutAnyChangeWhenTheCommitDoes)
{
    addJoeEverywhere();
    addMailname("d.test", "ann");
    List const before = addresses();
    spy.forget();
    spy.fault("exec", 2);
    EXPECT_EQ(add_domain_auth_alias("d.test", "b.test"), -1);
    EXPECT_THAT(texts(),
                ElementsAre("Unable to commit the changes of database " + path + ": not an error"));
    EXPECT_EQ(addresses(), before);
}
