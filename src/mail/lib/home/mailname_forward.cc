#include "mail/lib/home/mailname_forward.h"

#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "mail/lib/home/dot_qmail_lines.h"
#include "mail/lib/home/mail_utilities.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Null after a report.
CString ascii_address(char const* Email)
{
    CString address(idn_email_toascii(Email));
    if (!address)
        messlog2(0, 0, "idn_email_toascii(%s) failed: %s", Email, idn_strerror(idn_errno));
    return address;
}

// "&" and the address. Null with errno set without memory.
CString forward_line(char const* address)
{
    char* line = nullptr;
    return CString(asprintf(&line, "&%s", address) < 0 ? nullptr : line);
}

bool is_one_line(char const* address)
{
    if (!strchr(address, '\n'))
        return true;
    errno = EINVAL;
    return false;
}

} // namespace

int dotqmail_add_forward(char const* file, char const* Email)
{
    CString const address = ascii_address(Email);
    if (!address)
        return -1;
    CString const line = forward_line(address.get());
    if (!line)
        return failure(-1, "asprintf(\"&%%s\", %s) failed: %s", address.get(), strerror(errno));
    if (!is_one_line(address.get()))
        return failure(-1, "Unable to add string to %s file.", file);
    DotQmail const delivery(file);
    if (delivery.put_line(line.get()) != 0)
        return -1;
    return delivery.set_rights_of_mail_user();
}

int dotqmail_remove_forward(char const* file, char const* Email)
{
    CString const address = ascii_address(Email);
    if (!address)
        return -1;
    CString const line = forward_line(address.get());
    if (!line)
        return failure(-1, "asprintf(\"&%%s\", %s): %s", address.get(), strerror(errno));
    DotQmail const delivery(file);
    if (!is_one_line(address.get()) || delivery.remove_line(line.get()) != 0)
        return failure(-1, "Unable to remove string from %s file.", file);
    return delivery.set_rights_of_mail_user();
}

int add_mn_forward(char const* MailName, char const* MailDomain, char const* Email)
{
    char file[path_size];
    if (get_dotqmail_path(file, sizeof file, MailName, MailDomain) != 0)
        return -1;
    return dotqmail_add_forward(file, Email);
}

int rm_mn_forward(char const* MailName, char const* MailDomain, char const* Email)
{
    char file[path_size];
    if (get_dotqmail_path(file, sizeof file, MailName, MailDomain) != 0)
        return -1;
    return dotqmail_remove_forward(file, Email);
}
