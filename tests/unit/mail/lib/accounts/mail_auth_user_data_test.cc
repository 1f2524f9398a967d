#include "mail/lib/accounts/mail_auth_users.h"

#include "support/auth_database_test.h"
#include "support/auth_user_data.h"
#include "support/memory_faults.h"

using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class MailAuthUserData : public AuthDatabaseTest
{
};

} // namespace

TEST_F(MailAuthUserData, ReadAPlainPassword)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(dataOf("joe", "a.com"), "joe|pw|0");
}

TEST_F(MailAuthUserData, ReadAnEncryptedPasswordBeforeAPlainOne)
{
    sql("INSERT INTO domains (id, name) VALUES (1, 'a.com');"
        "INSERT INTO users (name, dom_id, userPassword, cmusaslsecretPLAIN) VALUES "
        "('both', 1, 'plain', 'crypted'), ('empty', 1, 'plain', ''), ('none', 1, NULL, NULL)");
    EXPECT_EQ(dataOf("both", "a.com"), "both|crypted|1");
    EXPECT_EQ(dataOf("empty", "a.com"), "empty||1");
    EXPECT_EQ(dataOf("none", "a.com"), "none|(null)|0");
}

TEST_F(MailAuthUserData, ReadEachStatusAsItsFlag)
{
    mailAuthSet("on", "on.com", "pw", 0);
    mailAuthSet("off", "on.com", "pw", MAIL_AUTH_DISABLED);
    mailAuthSet("on", "off.com", "pw", MAIL_DOMAIN_AUTH_DISABLED);
    mailAuthSet("off", "off.com", "x", MAIL_AUTH_CRYPTED | MAIL_AUTH_DISABLED);
    EXPECT_EQ(dataOf("on", "on.com"), "on|pw|0");
    EXPECT_EQ(dataOf("off", "on.com"), "off|pw|2");
    EXPECT_EQ(dataOf("on", "off.com"), "on|pw|4");
    EXPECT_EQ(dataOf("off", "off.com"), "off|x|7");
    sql("UPDATE domains SET status=5; UPDATE users SET status=-1");
    EXPECT_EQ(dataOf("on", "on.com"), "on|pw|6");
}

TEST_F(MailAuthUserData, ReadNobodyWithoutAReport)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(dataOf("ann", "a.com"), "0");
    EXPECT_EQ(dataOf("joe", "b.com"), "0");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthUserData, LeaveNothingOfARecordThatWasUsedBefore)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    char stale[] = "stale";
    for (auto const& [name, domain] : {std::pair("ann", "a.com"), std::pair("joe", "b.com")}) {
        passwd_type_t data = {stale, stale, MAIL_AUTH_DISABLED};
        EXPECT_EQ(get_user_data(&data, name, domain), 0);
        EXPECT_EQ(data.name, nullptr);
        EXPECT_EQ(data.passwd, nullptr);
        EXPECT_EQ(data.flags, 0);
    }
}

TEST_F(MailAuthUserData, ReportEachFailureToRead)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    char stale[] = "stale";
    auto const read = [&stale] {
        passwd_type_t data = {stale, stale, MAIL_AUTH_DISABLED};
        int const result = get_user_data(&data, "joe", "a.com");
        EXPECT_EQ(data.name, nullptr);
        EXPECT_EQ(data.passwd, nullptr);
        return result;
    };
    std::string const bind = "Unable to bind parameter ";
    expectFailure(read, "prepare_v2", 1, -1,
                  {notPrepared("SELECT id, status FROM domains WHERE name=?", not_run)});
    expectFailure(read, "bind_text", 1, -1, {bind + "domain id for: a.com" + no_place});
    expectFailure(read, "step", 1, -1,
                  {std::string("Unable to get domain id") + not_run,
                   "Unable to get mail domain id for: a.com"});
    expectFailure(read, "prepare_v2", 2, -1,
                  {notPrepared("SELECT name, userPassword, cmusaslsecretPLAIN, status FROM users "
                               "WHERE dom_id=? AND name=?",
                               not_run)});
    expectFailure(read, "bind_int64", 1, -1, {bind + "bind domain id for: a.com" + no_place});
    expectFailure(read, "bind_text", 2, -1, {bind + "bind mailname joe" + no_place});
    expectFailure(read, "step", 2, -1,
                  {std::string("Unable to get passwd for mailname: joe") + not_run});
}

TEST_F(MailAuthUserData, SayThatTheCopyOfARowHasNoMemory)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    int refused_copies = 0;
    for (int number = 1; number < 60; ++number) {
        LogRecorder::reports().clear();
        passwd_type_t data = {};
        int result = 0;
        {
            AllocationFailure const failure(number);
            result = get_user_data(&data, "joe", "a.com");
        }
        CString const name(data.name);
        CString const passwd(data.passwd);
        if (result != 1) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(name, nullptr);
            EXPECT_EQ(passwd, nullptr);
            EXPECT_THAT(reports(), Not(IsEmpty()));
        }
        if (reports() == std::vector<Report>{{3, "System error: Cannot allocate memory"}})
            ++refused_copies;
    }
    EXPECT_EQ(refused_copies, 2);
}
