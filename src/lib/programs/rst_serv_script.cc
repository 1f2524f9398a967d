#include "lib/programs/rst_serv.h"

#include "lib/programs/close_descriptors.h"
#include "lib/programs/forkexec_child.h"
#include "lib/programs/send_sig.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <libgen.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Call
{
    char const* path;
    char const* service;
    char const* action;
    char const* word; // what a report calls the action
};

// Ends the process unless path is a regular file.
void require_script(char const* path)
{
    struct stat info = {};
    if (stat(path, &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            fatal("No such file '%s': %s", path, strerror(errno));
        fatal("Error during access to '%s': %s", path, strerror(errno));
    }
    if (!S_ISREG(info.st_mode))
        fatal("Not a regular file: '%s'", path);
}

[[nodiscard]] bool connect_to_null()
{
    int const null = open("/dev/null", O_RDWR);
    bool const connected =
        null >= 0 && dup2(null, STDIN_FILENO) >= 0 && dup2(null, STDOUT_FILENO) >= 0;
    if (null > STDERR_FILENO)
        close(null);
    return connected;
}

// Runs in the child from fork to exec. The tool has one thread, so stdio and exit are safe here.
[[noreturn]] void run_script(Call const& call, char const* directory)
{
    if (chdir(directory) != 0)
        fatal("Unable to change directory to %s: %s\n", directory, strerror(errno));
    if (setsid() < 0) {
        perror("setsid() failed");
        _exit(3);
    }
    close_descriptors();
    if (!connect_to_null())
        _exit(errno);
    // execlp, because a script need not name its interpreter.
    execlp(call.path, call.service, call.action, static_cast<char*>(nullptr));
    _exit(errno);
}

[[nodiscard]] int script_result(Call const& call, int status, bool report_failure)
{
    if (WIFSIGNALED(status))
        return failure(-1, "Unable to %s service %s: daemon killed by signal %i\n", call.word,
                       call.service, WTERMSIG(status));
    if (WIFSTOPPED(status))
        return failure(-1, "Unable to %s service %s: daemon stopped by signal %i\n", call.word,
                       call.service, WSTOPSIG(status));
    if (WEXITSTATUS(status) == 0)
        return 0;
    if (report_failure && strcmp(call.action, "status") != 0)
        return failure(-1, "Service %s failed to %s\n", call.service, call.word);
    return -1;
}

[[nodiscard]] int run(Call const& call, bool report_failure)
{
    CString const copy(asprintf_safe("%s", call.path));
    char const* const directory = dirname(copy.get());
    pid_t const child = fork_written_out();
    if (child < 0)
        return failure(-1, "fork: %s for %s: %s\n", call.word, call.service, strerror(errno));
    if (child == 0)
        run_script(call, directory);
    int status = 0;
    if (waitpid(child, &status, WUNTRACED) < 0)
        return failure(-1, "Error occured during %s service %s: %s\n", call.word, call.service,
                       strerror(errno));
    return script_result(call, status, report_failure);
}

} // namespace

int rc_script_gen(char const* path, char const* service, char const* action, int report_failure)
{
    bool const graceful = strcmp(action, "graceful") == 0;
    Call call = {path, service, action, graceful ? "gracefully restart" : action};
    if (graceful && is_running("httpd2-prefork") == 0)
        call.action = call.word = "restart";
    require_script(path);
    return run(call, report_failure != 0);
}

int rc_script(char const* path, char const* action)
{
    return rc_script_gen(path, path, action, 1);
}
