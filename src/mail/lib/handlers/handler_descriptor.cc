#include "mail/lib/handlers/handler_descriptor.h"

#include "lib/files/libtree.h"
#include "lib/programs/forkexec.h"
#include "lib/report/form_path.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/handlers/handler_parameters.h"

#include <sys/stat.h>
#include <syslog.h>

namespace {

constexpr char handlers_tmpfs[] = "/usr/lib64/orvek-9.0/handlers-tmpfs";

bool is_installed(char const* program)
{
    ErrnoKeeper const keeper;
    struct stat info = {};
    return stat(program, &info) == 0 && S_ISREG(info.st_mode) && (info.st_mode & S_IXUSR) != 0;
}

} // namespace

int remove_handler_descriptor(char const* name)
{
    char path[path_size];
    if (!form_path(path, "%s/%s", handlers_info, name)) {
        return log_failure("handler name is too long to form a valid filesystem object name");
    }
    HandlerStoreReading::forget(name);
    rm_tree(path, 1);
    refresh_handlers();
    return 0;
}

void refresh_handlers()
{
    if (!is_installed(handlers_tmpfs))
        return;
    char const* const args[] = {handlers_tmpfs, "refresh", nullptr};
    if (fork_execv_log(handlers_tmpfs, args, 0) != 0)
        orvek_log(LOG_ERR, "Cannot sync tmps storage to fs");
}
