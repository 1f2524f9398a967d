#include "mail/lib/server/courier_configure.h"

#include "lib/beneath/place.h"
#include "lib/beneath/temporary_file.h"
#include "lib/conf/autoprepend.h"
#include "lib/programs/rst_serv.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstring>

#include <sys/types.h>

namespace {

constexpr char const* courierConfFile[] = {"imapd", "imapd-ssl", "pop3d", "pop3d-ssl"};

constexpr mode_t temporary_mode = 0600;

[[nodiscard]] int too_long(char const* path)
{
    return failure(-1, "File path too long %s\n", path);
}

// Deliberate: the old owner and mode are not restored.
[[nodiscard]] int change_file(char const* path, OpenFile& from, EnvChange const* env)
{
    char longest[path_size];
    if (!form_path(longest, "%s.XXXXXX", path))
        return too_long(longest);
    char const* name = nullptr;
    OpenDescriptor const directory = open_parent(path, name);
    TemporaryFile temporary(directory.get(), name, temporary_mode);
    OpenFile to = temporary.write_stream();
    if (!to)
        return failure(-1, "Unable to create temporary file for %s: %s\n", path, strerror(errno));
    copy_changed_lines(from.get(), to.get(), env);
    if (!feof(from.get()) || ferror(to.get()) || fclose(to.release()) != 0)
        return failure(-1, "Unable to write temporary file content for %s: %s\n", path,
                       errno ? strerror(errno) : "");
    if (fclose(from.release()) != 0 || temporary.replace() != 0)
        return failure(-1, "Unable to move changed file to its location %s: %s\n", path,
                       strerror(errno));
    return 0;
}

// Sets the variable to the value, or removes it.
constexpr EnvChange switched(char const* var, bool on, char const* value)
{
    return {var, on ? ENV_ADD : ENV_DEL, value};
}

} // namespace

int set_courier_params_list(EnvChange const* env)
{
    for (char const* const file : courierConfFile) {
        char path[path_size];
        if (!form_path(path, "%s/etc/courier-imap/%s",
                       orvConfGetDefaultByIndex(_COURIER_IMAP_ROOT_D_INDEX), file))
            return too_long(path);
        OpenFile from(fopen(path, "r"));
        if (!from)
            messlog2(0, 0, "Unable to open %s: %s\n", path, strerror(errno));
        else if (change_file(path, from, env) != 0)
            return -1;
    }
    return restart_daemon("courier-imap", "restart");
}

int set_courier_params(int relayClient, int popAuth, short poplockTime, int shortNames)
{
    char seconds[40];
    snprintf(seconds, sizeof seconds, "%d", poplockTime);
    EnvChange const env[] = {
        switched("RELAYCLIENT", relayClient != 0, ""),
        switched("POPAUTH", popAuth != 0, "1"),
        switched("SHORTNAMES", shortNames != 0, "1"),
        switched(poplockTime < 0 ? nullptr : "POPLOCK_TIME", poplockTime > 0, seconds),
        {nullptr, ENV_ADD, nullptr},
    };
    return set_courier_params_list(env);
}

int set_courier_shortnames_params(int shortNames)
{
    EnvChange const env[] = {
        switched("SHORTNAMES", shortNames != 0, "1"),
        {nullptr, ENV_ADD, nullptr},
    };
    return set_courier_params_list(env);
}
