#include "mail/lib/handlers/handler_mass_control.h"

#include "lib/files/next_entry.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "mail/lib/handlers/handler_name.h"
#include "mail/lib/handlers/handler_parameters.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>

namespace {

struct ByTemplate
{
    char const* name_template; // null for all
    handler_control_t action;
};

struct ByMailname
{
    char const* name;
    char const* new_name;
    handler_control_t action;
    bool is_domain;
};

int control_by_template(char const* entry, ByTemplate const& wanted)
{
    if (wanted.name_template) {
        HandlerNameParts parts;
        if (split_handler_name(entry, parts) != 0)
            return -1;
        if (parts.name_template != wanted.name_template)
            return 0;
    }
    return control_handler_queue(entry, nullptr, wanted.action);
}

// The first "@" of an address, or null.
char const* at_of(char const* address)
{
    return strchr(address, '@');
}

int control_address(char const* entry, char const* value, ByMailname const& wanted)
{
    if (!wanted.new_name)
        return control_handler_queue(entry, nullptr, wanted.action);
    CString const new_value(
        asprintf_safe("%.*s@%s", static_cast<int>(at_of(value) - value), value, wanted.new_name));
    return control_handler_queue(entry, new_value.get(), wanted.action);
}

// Returns 0 at once for a handler with another value.
int control_value(char const* entry, char const* value, ByMailname const& wanted)
{
    if (strcmp(value, wanted.name) == 0)
        return control_handler_queue(entry, wanted.new_name, wanted.action);
    char const* const at = wanted.is_domain ? at_of(value) : nullptr;
    return at && strcmp(at + 1, wanted.name) == 0 ? control_address(entry, value, wanted) : 0;
}

int control_by_mailname(char const* entry, ByMailname const& wanted)
{
    CString const type(get_handler_parameter(entry, "handler-type"));
    if (!type)
        return log_failure("Unable to get type of handler: %s\n", entry);
    CString const value(get_handler_parameter(entry, type.get()));
    if (!value)
        return log_failure("Unable to get mailname from handler: %s\n", entry);
    if (control_value(entry, value.get(), wanted) != 0)
        return log_failure("Unable to exec action for handler: %s\n", entry);
    return 0;
}

// Lists all names before the first action: a walk that met the copies it makes might never end.
int list_handlers(std::vector<std::string>& names)
{
    OpenDir const info(opendir(handlers_info));
    if (!info)
        return log_failure("Unable to open directory %s: %s", handlers_info, strerror(errno));
    char const* name = nullptr;
    int more = 0;
    while ((more = next_entry(info, &name)) > 0)
        names.emplace_back(name);
    if (more < 0)
        return log_failure("Unable to read directory %s: %s", handlers_info, strerror(errno));
    return 0;
}

template<typename Wanted>
int control_each(int (*control)(char const* entry, Wanted const& wanted), Wanted const& wanted)
{
    std::vector<std::string> names;
    if (list_handlers(names) != 0)
        return -1;
    int errors = 0;
    for (std::string const& name : names)
        if (control(name.c_str(), wanted) != 0)
            ++errors;
    // Deliberate: "was". Operators search for this text.
    if (errors != 0)
        return log_failure("Some errors was occured in mass hook operation. errors: %i", errors);
    return 0;
}

} // namespace

int mass_control_handler_queue(char const* name_template, handler_control_t action)
{
    bool const all = strcmp(name_template, "all") == 0;
    return control_each(control_by_template, ByTemplate{all ? nullptr : name_template, action});
}

int mass_control_handler_by_mailname(char const* name, char const* newName,
                                     handler_control_t action)
{
    return control_each(control_by_mailname, ByMailname{name, newName, action, !at_of(name)});
}
