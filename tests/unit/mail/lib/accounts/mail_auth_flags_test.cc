#include "mail/lib/accounts/mail_auth_flags.h"

#include <gtest/gtest.h>

#include <limits>

// Other programs of the panel know the flags by these numbers.
TEST(MailAuthFlags, HaveTheirNumbersInEightBits)
{
    EXPECT_EQ(MAIL_AUTH_CRYPTED, 1);
    EXPECT_EQ(MAIL_AUTH_DISABLED, 2);
    EXPECT_EQ(MAIL_DOMAIN_AUTH_DISABLED, 4);
    EXPECT_EQ(MAIL_AUTH_DO_NOT_CHANGE, 8);
    EXPECT_EQ(std::numeric_limits<MailAuthFlagsT>::max(), 255);
    EXPECT_FALSE(std::numeric_limits<MailAuthFlagsT>::is_signed);
}
