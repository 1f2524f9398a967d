#include "mail/lib/accounts/mail_auth_detect.h"

#include "lib/conf/autoprepend.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "lib/text/line_buffer.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <strings.h>
#include <syslog.h>

namespace {

constexpr std::string_view server_feature = "$features['SMTP_Server']";

struct StyleName
{
    char const* name;
    MailAuthDBStyle style;
};

constexpr StyleName style_names[] = {
    {"postfix", MAIL_AUTH_DB_POSTFIX_STYLE},
    {"qmail", MAIL_AUTH_DB_QMAIL_STYLE},
};

// The style named between the line's first two quotes, single or double.
MailAuthDBStyle style_of_line(char const* line)
{
    constexpr char quotes[] = "'\"";
    char const* const opening = strpbrk(line + server_feature.size(), quotes);
    char const* const closing = opening ? strpbrk(opening + 1, quotes) : nullptr;
    if (!closing) {
        orvek_log(LOG_INFO, "Unparseable line \"%s\", skipped", line);
        return MAIL_AUTH_DB_INVALID_STYLE;
    }
    char const* const value = opening + 1;
    // Deliberate: one less than the value's length, so its last character never counts. A value of
    // one character is always postfix. An empty value wraps round and is compared without a limit.
    size_t const compared = static_cast<size_t>(closing - value) - 1;
    for (auto const& [name, style] : style_names)
        if (strncasecmp(value, name, compared) == 0)
            return style;
    orvek_log(LOG_INFO, "Unknown server style \"%.*s\", skipped", static_cast<int>(compared),
              value);
    return MAIL_AUTH_DB_INVALID_STYLE;
}

} // namespace

MailAuthDBStyle style_of_feature_report(FILE* report)
{
    LineBuffer line;
    ssize_t length = 0;
    MailAuthDBStyle style = MAIL_AUTH_DB_INVALID_STYLE;
    while (style == MAIL_AUTH_DB_INVALID_STYLE &&
           (length = getline(&line.text, &line.capacity, report)) > 0) {
        if (line.text[length - 1] == '\n')
            line.text[length - 1] = '\0';
        if (std::string_view(line.text).starts_with(server_feature))
            style = style_of_line(line.text);
    }
    return style;
}

MailAuthDBStyle mailAuthDBDetectStyle()
{
    char const* const root = orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX);
    char command[path_size];
    if (!form_path(command, "%s/admin/sbin/mailvek --features", root)) {
        orvek_log(LOG_ERR, "path to mailvek is too long, check PRODUCT_ROOT_D (%s)", root);
        return MAIL_AUTH_DB_INVALID_STYLE;
    }
    OpenCommand report(popen(command, "r"));
    if (!report) {
        orvek_log(LOG_ERR, "unable to execute %s: %s", command, strerror(errno));
        return MAIL_AUTH_DB_INVALID_STYLE;
    }
    MailAuthDBStyle const style = style_of_feature_report(report.get());
    report.reset();
    if (style == MAIL_AUTH_DB_INVALID_STYLE)
        orvek_log(LOG_INFO, "Unable to determine mail server type from ``mailvek --features''");
    return style;
}
