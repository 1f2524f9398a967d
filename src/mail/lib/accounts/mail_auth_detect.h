// mail_auth_detect - which mail server, and so which style, this host has
//
// Asked of the mail tool itself, whose feature report names the SMTP server. Lines that name a
// server that is not known, or none at all, are reported and skipped; so is at last the failure
// to find any, all by orvek_log.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DETECT_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DETECT_H

#include "mail/lib/accounts/mail_auth_style.h"

#include <cstdio>

// Runs the tool of the product's root directory by a shell. MAIL_AUTH_DB_INVALID_STYLE after a
// failure.
MailAuthDBStyle mailAuthDBDetectStyle();

// The style that a feature report names, MAIL_AUTH_DB_INVALID_STYLE when it names none, which
// is not reported here. Reads no further than the line that decides.
MailAuthDBStyle style_of_feature_report(FILE* report);

#endif
