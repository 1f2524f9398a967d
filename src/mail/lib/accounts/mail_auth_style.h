// mail_auth_style - the path of the mail authentication database
//
// The path depends on the mail server. mailAuthDB is process-wide and starts with the qmail path;
// mailAuthDBSetPath stores the pointer and does not copy the text.

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

// Stores the path of the style. Any other value leaves the path alone.
void mailAuthDBSelectStyle(MailAuthDBStyle style);

#endif
