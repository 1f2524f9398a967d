#include "mail/lib/handlers/mail_handlers.h"

#include "lib/files/libfile.h"
#include "lib/report/form_path.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "lib/text/libsafe.h"
#include "lib/text/string.h"
#include "mail/lib/handlers/handler_descriptor.h"
#include "mail/lib/handlers/handler_lookup.h"
#include "mail/lib/handlers/handler_name.h"
#include "mail/lib/handlers/handler_parameters.h"
#include "mail/lib/handlers/handler_types.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using Path = char[path_size];

char const* shown(char const* text)
{
    return text ? text : "(null)";
}

int check_executable(char const* executable)
{
    struct stat info = {};
    if (stat(executable, &info) != 0)
        return log_failure("Unable to stat executable '%s': %s", executable, strerror(errno));
    return 0;
}

int check_name(char const* what, char const* name)
{
    return is_storable_name(name) ? 0 : log_failure("Invalid handler %s '%s'", what, shown(name));
}

// A name that becomes a directory of the store, so its length is limited too.
int check_stored_name(char const* what, char const* name)
{
    if (check_name(what, name) != 0)
        return -1;
    return strlen(name) <= NAME_MAX ? 0 : log_failure("Invalid handler %s '%s'", what, name);
}

// Refuses what cannot be read back, since it would end every later walk over the store.
int check_parameters(char const* name_template, char const* typeName, char const* context,
                     char const* hook, char const* priority)
{
    if (check_name("template", name_template) != 0 || check_stored_name("hook", hook) != 0 ||
        check_name("priority", priority) != 0)
        return -1;
    if (!isempty(typeName) && check_stored_name("value", typeName) != 0)
        return -1;
    if (!is_readable_line(context))
        return log_failure("Invalid handler context '%s'", context);
    return 0;
}

int make_descriptor(Path& dir, char const* name_template, char const* priority)
{
    if (!form_path(dir, "%s/%s-%s-XXXXXX", handlers_info, priority, name_template)) {
        return log_failure("Name template '%s' or priority '%s' are too long to form a valid "
                           "handler name",
                           name_template, priority);
    }
    if (!mkdtemp(dir))
        return log_failure("Unable to create directory %s: %s", dir, strerror(errno));
    if (chmod(dir, 0755) != 0) {
        return log_failure("Unable to change permissions for directory '%s': %s", dir,
                           strerror(errno));
    }
    return 0;
}

int store_parameter(char const* dir, char const* param, char const* value)
{
    if (string_to_file(dir, param, value) != 0)
        return log_failure("Unable to store handler parameters into directory '%s'", dir);
    return 0;
}

int store_value(char const* dir, char const* type, char const* typeName)
{
    if (!typeName)
        return 0;
    CString const value(strtolower_dynamic(typeName));
    if (!value)
        return log_failure("Unable to convert HandlerTypeName to lowercase");
    return store_parameter(dir, type, value.get());
}

int make_global_flag(char const* dir)
{
    Path flag;
    if (!form_path(flag, "%s/%s", dir, handler_types[global_handler_type]))
        return log_failure("global handler flag name is too long to be stored in the filesystem");
    if (create_empty_file(flag) != 0)
        return log_failure("Unable to create file '%s'", flag);
    return 0;
}

int link_executable(char const* dir, char const* executable)
{
    Path link;
    if (!form_path(link, "%s/executable", dir))
        return log_failure("executable link name is too long to be stored in the filesystem");
    int const before = errno;
    if (symlink(executable, link) == 0)
        return 0;
    if (errno != EEXIST)
        return log_failure("Unable to symlink '%s' to '%s'", executable, link);
    errno = before;
    return 0;
}

// Reads the target of the old handler's link, unresolved. Empty, with a warning, after a failure.
int read_executable(char const* name, Path& target)
{
    Path link;
    if (!form_path(link, "%s/%s/executable", handlers_info, name)) {
        return log_failure("handler name '%s' is too long to form a valid filesystem object name",
                           name);
    }
    ssize_t const length = readlink(link, target, path_size - 1);
    if (length < 0)
        orvek_log(LOG_WARNING, "Unable to fetch executable link target: %s", strerror(errno));
    target[length < 0 ? 0 : length] = '\0';
    return 0;
}

} // namespace

int mail_handler_add(char const* name_template, char const* type, char const* typeName,
                     char const* executable, char const* context, char const* hook,
                     char const* priority, handler_control_t action)
{
    if (check_executable(executable) != 0)
        return -1;
    std::size_t const index = find_handler_type(type);
    if (index == no_handler_type)
        return log_failure("Handler type is invalid: %s", shown(type));
    bool const global = index == global_handler_type;
    if (!global && isempty(typeName))
        return log_failure("HandlerTypeName parameter is not defined");
    if (check_parameters(name_template, typeName, context, hook, priority) != 0)
        return -1;

    Path dir;
    if (make_descriptor(dir, name_template, priority) != 0 ||
        store_parameter(dir, "hook", hook) != 0 || store_parameter(dir, "context", context) != 0 ||
        store_parameter(dir, "handler-type", handler_types[index]) != 0 ||
        store_value(dir, handler_types[index], typeName) != 0)
        return -1;
    // This also empties the value of a global handler.
    if (global && make_global_flag(dir) != 0)
        return -1;
    if (link_executable(dir, executable) != 0)
        return -1;
    char const* const name = dir + sizeof handlers_info; // after the slash
    return control_handler_queue(name, nullptr, action);
}

int mail_handler_update(char const* name_template, char const* type, char const* typeName,
                        char const* executable, char const* context, char const* hook,
                        char const* priority)
{
    CString const name(get_handler_name(name_template, type, typeName, hook));
    if (!name) {
        return log_failure("Handler %s for %s does not exist in queue %s", shown(name_template),
                           shown(typeName), shown(hook));
    }

    Path old_executable;
    bool const keeps_executable = isempty(executable);
    if (keeps_executable && read_executable(name.get(), old_executable) != 0)
        return -1;
    if (!keeps_executable && check_executable(executable) != 0)
        return -1;

    bool const keeps_context = isempty(context);
    CString const old_context(keeps_context ? get_handler_parameter(name.get(), "context")
                                            : nullptr);

    HandlerNameParts old;
    bool const keeps_priority = isempty(priority);
    if (keeps_priority && split_handler_name(name.get(), old) != 0)
        return -1;
    std::string const old_priority(old.priority);

    char const* const new_executable = keeps_executable ? old_executable : executable;
    char const* const new_context = keeps_context ? old_context.get() : context;
    char const* const new_priority = keeps_priority ? old_priority.c_str() : priority;
    // What mail_handler_add will refuse must not cost the handler that is there.
    if (check_parameters(name_template, typeName, new_context, hook, new_priority) != 0)
        return -1;

    bool const active = control_handler_queue(name.get(), nullptr, HOOK_CHECK) == 1;
    if (control_handler_queue(name.get(), nullptr, HOOK_DISABLE) != 0)
        return -1;
    if (remove_handler_descriptor(name.get()) != 0)
        return -1;
    return mail_handler_add(name_template, type, typeName, new_executable, new_context, hook,
                            new_priority, active ? HOOK_ENABLE : HOOK_DISABLE);
}

int mail_handler_remove(char const* name)
{
    if (control_handler_queue(name, nullptr, HOOK_DISABLE) != 0)
        return -1;
    return remove_handler_descriptor(name);
}
