#include "commands/do_main.h"

#include "commands/usage.h"
#include "mail/lib/accounts/mail_auth_style.h"

namespace orvek::mail::postfix::mailvek_commands {

std::map<std::string, CommandHandler> commandMap()
{
    return {
        {"--add-mailname", addMailname},
        {"--remove-mailname", removeMailname},
        {"--rename-mailname", renameMailname},
        {"--add-mailbox", addMailbox},
        {"--remove-mailbox", removeMailbox},
        {"--get-mailbox-size", getMailboxSize},
        {"--set-password", setPassword},
        {"--set-mailbox-disk-quota", setMailboxDiskQuota},
        {"--add-redirect", addRedirect},
        {"--remove-redirect", removeRedirect},
        {"--set-autoresponder", addAutoresponder},
        {"--reset-autoresponder", removeAutoresponder},
        {"--add-alias", addAlias},
        {"--remove-alias", removeAlias},
        {"--add-domain", addDomain},
        {"--remove-domain", removeDomain},
        {"--turn-on-domain", enableDomain},
        {"--turn-off-domain", disableDomain},
        {"--set-domain-disk-quota", setDomainDiskQuota},
        {"--add-badmailfrom", addBadMailFrom},
        {"--remove-badmailfrom", removeBadMailFrom},
        {"--set-bounce", setBounce},
        {"--set-catchall", setCatchAll},
        {"--set-reject", setReject},
        {"--unset-reject", removeReject},
        {"--add-whitelist", addWhiteList},
        {"--remove-whitelist", removeWhiteList},
        {"--set-maps-protection", setMapsProtection},
        {"--set-accounts-format", setAccountsFormat},
        {"--add-domain-alias", addDomainAlias},
        {"--del-domain-alias", removeDomainAlias},
        {"--rename-domain-alias", renameDomainAlias},
        {"--set-domain-key", setDomainKey},
        {"--remove-domain-key", removeDomainKey},
        {"--features", printFeatures},
        {"--set-max-letter-size", setMaxLetterSize},
        {"--get-max-letter-size", getMaxLetterSize},
        {"--get-mailbox-size-limit", getMailboxLimit},
        {"--list-attachments", listAttachments},
        {"--add-attachment", addAttachment},
        {"--remove-attachment", removeAttachment},
        {"--update-spf", updateSPF},
        {"--add-handler", addHandler},
        {"--update-handler", updateHandler},
        {"--remove-handler", removeHandler},
        {"--disable-handler", disableHandler},
        {"--enable-handler", enableHandler},
        {"--check-handler", checkHandler},
        {"--set-mail-params", setMailParams},
        {"--start-service", startService},
        {"--stop-service", stopService},
        {"--restart-service", restartService},
        {"--reload-service", reloadService},
        {"--status-service", statusService},
        {"--start-smtpd", startSMTPD},
        {"-p", startSMTPD},
        {"--stop-smtpd", stopSMTPD},
        {"-o", stopSMTPD},
        {"--restart-smtpd", restartSMTPD},
        {"-r", restartSMTPD},
        {"--status-smtpd", statusMTA},
        {"-s", statusMTA},
        {"--start-qmail-send", startMTA},
        {"-l", startMTA},
        {"--stop-qmail-send", stopMTA},
        {"-m", stopMTA},
        {"--start-maild", startIMAP},
        {"-i", startIMAP},
        {"--stop-maild", stopIMAP},
        {"-t", stopIMAP},
        {"--restart-maild", restartIMAP},
        {"-z", restartIMAP},
        {"--status-maild", statusIMAP},
        {"-e", statusIMAP},
        {"--enable-message-submission", enableSubmission},
        {"-a", enableSubmission},
        {"--disable-message-submission", disableSubmission},
        {"-b", disableSubmission},
        {"--help", usageShortCmd},
        {"-h", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
}

} // namespace orvek::mail::postfix::mailvek_commands

int do_main(int argc, char** argv)
{
    namespace commands = orvek::mail::postfix::mailvek_commands;

    if (argc < 2)
        commands::wrongUsage("no command specified");

    auto const map = commands::commandMap();
    auto const command = map.find(argv[1]);
    if (command == map.end())
        commands::wrongUsage(std::string("invalid command ") + argv[1]);

    mailAuthDBSelectStyle(MAIL_AUTH_DB_POSTFIX_STYLE);
    return command->second(argc - 1, argv + 1);
}
