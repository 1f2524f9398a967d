#include "postfix/server/service_modules.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace orvek::mail::postfix;

namespace {

void expectFieldsOfAService(ModuleInfo const& module)
{
    EXPECT_EQ(module.type, ModuleType::inet);
    EXPECT_TRUE(!module.privateService);
    EXPECT_TRUE(boost::indeterminate(module.unprivileged));
    EXPECT_TRUE(!module.chroot);
    EXPECT_EQ(module.wakeupTime, -1);
    EXPECT_FALSE(module.wakeupIfUsed);
    EXPECT_EQ(module.maxProcesses, -1);
}

} // namespace

static_assert(sizeof(SmtpdModule) == sizeof(ModuleInfo) &&
              sizeof(SubmissionModule) == sizeof(ModuleInfo));

TEST(ServiceModules, DescribePlainSmtp)
{
    SmtpdModule const module;
    EXPECT_EQ(module.name, "smtp");
    expectFieldsOfAService(module);
    EXPECT_EQ(module.command, (CommandWords{"smtpd", "-o smtpd_proxy_filter=127.0.0.1:10025"}));
    EXPECT_EQ(entryText(module), "smtp inet n - n - - smtpd -o smtpd_proxy_filter=127.0.0.1:10025");
}

TEST(ServiceModules, DescribeSubmission)
{
    SubmissionModule const module;
    EXPECT_EQ(module.name, "submission");
    expectFieldsOfAService(module);
    EXPECT_EQ(
        module.command,
        (CommandWords{"smtpd", "-o smtpd_enforce_tls=yes", "-o smtpd_tls_security_level=encrypt",
                      "-o smtpd_sasl_auth_enable=yes",
                      "-o smtpd_client_restrictions=permit_sasl_authenticated,reject",
                      "-o smtpd_sender_restrictions=", "-o smtpd_proxy_filter=127.0.0.1:10025"}));
    EXPECT_EQ(entryText(module),
              "submission inet n - n - - smtpd -o smtpd_enforce_tls=yes "
              "-o smtpd_tls_security_level=encrypt -o smtpd_sasl_auth_enable=yes "
              "-o smtpd_client_restrictions=permit_sasl_authenticated,reject "
              "-o smtpd_sender_restrictions= -o smtpd_proxy_filter=127.0.0.1:10025");
}
