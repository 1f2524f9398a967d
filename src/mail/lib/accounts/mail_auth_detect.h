// mail_auth_detect - which mail server this host runs, and so which style its accounts have
//
// The feature report of the mail tool names the SMTP server. A line with an unknown server, or
// with none, is reported and skipped. Finding no server at all is reported too, all by orvek_log.
//
// No command calls these; they are for callers to come: mailAuthDBDetectStyle,
// style_of_feature_report.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DETECT_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_DETECT_H

#include "mail/lib/accounts/mail_auth_style.h"

#include <cstdio>

// Runs the tool in the product's root directory, through a shell. MAIL_AUTH_DB_INVALID_STYLE after
// a failure.
MailAuthDBStyle mailAuthDBDetectStyle();

// The style that a feature report names; MAIL_AUTH_DB_INVALID_STYLE, not reported here, when it
// names none. Stops reading at the line that decides.
MailAuthDBStyle style_of_feature_report(FILE* report);

#endif
