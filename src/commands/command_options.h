// command_options - the options of all commands, as data
//
// Each option is declared once, here: its name, its type, whether it is mandatory, and its line in
// the command's --help. A row of command_table.cc lists the options of its command, in the order in
// which the command declares them. So the options of a command can be read without running its
// handler.
//
// No command calls these; they are for callers to come: formNotexistingMailOptions,
// formWhitelistOptions.

#ifndef MAILVEK_COMMANDS_COMMAND_OPTIONS_H
#define MAILVEK_COMMANDS_COMMAND_OPTIONS_H

#include "commands/program_options_helper.h"

#include <span>

namespace orvek::mail::postfix::mailvek_commands {

// The type in which a handler reads the value.
enum class OptionType
{
    flag,          // no value
    text,          // std::string
    texts,         // std::vector<std::string>; may be given several times
    number,        // long
    lock_time,     // short, and -1 when it is not given
    prefix_length, // IPv4Mask
    format,        // ShortnameFormat
    components,    // SelectedMailComponents; may be given several times
};

enum class Presence
{
    optional,
    mandatory,
};

struct Option
{
    char const* name; // without the hyphens
    OptionType type;
    Presence presence;
    char const* description;
    char letter = '\0'; // of the short form, if there is one
};

// A list of options for a row of the command table: options<domain_name, quota>.
template<Option const&... list>
inline constexpr Option options[] = {list...};

// Declares the options on a helper, in their order.
void declareOptions(ProgramOptionsHelper& helper, std::span<Option const> list);

// clang-format off
namespace option {

using enum OptionType;
using enum Presence;

inline constexpr Option domain_name = {"domain-name", text, mandatory, "domain name"};
inline constexpr Option domain_alias = {"domain-alias-name", text, mandatory, "domain alias name"};
inline constexpr Option old_domain_alias = {"old-domain-alias-name", text, mandatory, "old domain alias name"};
inline constexpr Option new_domain_alias = {"new-domain-alias-name", text, mandatory, "new domain alias name"};
// Deliberate: the description says that it is unused, whatever a command does with it.
inline constexpr Option disabled_domain = {"mail-domain-disabled", flag, optional, "the domain is disabled (currently unused)", 'D'};

inline constexpr Option mailname = {"mailname", text, mandatory, "mailname"};
inline constexpr Option optional_mailname = {"mailname", text, optional, "mailname"};
inline constexpr Option old_mailname = {"old-mailname", text, mandatory, "old mailname"};
inline constexpr Option new_mailname = {"new-mailname", text, mandatory, "new mailname"};
inline constexpr Option mail_alias = {"alias", text, mandatory, "alias email"};
inline constexpr Option redirect_address = {"redirect-email", text, mandatory, "redirect email"};

inline constexpr Option quota = {"disk-quota", number, mandatory, "disk quota"};
inline constexpr Option optional_quota = {"disk-quota", number, optional, "disk quota"};
inline constexpr Option size_in_blocks = {"in-blocks", flag, optional, "count result in blocks rather than bytes"};

// Mail to unknown addresses. Deliberate: of the two descriptions of --email one is that of
// another option.
inline constexpr Option catchall_address = {"email", text, mandatory, "catchall e-mail address"};
inline constexpr Option alias_catchall_address = {"email", text, optional, "domain alias name"};
inline constexpr Option phrase = {"phrase", text, optional, "phrase"};
inline constexpr Option set_catchall = {"set-catchall", flag, optional, "set a domain catchall address"};
inline constexpr Option set_bounce = {"set-bounce", flag, optional, "set a domain bounce"};
inline constexpr Option set_reject = {"set-reject", flag, optional, "set domain reject flag"};

inline constexpr Option of_all_mailnames = {"mail-all", flag, optional, "report attachments for all mailnames (false by default)"};
inline constexpr Option list_in_blocks = {"in-blocks", flag, optional, "report in blocks rather than bytes (false by default)"};
inline constexpr Option full_names = {"fullname", flag, optional, "report full attachment paths (false by default)"};
inline constexpr Option uploaded_file = {"file-name", text, mandatory, "uploaded file name"};
inline constexpr Option attachment = {"attachment-file-name", text, mandatory, "attachment file name"};

inline constexpr Option handler_name = {"handler-name", text, mandatory, "handler name"};
inline constexpr Option handler_type = {"handler-type", text, mandatory, "handler type (global|sender|recipient|sender-domain|recipient-domain)"};
// Required unless the type is global, which the parser cannot express: a handler command raises
// when it is missing.
inline constexpr Option handler_type_name = {"handler-type-name", text, optional, "handler type name"};
inline constexpr Option executable = {"executable", text, mandatory, "executable"};
inline constexpr Option context = {"context", text, mandatory, "context"};
inline constexpr Option hook = {"hook", text, mandatory, "hook point (before-queue|before-local|before-remote)"};
inline constexpr Option priority = {"priority", text, mandatory, "handler priority"};

inline constexpr Option uploaded_key = {"file-name", text, mandatory, "full path to uploaded key"};
inline constexpr Option ip_address = {"ip-address", text, mandatory, "IPv4 address"};
inline constexpr Option netmask = {"netmask", prefix_length, mandatory, "netmask"};
inline constexpr Option maps_zones = {"maps-zones", texts, optional, "MAPS zones"};
inline constexpr Option accounts_format = {"account-format", format, mandatory, "Accounts format (currently only compound supported)"};
inline constexpr Option letter_size = {"size", number, mandatory, "letter size"};

inline constexpr Option relay_client = {"relayclient", flag, optional, "whether to enable mail relaying (disabled by default)"};
inline constexpr Option smtp_auth = {"smtpauth", flag, optional, "whether to enable SMTP authorization (disabled by default)"};
inline constexpr Option pop_auth = {"popauth", flag, optional, "whether to enable POP3 before SMTP authorization (disabled by default)"};
inline constexpr Option poplock_time = {"poplock-time", lock_time, optional, "POP3 authorization validity time"};
inline constexpr Option short_names = {"shortnames", flag, optional, "whether to enable short names (legacy, not supported)"};

inline constexpr Option spf_behavior = {"spf-behavior", text, optional, "SPF behavior"};
inline constexpr Option spf_rules = {"spf-rules", text, optional, "SPF rules"};
inline constexpr Option spf_guess = {"spf-guess", text, optional, "SPF guess"};
inline constexpr Option spf_exp = {"spf-exp", text, optional, "SPF exp"};

inline constexpr Option mail_component = {"mail-component", components, optional, "mail component name (mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|all) (default all)"};

} // namespace option
// clang-format on

// Declare the options of the two whitelist commands, and those that two alias domain commands have
// for mail to unknown addresses. No command calls these functions: the rows of the commands name
// the same options.
void formWhitelistOptions(ProgramOptionsHelper& helper);
void formNotexistingMailOptions(ProgramOptionsHelper& helper);

} // namespace orvek::mail::postfix::mailvek_commands

#endif
