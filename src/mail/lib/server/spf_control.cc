#include "mail/lib/server/spf_control.h"

#include "lib/files/umask_guard.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

struct Parameter
{
    char const* file;
    char const* report;
};

constexpr Parameter parameters[] = {
    {"/etc/orv-spf/spfbehavior", "Unable to update 'spf_behavior' parameter"},
    {"/etc/orv-spf/spfrules", "Unable to update 'spf_rules' parameter"},
    {"/etc/orv-spf/spfguess", "Unable to update 'spf_guess' parameter"},
    {"/etc/orv-spf/spfexp", "Unable to update 'spf_exp' parameter"},
};

// A new file has mode 0644, whatever the umask.
OpenFile open_for_all_to_read(char const* path)
{
    UmaskGuard const readable(022);
    return OpenFile(fopen(path, "w"));
}

// Returns 0, or -1 reported, with errno of the failing call.
int write_value(char const* path, char const* value)
{
    OpenFile file = open_for_all_to_read(path);
    if (!file) {
        messlog2(0, 1, "Unable to open file %s for writing: %s", path, strerror(errno));
        return -1;
    }
    // fputs already writes part of a long value, and fclose does not report a failure of that part.
    bool const written = fputs(value, file.get()) != EOF;
    if (fclose(file.release()) != 0 || !written) {
        messlog2(0, 1, "Unable to close file %s: %s", path, strerror(errno));
        return -1;
    }
    return 0;
}

} // namespace

int update_spf(char const* SpfBehavior, char const* SpfRules, char const* SpfGuess,
               char const* SpfExp)
{
    char const* const values[] = {SpfBehavior, SpfRules, SpfGuess, SpfExp};
    static_assert(std::size(values) == std::size(parameters));
    for (size_t i = 0; i < std::size(parameters); ++i) {
        if (!values[i] || write_value(parameters[i].file, values[i]) == 0)
            continue;
        messlog2(0, 1, "%s", parameters[i].report);
        return -1;
    }
    return 0;
}
