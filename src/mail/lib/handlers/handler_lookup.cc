#include "mail/lib/handlers/handler_lookup.h"

#include "lib/beneath/file_name.h"
#include "lib/files/libfile.h"
#include "lib/files/next_entry.h"
#include "lib/report/form_path.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "lib/text/libsafe.h"
#include "mail/lib/handlers/handler_parameters.h"
#include "mail/lib/handlers/handler_types.h"

#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <strings.h>

namespace {

struct Wanted
{
    char const* name_template;
    char const* type;
    char const* type_name; // null for any value
    char const* hook;
};

using Value = char[handler_parameter_size];
using Compare = int(char const*, char const*);

// The compare functions return 1 for a match, 0 for none, -1 for a parameter that cannot be read.

int compare_parameter(char const* path, char const* entry, char const* param, char const* wanted,
                      Compare* compare)
{
    Value value;
    if (read_handler_parameter(value, path, entry, param) != 0)
        return log_failure("Unable to get string from file: %s\n", strerror(errno));
    return compare(value, wanted) == 0 ? 1 : 0;
}

int compare_hook(char const* entry, Wanted const& wanted)
{
    char path[path_size];
    if (!form_path(path, "%s/%s/hook", handlers_info, entry))
        return log_failure("Path '%s/%s/hook' is too long to be stored in the filesystem",
                           handlers_info, entry);
    return compare_parameter(path, entry, "hook", wanted.hook, strcmp);
}

// Deliberate: case matters here, although a type is accepted in any case elsewhere.
int compare_type(char const* entry, Wanted const& wanted)
{
    char path[path_size];
    if (!form_path(path, "%s/%s/handler-type", handlers_info, entry))
        return log_failure("Path '%s/%s/handler-type' is too long to be stored in the filesystem",
                           handlers_info, entry);
    return compare_parameter(path, entry, "handler-type", wanted.type, strcmp);
}

int compare_value(char const* entry, Wanted const& wanted)
{
    if (!wanted.type_name)
        return 1;
    char path[path_size];
    if (!form_path(path, "%s/%s/%s", handlers_info, entry, wanted.type))
        return log_failure("Path '%s/%s/%s' is too long to be stored in the filesystem",
                           handlers_info, entry, wanted.type);
    return compare_parameter(path, entry, wanted.type, wanted.type_name, strcasecmp);
}

int compare_handler(char const* entry, Wanted const& wanted)
{
    if (!strstr(entry, wanted.name_template))
        return 0;
    for (auto* const compare : {compare_hook, compare_type, compare_value}) {
        int const match = compare(entry, wanted);
        if (match != 1)
            return match;
    }
    return 1;
}

char* find_handler(Wanted const& wanted)
{
    OpenDir const info(opendir(handlers_info));
    if (!info)
        return log_null("Unable to open directory %s: %s", handlers_info, strerror(errno));
    char const* entry = nullptr;
    int more = 0;
    while ((more = next_entry(info, &entry)) > 0) {
        int const match = compare_handler(entry, wanted);
        if (match == 0)
            continue;
        if (match < 0)
            return nullptr;
        CString name(strdup(entry));
        return name ? name.release() : log_null("Insufficient memory");
    }
    if (more < 0)
        return log_null("Unable to read directory %s: %s", handlers_info, strerror(errno));
    return nullptr;
}

// Null for a value without "@".
char const* domain_of(char const* value)
{
    char const* const at = strchr(value, '@');
    return at ? at + 1 : nullptr;
}

// Leaves the path as it is when the value is null.
bool form_hook_directory(char (&path)[path_size], char const* hook, std::size_t type,
                         char const* value)
{
    if (type == global_handler_type)
        return form_path(path, "%s/%s/%s", handlers_root, hook, handler_types[type]);
    return !value ||
           form_path(path, "%s/%s/%s/%s", handlers_root, hook, handler_types[type], value);
}

// Returns 1, 0 or -1 as mail_handler_check_all does.
int check_directory(char const* path)
{
    int const before = errno;
    OpenDir const dir(opendir(path));
    if (dir) {
        char const* name = nullptr;
        int const more = next_entry(dir, &name);
        return more < 0 ? log_failure("Unable to read dir %s: %s", path, strerror(errno)) : more;
    }
    if (errno != ENOENT)
        return log_failure("Unable to open dir %s: %s", path, strerror(errno));
    errno = before;
    return 0;
}

} // namespace

char* get_handler_name(char const* name_template, char const* type, char const* typeName,
                       char const* hook)
{
    if (isempty(name_template) || isempty(hook))
        return log_null("Some parameter(s) were not defined");
    std::size_t const index = find_handler_type(type);
    if (index == no_handler_type)
        return log_null("Invalid handler type '%s'", type ? type : "(null)");
    if (index == global_handler_type)
        return find_handler({name_template, type, nullptr, hook});
    if (isempty(typeName))
        return log_null("Some parameter was not defined");
    return find_handler({name_template, type, typeName, hook});
}

int mail_handler_check_all(char const* value, char const* hook)
{
    char const* const domain = domain_of(value);
    // Deliberate: for a value without a domain the path of the previous type stays, so that
    // directory is checked again.
    char const* const values[] = {value, value, domain, domain, value};
    if (!is_file_name(hook) || !is_file_name(value))
        return log_failure("Invalid handler hook '%s' or value '%s'", hook, value);
    char path[path_size] = "";
    for (std::size_t type = 0; handler_types[type]; ++type) {
        if (!form_hook_directory(path, hook, type, values[type])) {
            return log_failure("Path %s/%s/%s/%s too long to be stored in the filesystem",
                               handlers_root, hook, handler_types[type], values[type]);
        }
        int const found = check_directory(path);
        if (found != 0)
            return found;
    }
    return 0;
}
