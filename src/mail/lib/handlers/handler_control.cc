#include "mail/lib/handlers/handler_control.h"

#include "lib/beneath/file_name.h"
#include "lib/files/libdir.h"
#include "lib/files/libfile.h"
#include "lib/files/umask_guard.h"
#include "lib/report/form_path.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "mail/lib/handlers/handler_descriptor.h"
#include "mail/lib/handlers/handler_lookup.h"
#include "mail/lib/handlers/handler_name.h"
#include "mail/lib/handlers/handler_parameters.h"
#include "mail/lib/handlers/handler_types.h"
#include "mail/lib/handlers/mail_handlers.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

// The hook directory of a handler, and its marker there.
struct HookPlace
{
    char const* type; // the table's text
    CString hook;
    char directory[path_size];
    char marker[path_size];
};

// The result of an action, and whether the store is refreshed and tidied afterwards.
struct Outcome
{
    int result;
    bool refreshes;
};

constexpr Outcome then_refresh(int result)
{
    return {result, true};
}

constexpr Outcome without_refresh(int result)
{
    return {result, false};
}

bool exists(char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path, &info) == 0;
}

// False when the path cannot be looked at, since something may be there.
bool is_absent(char const* path)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(path, &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

CString fetch(char const* name, char const* param)
{
    CString value(get_handler_parameter(name, param));
    if (!value) {
        return CString(
            log_null("Unable to fetch '%s' parameter value for handler '%s'", param, name));
    }
    return value;
}

bool form_directory(HookPlace& place, char const* value)
{
    if (!value)
        return form_path(place.directory, "%s/%s/%s", handlers_root, place.hook.get(), place.type);
    return form_path(place.directory, "%s/%s/%s/%s", handlers_root, place.hook.get(), place.type,
                     value);
}

int form_place(char const* name, HookPlace& place, char const* value)
{
    if (!form_directory(place, value)) {
        return log_failure(
            "handler parameters values are too long to form a valid filesystem object name");
    }
    if (!form_path(place.marker, "%s/%s", place.directory, name))
        return log_failure("handler name is too long to form a valid filesystem object name");
    return 0;
}

int find_place(char const* name, HookPlace& place)
{
    CString const stored(fetch(name, "handler-type"));
    if (!stored)
        return -1;
    std::size_t const type = find_handler_type(stored.get());
    if (type == no_handler_type)
        return log_failure("Invalid handler type '%s' for handler '%s'", stored.get(), name);
    place.type = handler_types[type];
    place.hook = fetch(name, "hook");
    if (!place.hook)
        return -1;
    if (!is_file_name(place.hook.get()))
        return log_failure("Invalid handler hook '%s' for handler '%s'", place.hook.get(), name);
    if (type == global_handler_type)
        return form_place(name, place, nullptr);
    CString const value(fetch(name, place.type));
    if (!value)
        return -1;
    if (!is_file_name(value.get()))
        return log_failure("Invalid handler value '%s' for handler '%s'", value.get(), name);
    return form_place(name, place, value.get());
}

Outcome enable(HookPlace& place)
{
    {
        // The mail chain does not run as root and must reach the markers.
        UmaskGuard const mask(022);
        if (make_dir_rec(place.directory, 0, 0, 0755) != 0)
            static_cast<void>(log_failure("Unable to create directory '%s'", place.directory));
    }
    return then_refresh(create_empty_file(place.marker));
}

Outcome disable(char const* name, HookPlace const& place)
{
    if (is_absent(place.marker) || unlink(place.marker) == 0)
        return then_refresh(0);
    return without_refresh(log_failure("Unable to remove hook '%s' from directory '%s': %s", name,
                                       place.directory, strerror(errno)));
}

Outcome disable_and_delete(char const* name)
{
    if (control_handler_queue(name, nullptr, HOOK_DISABLE) != 0)
        return then_refresh(-1);
    return then_refresh(remove_handler_descriptor(name));
}

// The real path of a handler's program. Null, reported, after a failure.
CString executable_of(char const* name)
{
    char link[path_size];
    if (!form_path(link, "%s/%s/executable", handlers_info, name)) {
        return CString(
            log_null("HandlerName '%s' is too long to form a valid hook filename", name));
    }
    CString target(static_cast<char*>(calloc(1, path_size)));
    if (!target)
        return CString(log_null("Insufficient memory"));
    if (!realpath(link, target.get()))
        return CString(log_null("Unable to get executable file name for handler\n"));
    return target;
}

Outcome clone(char const* name, HookPlace const& place, char const* newTypeName)
{
    HandlerNameParts parts;
    if (split_handler_name(name, parts) != 0)
        return then_refresh(-1);
    std::string const name_template(parts.name_template);
    char const* const hook = place.hook.get();
    CString const copy(get_handler_name(name_template.c_str(), place.type, newTypeName, hook));
    if (copy)
        return without_refresh(0);
    CString const executable(executable_of(name));
    CString const context(get_handler_parameter(name, "context"));
    if (!executable || !context)
        return then_refresh(-1);
    // Deliberate: the copy is active even if the handler is not.
    int const added =
        mail_handler_add(name_template.c_str(), place.type, newTypeName, executable.get(),
                         context.get(), hook, std::string(parts.priority).c_str(), HOOK_ENABLE);
    return added == 0 ? then_refresh(0) : without_refresh(added);
}

// The copy that a move of this handler has made, or null.
CString find_copy(char const* name, HookPlace const& place, char const* newTypeName)
{
    HandlerNameParts parts;
    if (split_handler_name(name, parts) != 0)
        return nullptr;
    std::string const name_template(parts.name_template);
    return CString(
        get_handler_name(name_template.c_str(), place.type, newTypeName, place.hook.get()));
}

// The link is the last part of a descriptor that is made.
bool is_unfinished(char const* name)
{
    char link[path_size];
    struct stat info = {};
    ErrnoKeeper const keeper;
    return form_path(link, "%s/%s/executable", handlers_info, name) && lstat(link, &info) != 0 &&
           errno == ENOENT;
}

// A clone takes a copy as it is, and a killed move may have left one without its program or marker.
int clone_whole(char const* name, HookPlace const& place, char const* newTypeName)
{
    CString const found = find_copy(name, place, newTypeName);
    if (found && is_unfinished(found.get()) && remove_handler_descriptor(found.get()) != 0)
        return -1;
    int const cloned = control_handler_queue(name, newTypeName, HOOK_CLONE);
    if (cloned != 0 || !found || !exists(place.marker))
        return cloned;
    CString const copy = find_copy(name, place, newTypeName);
    if (!copy || control_handler_queue(copy.get(), nullptr, HOOK_CHECK) != 0)
        return 0;
    return control_handler_queue(copy.get(), nullptr, HOOK_ENABLE);
}

Outcome move(char const* name, HookPlace const& place, char const* newTypeName)
{
    int const cloned = clone_whole(name, place, newTypeName);
    return cloned == 0 ? disable_and_delete(name) : then_refresh(cloned);
}

Outcome act(char const* name, HookPlace& place, char const* newTypeName, handler_control_t action)
{
    switch (action) {
    case HOOK_DELETE:
        return disable_and_delete(name);
    case HOOK_ENABLE:
        return enable(place);
    case HOOK_DISABLE:
        return disable(name, place);
    case HOOK_CHECK:
        return without_refresh(exists(place.marker) ? 1 : 0);
    case HOOK_CLONE:
        return clone(name, place, newTypeName);
    case HOOK_MOVE:
        return move(name, place, newTypeName);
    case HOOK_ADD:
        break;
    }
    // Deliberate: operators search for the misspelt text.
    return then_refresh(
        log_failure("UKNOWN ACTION %d requested for handler %s", static_cast<int>(action), name));
}

// Leaves a directory that is not empty.
void remove_directory(char const* path)
{
    ErrnoKeeper const keeper;
    rmdir(path);
}

} // namespace

int control_handler_queue(char const* name, char const* newTypeName, handler_control_t action)
{
    HookPlace place;
    if (find_place(name, place) != 0)
        return -1;
    Outcome const outcome = act(name, place, newTypeName, action);
    if (outcome.refreshes) {
        refresh_handlers();
        remove_directory(place.directory);
    }
    return outcome.result;
}
