#include "restore/entity_walker_settings.h"

#include "mysql/misc_params.h"
#include "mysql/mysql_error.h"
#include "restore/stored_number.h"
#include "restore/walk_step.h"
#include "util/uerr.h"

#include <optional>
#include <string>
#include <vector>

namespace orvek::mail::restore {

using namespace orvek::mysql;

namespace {

constexpr BadNumberWarning bad_size{"Warning: invalid Maximal Message Size ",
                                    " stored in Orvek DB, ignored"};
constexpr BadNumberWarning bad_smtp_flag{"Warning: invalid SMTP Auth Disable flag value '",
                                         "' stored in Orvek DB, ignored"};
constexpr BadNumberWarning bad_pop3_flag{"Warning: invalid POP3 Auth Disable flag value '",
                                         "' stored in Orvek DB, ignored"};
constexpr BadNumberWarning bad_lock_time{"Warning: invalid POP3 lock time value ",
                                         " stored in Orvek DB, ignored"};

constexpr short default_lock_time = 30;

std::vector<std::string> serversIn(std::string const& text)
{
    static constexpr char separators[] = " \t;,";
    std::vector<std::string> servers;
    std::size_t begin = text.find_first_not_of(separators);
    while (begin != std::string::npos) {
        std::size_t const end = text.find_first_of(separators, begin);
        servers.push_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(separators, end);
    }
    return servers;
}

// Empty when the panel has switched blocking lists off. Nothing, after a warning, when the setting
// cannot be read.
std::optional<std::vector<std::string>> rblServers(Connection& conn)
{
    try {
        if (!getBoolMiscParamSafe("rbl", conn))
            return std::vector<std::string>();
        return serversIn(getStringMiscParam("rbl_server", conn));
    } catch (mError const& e) {
        uerr << "Warning: MySQL Error on RBL Servers query: " << reportedText(e) << ", ignored"
             << std::endl;
        return {};
    }
}

// Keeps the servers if the list could not be read: an empty list would switch them off.
void setRblServers(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (!callbacks.setRblServers)
        return;
    walkStep(" restoring the RBL servers configuration", "", [&] {
        if (auto const servers = rblServers(conn))
            callbacks.setRblServers(*servers);
    });
}

void setSubmission(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (callbacks.setSubmission)
        walkStep(" restoring the submission service configuration", "", [&] {
            callbacks.setSubmission(getBoolMiscParamSafe("message_submission", conn));
        });
}

// The panel stores kibibytes.
std::optional<long> maxMessageSize(Connection& conn)
{
    std::string const value = getStringMiscParamSafe("ml_size", conn);
    std::optional<long> size = storedNumber<long>(value, bad_size);
    if (size && __builtin_mul_overflow(*size, 1L << 10, &*size)) {
        bad_size(value);
        return {};
    }
    return size;
}

void setMaxMessageSize(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (!callbacks.setMaxMessageSize)
        return;
    walkStep(" restoring maximal message size limit", "", [&] {
        if (auto const size = maxMessageSize(conn))
            callbacks.setMaxMessageSize(*size);
    });
}

// True unless the parameter disables this kind of authentication.
bool isEnabled(char const* parameter, BadNumberWarning const& warning, bool otherwise,
               Connection& conn)
{
    auto const flag = storedNumber<long>(getStringMiscParamSafe(parameter, conn), warning);
    return flag ? *flag == 0 : otherwise;
}

void setRelayWithAuthentication(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    bool const smtp = isEnabled("disable_smtp_auth", bad_smtp_flag, /*otherwise=*/true, conn);
    bool const pop = isEnabled("disable_pop_auth", bad_pop3_flag, /*otherwise=*/false, conn);
    short lock_time = default_lock_time;
    if (pop)
        lock_time = storedNumber<short>(getStringMiscParamSafe("poplock_time", conn), bad_lock_time)
                        .value_or(default_lock_time);
    callbacks.setRelay(MailRelayType::auth, smtp, pop, lock_time);
}

void applyRelay(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    std::string const mode = getStringMiscParamSafe("relay", conn);
    if (mode == "open")
        callbacks.setRelay(MailRelayType::open, /*smtp=*/false, /*pop=*/false, default_lock_time);
    else if (mode == "closed")
        callbacks.setRelay(MailRelayType::closed, /*smtp=*/false, /*pop=*/false, default_lock_time);
    else if (mode == "auth")
        setRelayWithAuthentication(callbacks, conn);
    else
        callbacks.setRelay(MailRelayType::auth, /*smtp=*/true, /*pop=*/false, default_lock_time);
}

void setRelay(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (callbacks.setRelay)
        walkStep(" restoring SMTP Relaying and Authentication options", "",
                 [&] { applyRelay(callbacks, conn); });
}

void setShortNames(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    if (callbacks.setShortNames)
        walkStep(" restoring short names authentication option (if applicable)", "", [&] {
            callbacks.setShortNames(getStringMiscParamSafe("allow_short_pop3_names", conn) ==
                                    "enabled");
        });
}

} // namespace

void restoreSettings(MailsrvEntitiesCallbacks& callbacks, Connection& conn)
{
    setRblServers(callbacks, conn);
    setSubmission(callbacks, conn);
    setMaxMessageSize(callbacks, conn);
    setRelay(callbacks, conn);
    setShortNames(callbacks, conn);
}

} // namespace orvek::mail::restore
