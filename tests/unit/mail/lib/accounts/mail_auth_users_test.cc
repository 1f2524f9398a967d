#include "mail/lib/accounts/mail_auth_users.h"

#include "mail/lib/accounts/mail_auth_domains.h"
#include "support/auth_database_test.h"
#include "support/auth_user_data.h"
#include "support/fd_census.h"
#include "support/odd_names.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::SizeIs;

namespace {

class MailAuthUsers : public AuthDatabaseTest
{
};

} // namespace

TEST_F(MailAuthUsers, SetAPlainPassword)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "secret", 0), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|secret|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, SetAnEncryptedPassword)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "$1$x", MAIL_AUTH_CRYPTED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|$1$x|0"));
}

TEST_F(MailAuthUsers, DisableTheUserByItsOwnFlag)
{
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", MAIL_AUTH_DISABLED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|1"));
}

TEST_F(MailAuthUsers, RegisterAnUnknownDomainAsTheDomainFlagSays)
{
    EXPECT_EQ(mailAuthSet("joe", "on.com", "pw", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "new.com", "pw", MAIL_AUTH_DO_NOT_CHANGE), 0);
    EXPECT_THAT(domains(), ElementsAre("new.com|0", "off.com|1", "on.com|0"));
}

TEST_F(MailAuthUsers, LeaveAKnownDomainItsStatus)
{
    sql("INSERT INTO domains (name, status) VALUES ('on.com', 0), ('off.com', 1)");
    EXPECT_EQ(mailAuthSet("joe", "on.com", "pw", MAIL_DOMAIN_AUTH_DISABLED), 0);
    EXPECT_EQ(mailAuthSet("joe", "off.com", "pw", 0), 0);
    EXPECT_THAT(domains(), ElementsAre("off.com|1", "on.com|0"));
}

TEST_F(MailAuthUsers, ReplaceTheWholeRow)
{
    mailAuthSet("joe", "a.com", "plain", MAIL_AUTH_DISABLED);
    std::vector<std::string> const id = sql("SELECT id FROM users");
    EXPECT_EQ(mailAuthSet("joe", "a.com", "crypted", MAIL_AUTH_CRYPTED), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|crypted|0"));
    EXPECT_NE(sql("SELECT id FROM users"), id);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "plain again", 0), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|plain again|NULL|0"));
}

TEST_F(MailAuthUsers, KeepTheRegisteredDomainWhenTheUserFails)
{
    sql("CREATE TRIGGER no BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'no %s users'); END");
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to execute the mail authorization "
                                               "registration query: no %s users")));
}

TEST_F(MailAuthUsers, RemoveOneUserOfOneDomain)
{
    for (char const* const domain : {"a.com", "b.com"})
        for (char const* const name : {"ann", "joe"})
            mailAuthSet(name, domain, "pw", 0);
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|ann|pw|NULL|0", "b.com|0|ann|pw|NULL|0",
                                     "b.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsers, RemoveNobodyWithoutAReport)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthRemove("ann", "a.com"), 0);
    EXPECT_EQ(mailAuthRemove("joe", "b.com"), 0);
    EXPECT_THAT(users(), SizeIs(1));
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, RenameOneUserOfOneDomain)
{
    mailAuthSet("joe", "a.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    mailAuthSet("joe", "b.com", "pw", 0);
    EXPECT_EQ(mailAuthRename("joe", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|jim|NULL|x|1", "b.com|0|joe|pw|NULL|0"));
}

TEST_F(MailAuthUsers, TakeTheRenamingOfNobodyForASuccess)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthRename("ann", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, RefuseARenameInAnUnknownDomain)
{
    EXPECT_EQ(mailAuthRename("joe", "jim", "%s.com"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "No such domain '%s.com' in the mail authentication DB")));
    EXPECT_THAT(domains(), IsEmpty());
}

TEST_F(MailAuthUsers, RefuseARenameOntoAnother)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    mailAuthSet("jim", "a.com", "pw2", 0);
    EXPECT_EQ(mailAuthRename("joe", "jim", "a.com"), -1);
    EXPECT_THAT(users(), SizeIs(2));
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to execute the mail authorization renaming query: "
                                    "UNIQUE constraint failed: users.name, users.dom_id")));
}

TEST_F(MailAuthUsers, CloneAPlainOrEncryptedPasswordWithItsFlags)
{
    mailAuthSet("plain", "a.com", "pw", 0);
    mailAuthSet("crypted", "a.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    EXPECT_EQ(mailAuthClone("plain", "a.com", "plain2", "a.com"), 0);
    EXPECT_EQ(mailAuthClone("crypted", "a.com", "crypted", "b.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|crypted|NULL|x|1", "a.com|0|plain|pw|NULL|0",
                                     "a.com|0|plain2|pw|NULL|0", "b.com|0|crypted|NULL|x|1"));
}

TEST_F(MailAuthUsers, CloneADisabledDomainsUserIntoADisabledDomain)
{
    mailAuthSet("joe", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED);
    EXPECT_EQ(mailAuthClone("joe", "off.com", "joe", "alias.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("alias.com|1", "off.com|1"));
    mailAuthEnableDomain("alias.com");
    EXPECT_EQ(mailAuthClone("joe", "off.com", "jim", "alias.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("alias.com|0", "off.com|1"));
}

TEST_F(MailAuthUsers, CloneNobodyQuietly)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthClone("ann", "a.com", "ann", "b.com"), 0);
    EXPECT_EQ(mailAuthClone("joe", "nowhere.com", "joe", "b.com"), 0);
    EXPECT_THAT(domains(), ElementsAre("a.com|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, CloneAUserWithoutAnyPassword)
{
    sql("INSERT INTO domains (id, name) VALUES (1, 'a.com');"
        "INSERT INTO users (name, dom_id) VALUES ('joe', 1)");
    EXPECT_EQ(mailAuthClone("joe", "a.com", "jim", "a.com"), 0);
    EXPECT_THAT(users(), ElementsAre("a.com|0|jim|NULL|NULL|0", "a.com|0|joe|NULL|NULL|0"));
}

TEST_F(MailAuthUsers, ReportACloneWhoseSourceCannotBeRead)
{
    unlink(path.c_str());
    EXPECT_EQ(mailAuthClone("joe", "a.com", "joe", "b.com"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to open database(readonly) " + path +
                                        ": unable to open database file"),
                            Pair(3, "Unable to get users list from MTA password database")));
}

TEST_F(MailAuthUsers, GiveTheResultOfACloneThatCannotBeWritten)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    sql("CREATE TRIGGER no BEFORE INSERT ON users BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_EQ(mailAuthClone("joe", "a.com", "jim", "a.com"), -1);
    EXPECT_THAT(reports(), SizeIs(1));
}

TEST_F(MailAuthUsers, RemoveTheUserWhenThereIsNoPasswordToSet)
{
    for (char const* const none : {static_cast<char const*>(nullptr), ""}) {
        EXPECT_EQ(set_postbox_passwd("joe", "a.com", "pw", MAIL_AUTH_CRYPTED), 0);
        EXPECT_THAT(users(), ElementsAre("a.com|0|joe|NULL|pw|0"));
        EXPECT_EQ(set_postbox_passwd("joe", "a.com", none, MAIL_AUTH_CRYPTED), 0);
        EXPECT_THAT(users(), IsEmpty());
    }
}

TEST_F(MailAuthUsers, FailToSetAPasswordWithMinusOne)
{
    spy.fault("step", 1);
    EXPECT_EQ(set_postbox_passwd("joe", "a.com", "pw", 0), -1);
}

TEST_F(MailAuthUsers, KeepNamesAndPasswordsByteByByte)
{
    std::vector<std::string> const& names = oddNames();
    for (size_t i = 0; i < names.size(); ++i) {
        char const* const name = names[i].c_str();
        char const* const domain = names[(i + 1) % names.size()].c_str();
        std::string const& password = names[(i + 2) % names.size()];
        EXPECT_EQ(mailAuthSet(name, domain, password.c_str(), 0), 0);
        EXPECT_EQ(dataOf(name, domain), names[i] + "|" + password + "|0");
        EXPECT_EQ(mailAuthClone(name, domain, domain, name), 0);
        EXPECT_EQ(dataOf(domain, name), std::string(domain) + "|" + password + "|0");
        EXPECT_EQ(mailAuthRename(domain, "%d'", name), 0);
        EXPECT_EQ(dataOf("%d'", name), "%d'|" + password + "|0");
        EXPECT_EQ(mailAuthRemove("%d'", name), 0);
        EXPECT_EQ(mailAuthRemove(name, domain), 0);
        EXPECT_THAT(users(), IsEmpty());
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUsers, HoldNoFileBetweenCalls)
{
    std::set<int> const before = openDescriptors();
    mailAuthSet("joe", "a.com", "pw", 0);
    mailAuthClone("joe", "a.com", "ann", "b.com");
    mailAuthRename("joe", "jim", "a.com");
    mailAuthRename("joe", "jim", "nowhere.com");
    mailAuthRemove("jim", "a.com");
    mailAuthRemove("jim", "nowhere.com");
    dataOf("ann", "b.com");
    dataOf("joe", "nowhere.com");
    EXPECT_EQ(openDescriptors(), before);
}
