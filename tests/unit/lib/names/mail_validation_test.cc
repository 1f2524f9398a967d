#include "lib/names/mail_validation.h"

#include "lib/report/product_log.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

#include <syslog.h>

TEST(MailValidate, TakesALocalPartWithoutTwoDotsInARow)
{
    for (char const* const name : {"user", "a.b.c", ".", "", "a b", "/"})
        EXPECT_EQ(mail_validate(name, VALIDATE_EMAIL_LOCAL_PART), 1) << name;
}

TEST(MailValidate, RefusesALocalPartWithTwoDotsInARow)
{
    for (char const* const name : {"..", "a..b", "a..", "../b", "..."})
        EXPECT_EQ(mail_validate(name, VALIDATE_EMAIL_LOCAL_PART), 0) << name;
}

TEST(MailValidate, ReportsAnUnknownTypeAsInformation)
{
    auto const run = inChild([] { return mail_validate("a", static_cast<mail_validation_t>(7)); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "unknown validation_type: 7\n");
    EXPECT_EQ(run.out, run.err);
    auto const silent = inChild([] {
        LogLevel = LOG_NOTICE;
        return mail_validate("a", static_cast<mail_validation_t>(7));
    });
    EXPECT_EQ(silent.err, "");
}
