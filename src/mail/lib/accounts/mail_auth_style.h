// mail_auth_style - where the mail authentication database lies
//
// The mail server in use decides the path. It is a process-wide pointer that starts at the
// qmail style; the pointer given to mailAuthDBSetPath is stored, not copied.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_STYLE_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_STYLE_H

enum MailAuthDBStyle
{
    MAIL_AUTH_DB_INVALID_STYLE = -1, // none: detection failed
    MAIL_AUTH_DB_QMAIL_STYLE = 0,
    MAIL_AUTH_DB_POSTFIX_STYLE = 1
};

extern char const* mailAuthDB;

void mailAuthDBSetPath(char const* _mailAuthDB);

// Stores the style's path; any value but the two styles leaves the path alone.
void mailAuthDBSelectStyle(MailAuthDBStyle style);

#endif
