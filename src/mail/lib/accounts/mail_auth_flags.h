// mail_auth_flags - what a mail user's record says beside name and password
//
// The same set is the wish of who sets a password, the answer of who reads one, and what the
// visitor of a check is told.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_FLAGS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_FLAGS_H

enum MailAuthFlagsValues
{
    MAIL_AUTH_CRYPTED = 1,         // the password is already encrypted
    MAIL_AUTH_DISABLED = 2,        // the user is disabled
    MAIL_DOMAIN_AUTH_DISABLED = 4, // the user's domain is disabled
    MAIL_AUTH_DO_NOT_CHANGE = 8    // an unknown domain is not to be registered
};

using MailAuthFlagsT = unsigned char;

#endif
