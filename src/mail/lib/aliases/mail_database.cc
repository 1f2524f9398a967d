#include "mail/lib/aliases/mail_database.h"

#include "lib/report/log_failure.h"
#include "mail/lib/accounts/mail_auth_domains.h"
#include "mail/lib/accounts/mail_auth_transaction.h"
#include "mail/lib/accounts/mail_auth_users.h"
#include "mail/lib/aliases/panel_names.h"

namespace {

constexpr char user_not_removed[] = "Unable to remove mailname %s@%s";
constexpr char user_not_cloned[] = "Unable to clone auth record for %s@%s";
constexpr char mailnames_not_read[] = "Unable to get mailnames from domain %s";

// Calls step for each name. Stops and returns -1 when step does; else 1, or 0 for an empty list.
template<class Step>
int for_each_name(StringArray const& names, Step step)
{
    for (char* const* name = names.get(); name && *name; ++name)
        if (step(*name) == -1)
            return -1;
    return names && names[0] ? 1 : 0;
}

int remove_user(char const* name, char const* domain)
{
    return mailAuthRemove(name, domain) == -1 ? log_failure(user_not_removed, name, domain) : 0;
}

int clone_user(char const* name, char const* domain, char const* alias)
{
    if (mailAuthClone(name, domain, name, alias) == -1)
        return log_failure(user_not_cloned, name, domain);
    return 0;
}

int remove_from_domains(PanelNames& panel, char const* name, char const* domain)
{
    if (remove_user(name, domain) == -1)
        return -1;
    StringArray aliases;
    if (panel.get_domaliases_by_domain(domain, &aliases) == -1)
        return log_failure("Unable to get domain aliases for domain %s", domain);
    return for_each_name(aliases, [=](char const* alias) { return remove_user(name, alias); });
}

int set_on_domains(PanelNames& panel, char const* name, char const* domain, char const* passwd,
                   MailAuthFlagsT flags)
{
    if (set_postbox_passwd(name, domain, passwd, flags) == -1)
        return log_failure("Unable to set password for mailname %s@%s", name, domain);
    StringArray aliases;
    if (panel.get_domaliases_by_domain(domain, &aliases) == -1)
        return log_failure("Unable to get domain aliases for domain %s", domain);
    return for_each_name(
        aliases, [=](char const* alias) { return set_postbox_passwd(name, alias, passwd, flags); });
}

int remove_from_domains_reported(PanelNames& panel, char const* name, char const* domain)
{
    if (remove_from_domains(panel, name, domain) == -1)
        return log_failure("Unable to remove mailname from domain aliases");
    return 0;
}

// Clones the mail aliases first and the mailname last.
int clone_mailname(PanelNames& panel, char const* mailname, char const* domain, char const* alias)
{
    StringArray mail_aliases;
    if (panel.get_aliases_by_mailname(mailname, domain, &mail_aliases) == -1)
        return log_failure("Unable to get mail aliases for %s@%s", mailname, domain);
    auto const clone = [=](char const* name) { return clone_user(name, domain, alias); };
    return for_each_name(mail_aliases, clone) == -1 ? -1 : clone(mailname);
}

int remove_mail_aliases(PanelNames& panel, char const* mailname, char const* domain,
                        char const* alias)
{
    StringArray mail_aliases;
    if (panel.get_aliases_by_mailname(mailname, domain, &mail_aliases) == -1)
        return log_failure("Unable to get aliases for mailname %s@%s", mailname, domain);
    return for_each_name(mail_aliases, [=](char const* name) {
        if (mailAuthRemove(name, alias) == -1)
            return log_failure("Unable to remove mail alias %s@%s", name, alias);
        return 0;
    });
}

int act_on_domains(char const* domain, int (*func)(char const* domain), char const* descr)
{
    if (func(domain) == -1)
        return log_failure("Unable to %s for domain %s", descr, domain);
    PanelNames panel(nullptr);
    StringArray aliases;
    if (panel.get_domaliases_by_domain(domain, &aliases) == -1)
        return log_failure("Unable to get aliases for domain %s", domain);
    return for_each_name(aliases, [=](char const* alias) {
        if (func(alias) == -1)
            return log_failure("Unable to %s for domain alias %s", descr, alias);
        return 0;
    });
}

int remove_mailname(char const* name, char const* domain)
{
    PanelNames panel(nullptr);
    if (remove_user(name, domain) == -1)
        return -1;
    // Deliberate: removes the same row a second time, which is harmless, and then the rows in the
    // alias domains.
    if (remove_from_domains_reported(panel, name, domain) == -1)
        return -1;
    StringArray mail_aliases;
    // Deliberate: the report has no "@".
    if (panel.get_aliases_by_mailname(name, domain, &mail_aliases) == -1)
        return log_failure("Unable to get mail aliases for mailname %s%s", name, domain);
    return for_each_name(mail_aliases, [&panel, domain](char const* alias) {
        return remove_from_domains_reported(panel, alias, domain);
    });
}

int set_on_mailname(char const* name, char const* domain, char const* passwd, MailAuthFlagsT flags)
{
    PanelNames panel(nullptr);
    if (set_on_domains(panel, name, domain, passwd, flags) == -1)
        return -1;
    StringArray mail_aliases;
    if (panel.get_aliases_by_mailname(name, domain, &mail_aliases) == -1)
        return -1;
    return for_each_name(mail_aliases, [&panel, domain, passwd, flags](char const* alias) {
        return set_on_domains(panel, alias, domain, passwd, flags);
    });
}

int clone_domain(char const* domain, char const* alias)
{
    PanelNames panel(nullptr);
    StringArray mailnames;
    if (panel.get_mailnames_by_domain(domain, &mailnames) == -1)
        return log_failure(mailnames_not_read, domain);
    return for_each_name(mailnames, [&panel, domain, alias](char const* mailname) {
        return clone_mailname(panel, mailname, domain, alias);
    });
}

int remove_alias_domain(char const* alias)
{
    if (mailAuthRemoveDomain(alias) == -1)
        return log_failure("Unable to remove domain %s from auth database", alias);
    PanelNames panel(nullptr);
    CString domain;
    if (panel.get_domain_by_domainalias(alias, &domain) == -1)
        return log_failure("Unable to get domain by domain alias %s", alias);
    if (!domain)
        return 0;
    StringArray mailnames;
    // Deliberate: the report names the alias domain, not the domain whose mailnames are read.
    if (panel.get_mailnames_by_domain(domain.get(), &mailnames) == -1)
        return log_failure(mailnames_not_read, alias);
    int const walked = for_each_name(mailnames, [&](char const* mailname) {
        return remove_mail_aliases(panel, mailname, domain.get(), alias);
    });
    // Deliberate: 1 becomes 0.
    return walked == -1 ? -1 : 0;
}

} // namespace

int rm_mname_from_domains(char const* name, char const* domain)
{
    return in_one_transaction([=] {
        PanelNames panel(nullptr);
        return remove_from_domains(panel, name, domain);
    });
}

int set_passwd_for_domains(char const* name, char const* domain, char const* passwd,
                           MailAuthFlagsT flags)
{
    return in_one_transaction([=] {
        PanelNames panel(nullptr);
        return set_on_domains(panel, name, domain, passwd, flags);
    });
}

int domain_auth_action(char const* domain, int (*func)(char const* domain), char const* descr)
{
    return in_one_transaction([=] { return act_on_domains(domain, func, descr); });
}

int rm_mails_from_domains(char const* name, char const* domain)
{
    return in_one_transaction([=] { return remove_mailname(name, domain); });
}

int set_mass_postbox_passwd(char const* name, char const* domain, char const* passwd,
                            MailAuthFlagsT flags)
{
    return in_one_transaction([=] { return set_on_mailname(name, domain, passwd, flags); });
}

int add_domain_auth_alias(char const* domain, char const* alias)
{
    return in_one_transaction([=] { return clone_domain(domain, alias); });
}

int rm_domain_auth_alias(char const* alias)
{
    return in_one_transaction([=] { return remove_alias_domain(alias); });
}
