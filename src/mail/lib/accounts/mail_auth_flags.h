// mail_auth_flags - what a mail user's record holds apart from name and password
//
// One set for all uses: given to set a password, returned by reading one, passed to a visitor.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_FLAGS_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_FLAGS_H

enum MailAuthFlagsValues
{
    MAIL_AUTH_CRYPTED = 1,         // the password is already encrypted
    MAIL_AUTH_DISABLED = 2,        // the user is disabled
    MAIL_DOMAIN_AUTH_DISABLED = 4, // the user's domain is disabled
    MAIL_AUTH_DO_NOT_CHANGE = 8    // do not register an unknown domain
};

using MailAuthFlagsT = unsigned char;

#endif
