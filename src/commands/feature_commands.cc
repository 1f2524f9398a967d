#include "commands/handlers.h"

#include "lib/conf/features.h"

#include <iterator>

namespace orvek::mail::postfix::mailvek_commands {

namespace {

struct Feature
{
    char const* key;
    char const* value;
};

// The features of this mail back end. They do not depend on what the machine runs.
constexpr Feature features[] = {
    {"MailName_SetName", "true"},
    {"MailName_SetDomain", "true"},
    {"MailName_Quota", "true"},
    {"MailName_SetQuota", "true"},
    {"MailName_Size", "true"},
    {"MailName_Password", "true"},
    {"MailName_SetPassword", "true"},
    {"MailName_Postbox", "true"},
    {"MailName_SetPostbox", "true"},
    {"MailName_Forward", "true"},
    {"MailName_MultiForward", "true"},
    {"MailName_SetForward", "true"},
    {"MailName_AutoResponder", "true"},
    {"MailName_SetAutoResponder", "true"},
    {"MailName_Aliases", "true"},
    {"Domain_SetName", "true"},
    {"Domain_Enable", "true"},
    {"Domain_SetEnable", "true"},
    {"Domain_Quota", "true"},
    {"Domain_SetQuota", "true"},
    {"Domain_Bounce", "true"},
    {"Domain_SetBounce", "true"},
    {"Domain_Catch", "true"},
    {"Domain_SetCatch", "true"},
    {"Domain_Reject", "true"},
    {"Common_BadMail", "true"},
    {"Common_MaxLetterSize", "true"},
    {"Common_SetMaxLetterSize", "true"},
    {"Relay", "true"},
    {"Relay_Set", "true"},
    {"Relay_Open", "true"},
    {"Relay_Closed", "true"},
    {"Relay_AuthorizationIsRequired", "true"},
    {"Relay_AuthType_None", "true"},
    {"Relay_AuthType_POP3_SMTP", "true"},
    {"Relay_AuthType_POP3", "false"},
    {"Relay_AuthType_SMTP", "true"},
    {"Relay_POP3_LockTime", "true"},
    {"Relay_WhiteList", "true"},
    {"Relay_WhiteList_Mask", "true"},
    {"Relay_BlackList", "true"},
    {"Relay_WhiteList_BlackList", "true"},
    {"MapsProtection", "true"},
    {"SetMapsProtection", "true"},
    {"AccountsFormat_Simple", "false"},
    {"AccountsFormat_Compound", "true"},
    {"AccountsFormat_Both", "false"},
    {"AccountsFormat_Set", "true"},
    {"Mail_Send", "true"},
    {"Mail_Attachments", "true"},
    {"Mail_Forward", "true"},
    {"SMTP_Server", "Postfix"},
    {"IMAP_POP3_Server", "Courier-IMAP"},
    {"SMTP_Server_package", "postfix"},
    {"IMAP_POP3_Server_package", "courier-imap"},
    {"Message_Submission", "true"},
    {"Message_Submission_all_IP", "true"},
    {"Message_Submission_Dedicated_IP", "false"},
};
static_assert(std::size(features) == 58);

} // namespace

// Deliberate: the status is 0 even when a line could not be printed.
int printFeatures(int, char**)
{
    for (auto const& feature : features)
        print_feature(feature.key, feature.value);
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
