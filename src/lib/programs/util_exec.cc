#include "lib/programs/util_exec.h"

#include "lib/conf/autoprepend.h"
#include "lib/programs/argument_vector.h"
#include "lib/programs/forkexec.h"
#include "lib/report/liblog.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr char libexec_dir[] = "/usr/lib64/orvek-9.0";

// Deliberate: a path that does not fit is cut, and the program with the cut name runs.
using Path = std::array<char, 4096>;

[[nodiscard]] bool is_utility_name(char const* util)
{
    if (!strchr(util, '/'))
        return true;
    messlog2(0, 0, "Utility name '%s' is invalid. Use only utility name without path.", util);
    return false;
}

Path utility_path(char const* util)
{
    Path path;
    snprintf(path.data(), path.size(), "%s/admin/bin/%s",
             orvConfGetDefaultByIndex(_PRODUCT_ROOT_D_INDEX), util);
    return path;
}

Path libexec_path(char const* util)
{
    Path path;
    snprintf(path.data(), path.size(), "%s/%s", libexec_dir, util);
    return path;
}

} // namespace

int path_exec_raw(char const* path, va_list args)
{
    return fork_execv_log(path, fixed_vector(path, args).data(), 0);
}

int path_exec(char const* path, ...)
{
    va_list args;
    va_start(args, path);
    int const result = path_exec_raw(path, args);
    va_end(args);
    return result;
}

int util_exec(char const* util, ...)
{
    if (!is_utility_name(util))
        return -1;
    va_list args;
    va_start(args, util);
    int const result = path_exec_raw(utility_path(util).data(), args);
    va_end(args);
    return result;
}

int util_exec_args(char const* util, char const* const* args)
{
    if (!is_utility_name(util))
        return -1;
    return fork_execv_log(utility_path(util).data(), args, 0);
}

int util_libexec(char const* util, ...)
{
    va_list args;
    va_start(args, util);
    int const result = path_exec_raw(libexec_path(util).data(), args);
    va_end(args);
    return result;
}
