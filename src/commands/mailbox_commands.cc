#include "commands/command_values.h"
#include "commands/handlers.h"
#include "lib/host/enviroment.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "mail/lib/aliases/mail_database.h"
#include "mail/lib/quota/mailbox_size.h"
#include "maildir/maildirpp_manager.h"
#include "postfix/domains/mailname_manager.h"

#include <iostream>

namespace orvek::mail::postfix::mailvek_commands {

namespace po = boost::program_options;

namespace {

// What the panel handed over in the environment; text is null when it handed over nothing.
struct Password
{
    char const* text = nullptr;
    MailAuthFlagsT flags = 0;
};

Password takePassword(ProgramOptionsHelper const& helper)
{
    Password password;
    int isEncrypted = 0;
    get_env_password(&password.text, &isEncrypted);
    if (isEncrypted != 0)
        password.flags |= MAIL_AUTH_CRYPTED;
    if (isGiven(helper, "mail-domain-disabled"))
        password.flags |= MAIL_DOMAIN_AUTH_DISABLED;
    return password;
}

} // namespace

int addMailbox(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--add-mailbox");
    declareMailname(helper);
    declareDisabledDomain(helper);
    standardOptionsParse(helper, argc, argv);
    std::string const domain = domainOf(helper);
    std::string const mailname = localPartOf(helper);

    MailnameManager::enableDelivery(domain, mailname);
    Password const password = takePassword(helper);
    int const set =
        set_passwd_for_domains(mailname.c_str(), domain.c_str(), password.text, password.flags);
    return set == -1 ? 1 : 0;
}

int removeMailbox(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--remove-mailbox");
    declareMailname(helper);
    standardOptionsParse(helper, argc, argv);
    std::string const domain = domainOf(helper);
    std::string const mailname = localPartOf(helper);

    MailnameManager::disableDelivery(domain, mailname);
    return rm_mails_from_domains(mailname.c_str(), domain.c_str()) == -1 ? 1 : 0;
}

int getMailboxSize(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--get-mailbox-size");
    helper.addOptions()("in-blocks", "count result in blocks rather than bytes", false);
    declareMailname(helper);
    standardOptionsParse(helper, argc, argv);
    bool const inBlocks = isGiven(helper, "in-blocks");
    std::string const domain = domainOf(helper);
    std::string const mailname = localPartOf(helper);

    auto const size = get_mbox_size(mailname.c_str(), domain.c_str(), inBlocks);
    if (size < 0)
        return 1;
    std::cout << size;
    return 0;
}

int setPassword(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-password");
    declareMailname(helper);
    declareDisabledDomain(helper);
    standardOptionsParse(helper, argc, argv);
    Password const password = takePassword(helper);
    std::string const domain = domainOf(helper);
    std::string const mailname = localPartOf(helper);

    int const set =
        set_mass_postbox_passwd(mailname.c_str(), domain.c_str(), password.text, password.flags);
    return set == -1 ? 1 : 0;
}

int setMailboxDiskQuota(int argc, char** argv)
{
    ProgramOptionsHelper helper = commandOptions("--set-mailbox-disk-quota");
    declareMailname(helper);
    helper.addOptions()("disk-quota", po::value<long>(), "disk quota", true);
    standardOptionsParse(helper, argc, argv);

    MaildirPPManager& manager = MaildirPPManager::getInstance();
    std::string const domain = domainOf(helper);
    std::string const mailname = localPartOf(helper);
    manager.setMailboxQuota(mailname, domain, quotaOf(helper));
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
