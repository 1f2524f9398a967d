#include "mail/lib/home/mailname_delivery.h"

#include "lib/files/file_str.h"
#include "lib/files/umask_guard.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "mail/lib/home/dot_qmail_lines.h"
#include "mail/lib/home/mail_utilities.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace {

constexpr char reset_line[] = "| true\n";
constexpr char delivery_line[] = "| /usr/bin/deliverquota ./Maildir";
constexpr char older_delivery_line[] = "./Maildir/";

// Nobody else may ever read a new file, even if its rights cannot be set later.
FILE* open_for_reset(char const* file)
{
    UmaskGuard const own(077);
    return fopen(file, "wt");
}

bool write_reset_line(OpenFile& stream)
{
    return fputs(reset_line, stream.get()) >= 0 && fclose(stream.release()) == 0;
}

} // namespace

int dotqmail_add_delivery(char const* file)
{
    dotqmail_drop_line(file, older_delivery_line);
    if (dotqmail_put_line(file, delivery_line) != 0)
        return -1;
    return dotqmail_set_rights(file);
}

int dotqmail_remove_delivery(char const* file)
{
    if (file_str(file, older_delivery_line, FILE_REMOVE, FILE_BEGIN) != 0)
        return failure(-1, "Unable to remove string from %s file", file);
    dotqmail_drop_line(file, delivery_line);
    return dotqmail_set_rights(file);
}

int dotqmail_reset(char const* file)
{
    OpenFile stream(open_for_reset(file));
    if (!stream)
        return failure(-1, "Unable to open %s: %s", file, strerror(errno));
    if (!write_reset_line(stream)) {
        {
            ErrnoKeeper const keeper;
            unlink(file);
        }
        return failure(-1, "Unable to write to %s: %s", file, strerror(errno));
    }
    return dotqmail_set_rights(file);
}

int add_mailname_delivery(char const* MailName, char const* MailDomain)
{
    char file[path_size];
    if (get_dotqmail_path(file, sizeof file, MailName, MailDomain) != 0)
        return -1;
    return dotqmail_add_delivery(file);
}

int remove_mailname_delivery(char const* MailName, char const* MailDomain)
{
    char file[path_size];
    if (get_dotqmail_path(file, sizeof file, MailName, MailDomain) != 0)
        return -1;
    return dotqmail_remove_delivery(file);
}
