// Sets a relay mode, which takes three writes and two reads of one parameter: bench_relay_mode

#include "postfix/main_cf/main_cf_manager.h"

using orvek::mail::postfix::MainCfManager;

int main()
{
    constexpr char list[] = "smtpd_recipient_restrictions";
    MainCfManager const& manager = MainCfManager::getInstance();
    manager.replaceStringValue(list, "permit_mynetworks");
    manager.appendCompoundStringValue(list, "check_client_access",
                                      "pcre:/var/spool/postfix/orvek/no_relay.re");
    manager.appendStringValue(list, "reject_unauth_destination");
}
