#include "mail/lib/home/mail_utilities.h"

#include "lib/conf/autoprepend.h"
#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cctype>

namespace {

bool can_begin_mailname(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

// The domain in its ASCII form. Null, reported, when the domain or the mailname cannot be used.
CString ascii_domain(char const* MailName, char const* MailDomain)
{
    if (!can_begin_mailname(*MailName)) {
        messlog2(0, 0, "empty mailname or maildomain");
        return nullptr;
    }
    CString domain(idn_toascii(MailDomain));
    if (!domain)
        messlog2(0, 0, "idn_toascii(%s) failed: %s", MailDomain, idn_strerror(idn_errno));
    return domain;
}

} // namespace

int get_mailhome_path(char* path, std::size_t size, char const* MailName, char const* MailDomain)
{
    CString const domain = ascii_domain(MailName, MailDomain);
    if (!domain)
        return -1;
    if (!form_path_in(path, size, "%s/%s/%s", orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX),
                      domain.get(), MailName))
        return failure(-1,
                       "Either domain name '%s' or mailname '%s' are too long to store mailname "
                       "home path in the provided buffer",
                       MailDomain, MailName);
    return 0;
}

int get_dotqmail_path(char* path, std::size_t size, char const* MailName, char const* MailDomain)
{
    CString const domain = ascii_domain(MailName, MailDomain);
    if (!domain)
        return -1;
    if (!form_path_in(path, size, "%s/%s/%s/.qmail",
                      orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX), domain.get(), MailName))
        return failure(-1,
                       "Either domain name '%s' or mailname '%s' are too long to store .qmail "
                       "path in the provided buffer",
                       MailDomain, MailName);
    return 0;
}
