#include "postfix/server/service_modules.h"

namespace orvek::mail::postfix {

namespace {

constexpr char filter_host[] = "127.0.0.1";
constexpr char filter_port[] = "10025";

std::string throughFilter()
{
    return std::string("-o smtpd_proxy_filter=") + filter_host + ":" + filter_port;
}

} // namespace

SmtpdModule::SmtpdModule()
{
    name = "smtp";
    type = ModuleType::inet;
    privateService = false;
    command = {"smtpd", throughFilter()};
}

SubmissionModule::SubmissionModule()
{
    name = "submission";
    type = ModuleType::inet;
    privateService = false;
    command = {"smtpd",
               "-o smtpd_enforce_tls=yes",
               "-o smtpd_tls_security_level=encrypt",
               "-o smtpd_sasl_auth_enable=yes",
               "-o smtpd_client_restrictions=permit_sasl_authenticated,reject",
               "-o smtpd_sender_restrictions=",
               throughFilter()};
}

} // namespace orvek::mail::postfix
