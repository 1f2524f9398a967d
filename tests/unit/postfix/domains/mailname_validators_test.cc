#include "postfix/domains/mailname_validators.h"

#include <gtest/gtest.h>

#include <stdexcept>

using orvek::mail::postfix::mailname_validators::mailValidateExc;

TEST(MailValidateExc, LetsAValidNamePass)
{
    EXPECT_NO_THROW(mailValidateExc("john.doe", VALIDATE_EMAIL_LOCAL_PART));
}

TEST(MailValidateExc, RaisesInvalidArgumentWithTheNameAsItsText)
{
    try {
        mailValidateExc("john..doe", VALIDATE_EMAIL_LOCAL_PART);
        FAIL() << "no exception";
    } catch (std::invalid_argument const& error) {
        EXPECT_STREQ(error.what(), "john..doe");
    }
}
