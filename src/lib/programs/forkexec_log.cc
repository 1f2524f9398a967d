#include "lib/programs/forkexec.h"

#include "lib/programs/argument_vector.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/report/visible.h"

#include <cstdarg>
#include <cstdio>

int fork_execv_log(char const* path, char const* const* args, int ignore_exit_status)
{
    char* collected[2];
    int const result = fork_execv_getouterr(&collected[0], &collected[1], path, args);
    CString const out(collected[0]);
    CString const err(collected[1]);
    if (result == 0 || ignore_exit_status != 0)
        return result;
    if (out)
        fputs(visible_lines(out.get()).c_str(), stderr);
    if (err && *err)
        messlog2(0, 0, "%s execution failed:\n%s", path, err.get());
    else
        messlog2(0, 0, "%s execution failed (no output)", path);
    return result;
}

int fork_execl_log(char const* path, ...)
{
    va_list list;
    va_start(list, path);
    FixedVector const args = fixed_vector(nullptr, list);
    va_end(list);
    return fork_execv_log(path, args.data(), 0);
}
