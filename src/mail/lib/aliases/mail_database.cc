#include "mail/lib/aliases/mail_database.h"

#include "lib/report/log_failure.h"
#include "mail/lib/accounts/mail_auth_domains.h"
#include "mail/lib/accounts/mail_auth_transaction.h"
#include "mail/lib/accounts/mail_auth_users.h"
#include "mail/lib/aliases/panel_names.h"

#include <string>

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

// The alias domains of a domain, read at the first use and kept.
class AliasDomains
{
public:
    AliasDomains(PanelNames& panel, char const* domain) : panel(panel), domain(domain) {}

    // As for_each_name. Reports a list that cannot be read.
    template<class Step>
    int for_each(Step step)
    {
        if (!known && panel.get_domaliases_by_domain(domain, &names) == -1)
            return log_failure("Unable to get domain aliases for domain %s", domain);
        known = true;
        return for_each_name(names, step);
    }

private:
    PanelNames& panel;
    char const* domain;
    StringArray names;
    bool known = false;
};

int remove_from_domains(AliasDomains& aliases, char const* name, char const* domain)
{
    if (remove_user(name, domain) == -1)
        return -1;
    return aliases.for_each([=](char const* alias) { return remove_user(name, alias); });
}

int set_on_domains(AliasDomains& aliases, char const* name, char const* domain, char const* passwd,
                   MailAuthFlagsT flags)
{
    if (set_postbox_passwd(name, domain, passwd, flags) == -1)
        return log_failure("Unable to set password for mailname %s@%s", name, domain);
    return aliases.for_each(
        [=](char const* alias) { return set_postbox_passwd(name, alias, passwd, flags); });
}

int remove_from_domains_reported(AliasDomains& aliases, char const* name, char const* domain)
{
    if (remove_from_domains(aliases, name, domain) == -1)
        return log_failure("Unable to remove mailname from domain aliases");
    return 0;
}

// Calls step for each mail alias of the mailname. Stops and returns -1 when step does.
template<class Step>
int for_each_alias(PanelNames::NamesByName const& aliases, char const* mailname, Step step)
{
    auto const found = aliases.find(mailname);
    if (found == aliases.end())
        return 0;
    for (std::string const& alias : found->second)
        if (step(alias.c_str()) == -1)
            return -1;
    return 0;
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
    AliasDomains domains(panel, domain);
    if (remove_user(name, domain) == -1)
        return -1;
    // Deliberate: removes the same row a second time, which is harmless, and then the rows in the
    // alias domains.
    if (remove_from_domains_reported(domains, name, domain) == -1)
        return -1;
    StringArray mail_aliases;
    // Deliberate: the report has no "@".
    if (panel.get_aliases_by_mailname(name, domain, &mail_aliases) == -1)
        return log_failure("Unable to get mail aliases for mailname %s%s", name, domain);
    return for_each_name(mail_aliases, [&domains, domain](char const* alias) {
        return remove_from_domains_reported(domains, alias, domain);
    });
}

int set_on_mailname(char const* name, char const* domain, char const* passwd, MailAuthFlagsT flags)
{
    PanelNames panel(nullptr);
    AliasDomains domains(panel, domain);
    if (set_on_domains(domains, name, domain, passwd, flags) == -1)
        return -1;
    StringArray mail_aliases;
    if (panel.get_aliases_by_mailname(name, domain, &mail_aliases) == -1)
        return -1;
    return for_each_name(mail_aliases, [&domains, domain, passwd, flags](char const* alias) {
        return set_on_domains(domains, alias, domain, passwd, flags);
    });
}

int clone_domain(char const* domain, char const* alias)
{
    PanelNames panel(nullptr);
    StringArray mailnames;
    if (panel.get_mailnames_by_domain(domain, &mailnames) == -1)
        return log_failure(mailnames_not_read, domain);
    PanelNames::NamesByName mail_aliases;
    // One list for all mailnames. Its failure is reported for the first mailname.
    if (mailnames && panel.get_aliases_by_domain(mailnames[0], domain, &mail_aliases) == -1)
        return log_failure("Unable to get mail aliases for %s@%s", mailnames[0], domain);
    auto const clone = [=](char const* name) { return clone_user(name, domain, alias); };
    // The mail aliases first and the mailname last.
    return for_each_name(mailnames, [&](char const* mailname) {
        return for_each_alias(mail_aliases, mailname, clone) == -1 ? -1 : clone(mailname);
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
    PanelNames::NamesByName mail_aliases;
    if (mailnames && panel.get_aliases_by_domain(mailnames[0], domain.get(), &mail_aliases) == -1)
        return log_failure("Unable to get aliases for mailname %s@%s", mailnames[0], domain.get());
    auto const remove = [=](char const* name) {
        if (mailAuthRemove(name, alias) == -1)
            return log_failure("Unable to remove mail alias %s@%s", name, alias);
        return 0;
    };
    int const walked = for_each_name(mailnames, [&](char const* mailname) {
        return for_each_alias(mail_aliases, mailname, remove);
    });
    // Deliberate: 1 becomes 0.
    return walked == -1 ? -1 : 0;
}

} // namespace

int rm_mname_from_domains(char const* name, char const* domain)
{
    return in_one_transaction([=] {
        PanelNames panel(nullptr);
        AliasDomains domains(panel, domain);
        return remove_from_domains(domains, name, domain);
    });
}

int set_passwd_for_domains(char const* name, char const* domain, char const* passwd,
                           MailAuthFlagsT flags)
{
    return in_one_transaction([=] {
        PanelNames panel(nullptr);
        AliasDomains domains(panel, domain);
        return set_on_domains(domains, name, domain, passwd, flags);
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
