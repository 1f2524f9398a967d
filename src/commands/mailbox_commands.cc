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

namespace {

// The password from the environment. text is null without one.
struct Password
{
    char const* text = nullptr;
    MailAuthFlagsT flags = 0;
};

Password takePassword(ProgramOptionsHelper const& options)
{
    Password password;
    int isEncrypted = 0;
    get_env_password(&password.text, &isEncrypted);
    if (isEncrypted != 0)
        password.flags |= MAIL_AUTH_CRYPTED;
    if (isGiven(options, "mail-domain-disabled"))
        password.flags |= MAIL_DOMAIN_AUTH_DISABLED;
    return password;
}

} // namespace

int addMailbox(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    MailnameManager::enableDelivery(domain, mailname);
    Password const password = takePassword(options);
    int const set =
        set_passwd_for_domains(mailname.c_str(), domain.c_str(), password.text, password.flags);
    return set == -1 ? 1 : 0;
}

int removeMailbox(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    MailnameManager::disableDelivery(domain, mailname);
    return rm_mails_from_domains(mailname.c_str(), domain.c_str()) == -1 ? 1 : 0;
}

int getMailboxSize(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    bool const inBlocks = isGiven(options, "in-blocks");
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    auto const size = get_mbox_size(mailname.c_str(), domain.c_str(), inBlocks);
    if (size < 0)
        return 1;
    std::cout << size;
    return 0;
}

int setPassword(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);
    Password const password = takePassword(options);
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);

    int const set =
        set_mass_postbox_passwd(mailname.c_str(), domain.c_str(), password.text, password.flags);
    return set == -1 ? 1 : 0;
}

int setMailboxDiskQuota(int argc, char** argv)
{
    ProgramOptionsHelper const options = parsedOptions(argc, argv);

    MaildirPPManager& manager = MaildirPPManager::getInstance();
    std::string const domain = domainOf(options);
    std::string const mailname = localPartOf(options);
    manager.setMailboxQuota(mailname, domain, quotaOf(options));
    return 0;
}

} // namespace orvek::mail::postfix::mailvek_commands
