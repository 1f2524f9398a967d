#include "mail/lib/home/mailname_delivery.h"

#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "mail/lib/home/dot_qmail_lines.h"
#include "mail/lib/home/mail_utilities.h"

namespace {

constexpr char reset_line[] = "| true";
constexpr char delivery_line[] = "| /usr/bin/deliverquota ./Maildir";
constexpr char older_delivery_line[] = "./Maildir/";

} // namespace

int dotqmail_add_delivery(char const* file)
{
    DotQmail const delivery(file);
    delivery.drop_line(older_delivery_line);
    if (delivery.put_line(delivery_line) != 0)
        return -1;
    return delivery.set_rights_of_mail_user();
}

int dotqmail_remove_delivery(char const* file)
{
    DotQmail const delivery(file);
    if (delivery.remove_line(older_delivery_line) != 0)
        return failure(-1, "Unable to remove string from %s file", file);
    delivery.drop_line(delivery_line);
    return delivery.set_rights_of_mail_user();
}

int dotqmail_reset(char const* file)
{
    DotQmail const delivery(file);
    if (delivery.reset_to(reset_line) != 0)
        return -1;
    return delivery.set_rights_of_mail_user();
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
