#include "mail/lib/accounts/mail_auth_style.h"

#include "mail/lib/accounts/account_wait.h"

namespace {

constexpr char qmail_path[] = "/var/lib/orvek/mail/auth/passwd.db";
constexpr char postfix_path[] = "/var/spool/postfix/orvek/passwd.db";

} // namespace

char const* mailAuthDB = qmail_path;

void mailAuthDBSetPath(char const* _mailAuthDB)
{
    mailAuthDB = _mailAuthDB;
    AccountWait::startAnew();
}

void mailAuthDBSelectStyle(MailAuthDBStyle style)
{
    if (style == MAIL_AUTH_DB_QMAIL_STYLE)
        mailAuthDBSetPath(qmail_path);
    else if (style == MAIL_AUTH_DB_POSTFIX_STYLE)
        mailAuthDBSetPath(postfix_path);
}
