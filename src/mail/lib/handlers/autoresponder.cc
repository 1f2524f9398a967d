#include "mail/lib/handlers/autoresponder.h"

#include "lib/names/idn.h"
#include "lib/names/idn_error.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"
#include "mail/lib/handlers/handler_lookup.h"
#include "mail/lib/handlers/mail_handlers.h"

#include <cstddef>
#include <cstdio>

namespace {

constexpr char name_template[] = "autoresponder";
constexpr char type[] = "recipient";
constexpr char executable[] = "/usr/local/orv/handlers/hooks/autoresponder";
constexpr char context[] = "responder";
constexpr char hook[] = "before-local";
constexpr char priority[] = "90";

constexpr char separators[] = ", ";

using Address = char[255];

int form_address(Address& address, char const* mailname, char const* domain)
{
    CString const ascii(idn_toascii(domain));
    if (!ascii)
        return log_failure("idn_toascii() failed: %s", idn_strerror(idn_errno));
    int const length = snprintf(address, sizeof address, "%s@%s", mailname, ascii.get());
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof address)
        return log_failure("domain name too long\n");
    return 0;
}

int act(char const* address, handler_control_t action)
{
    CString const name(get_handler_name(name_template, type, address, hook));
    if (action == HOOK_ENABLE && !name) {
        return mail_handler_add(name_template, type, address, executable, context, hook, priority,
                                HOOK_ENABLE);
    }
    if (action == HOOK_DISABLE && name)
        return mail_handler_remove(name.get());
    return 0;
}

// Returns 0, or -1 to stop. Sets failed when the action failed on a handler; the others go on.
int act_on_domains(char const* mailname, char* const* domains, handler_control_t action,
                   bool& failed)
{
    for (; *domains; ++domains) {
        Address address;
        if (form_address(address, mailname, *domains) != 0)
            return -1;
        if (act(address, action) != 0)
            failed = true;
    }
    return 0;
}

} // namespace

int autoresponder_action(char const* mailname, char const* maildomain, handler_control_t action)
{
    StringArray const mailnames(string_split(mailname, separators));
    if (!mailnames)
        return log_failure("Unable to split mailnames list");
    StringArray const domains(string_split(maildomain, separators));
    if (!domains)
        return log_failure("Unable to split domains list");
    // An empty list splits into one empty field.
    if (*mailnames[0] == '\0')
        return 0;
    bool failed = false;
    for (std::size_t i = 0; mailnames[i]; ++i)
        if (act_on_domains(mailnames[i], domains.get(), action, failed) != 0)
            return -1;
    if (failed)
        return log_failure("Unable to make action for some autoresponder handlers");
    return 0;
}
