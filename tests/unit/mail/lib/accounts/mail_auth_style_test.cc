#include "mail/lib/accounts/mail_auth_style.h"

#include <gtest/gtest.h>

namespace {

class MailAuthStyle : public ::testing::Test
{
protected:
    void SetUp() override { first = mailAuthDB; }
    void TearDown() override { mailAuthDB = first; }

private:
    char const* first = nullptr;
};

} // namespace

TEST_F(MailAuthStyle, StartsAtTheQmailPath)
{
    EXPECT_STREQ(mailAuthDB, "/var/lib/orvek/mail/auth/passwd.db");
}

TEST_F(MailAuthStyle, HasTheThreeValues)
{
    EXPECT_EQ(MAIL_AUTH_DB_QMAIL_STYLE, 0);
    EXPECT_EQ(MAIL_AUTH_DB_POSTFIX_STYLE, 1);
    EXPECT_EQ(MAIL_AUTH_DB_INVALID_STYLE, -1);
}

TEST_F(MailAuthStyle, SelectsThePathOfEachStyle)
{
    mailAuthDBSelectStyle(MAIL_AUTH_DB_POSTFIX_STYLE);
    EXPECT_STREQ(mailAuthDB, "/var/spool/postfix/orvek/passwd.db");
    mailAuthDBSelectStyle(MAIL_AUTH_DB_QMAIL_STYLE);
    EXPECT_STREQ(mailAuthDB, "/var/lib/orvek/mail/auth/passwd.db");
}

TEST_F(MailAuthStyle, LeavesThePathAloneForAnyOtherValue)
{
    char const path[] = "/elsewhere/passwd.db";
    mailAuthDBSetPath(path);
    mailAuthDBSelectStyle(MAIL_AUTH_DB_INVALID_STYLE);
    EXPECT_EQ(mailAuthDB, path);
}

TEST_F(MailAuthStyle, StoresThePointerThatIsSet)
{
    char const path[] = "/elsewhere/passwd.db";
    mailAuthDBSetPath(path);
    EXPECT_EQ(mailAuthDB, path);
}
