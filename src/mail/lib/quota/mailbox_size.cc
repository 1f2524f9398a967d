#include "mail/lib/quota/mailbox_size.h"

#include "lib/conf/autoprepend.h"
#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "mail/lib/quota/get_dir_size.h"
#include "mail/lib/quota/maildirpp_usage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

struct Paths
{
    char attachments[path_size];
    char maildir[path_size];
};

void form_paths(Paths* paths, char const* MailName, char const* DomainName)
{
    CString const domain(idn_toascii(DomainName));
    if (!domain)
        fatal("idn_toascii() failed: %s", idn_strerror(idn_errno));
    char home[path_size];
    char with_slash[path_size];
    // Deliberate: refuses a path that fits but would not fit with one more slash.
    if (!form_path(home, "%s/%s/%s/", orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX),
                   domain.get(), MailName) ||
        !form_path(with_slash, "%s/%s", home, "@attachments") ||
        !form_path(paths->attachments, "%s%s", home, "@attachments") ||
        !form_path(paths->maildir, "%s%s", home, "Maildir"))
        fatal("user mailbox path is too long");
}

} // namespace

sizequota_t get_mbox_size(char const* MailName, char const* DomainName, int in_blocks)
{
    Paths paths;
    form_paths(&paths, MailName, DomainName);
    sizequota_t const attachments =
        std::max<sizequota_t>(get_dir_size(paths.attachments, in_blocks), 0);
    sizequota_t size = 0;
    fcount_t count = 0;
    if (get_maildirpp_usage(paths.maildir, &size, &count) == 0)
        fatal("Unable to calculate Maildir++ size: %s", strerror(errno));
    add_size(&size, attachments);
    return size;
}
