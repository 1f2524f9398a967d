#include "lib/programs/send_sig.h"

#include "lib/host/process_status.h"
#include "lib/programs/forkexec.h"
#include "lib/programs/forkexec_child.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/report/visible.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char ps[] = "/bin/ps";
constexpr char grep[] = "/bin/grep";
constexpr char awk[] = "/usr/bin/awk";
constexpr char kill_program[] = "/bin/kill";

// kill takes 0 and negative numbers for groups of processes, and 1 is init.
constexpr pid_t lowest_to_signal = 2;

int shell_status(char const* command)
{
    return exit_status(system(command));
}

// Reads the number at the start of a text. False for a number that no process can have.
bool read_pid(char const* text, pid_t& pid)
{
    char* end = nullptr;
    long const number = strtol(text, &end, 10);
    pid = static_cast<pid_t>(number);
    return end != text && pid == number;
}

int signal_process(pid_t pid, int sig)
{
    if (pid >= lowest_to_signal || sig == 0)
        return kill(pid, sig);
    errno = EPERM;
    return -1;
}

// Signals the process that the line names. False, reported, for a line without a pid.
bool signal_line(char const* line, size_t length, int sig)
{
    pid_t pid = 0;
    if (!read_pid(line, pid) || pid < 1) {
        messlog2(0, 0, "send_signal_field(): malformed ps output: %.*s", static_cast<int>(length),
                 line);
        return false;
    }
    if (signal_process(pid, sig) != 0)
        messlog2(0, 0, "send_signal_field(): failed to kill %d: %s", pid, strerror(errno));
    return true;
}

int signal_lines_with(char const* text, char const* needle, int sig)
{
    int count = 0;
    char const* rest = text;
    while (char const* const hit = strstr(rest, needle)) {
        char const* line = hit;
        while (line > rest && line[-1] != '\n')
            --line;
        char const* const end = hit + strcspn(hit, "\n");
        if (signal_line(line, static_cast<size_t>(end - line), sig))
            ++count;
        if (end[0] == '\0' || end[1] == '\0')
            break;
        rest = end + 1;
    }
    return count;
}

} // namespace

int send_sig(char const* proc_name, int sig)
{
    char command[path_size];
    // Deliberate: a command that does not fit is cut.
    static_cast<void>(form_path(command,
                                "for pid in `%s axc -opid,command|%s -E \"[0-9] %s$\"|%s '{print "
                                "$1}' -` ; do %s -%d $pid ; done",
                                ps, grep, proc_name, awk, kill_program, sig));
    return shell_status(command);
}

int is_running(char const* proc_name)
{
    char command[path_size];
    // Deliberate: a command that does not fit is cut.
    static_cast<void>(form_path(command,
                                "%s axww | %s -v grep | %s '{ print $5 }' | %s -E "
                                "'((^|/)%s$)|([[(<]%s([)>]|])$)' >/dev/null",
                                ps, grep, awk, grep, proc_name, proc_name));
    return shell_status(command);
}

int kill_by_field(char const* format, char const* needle, int sig)
{
    CString const columns(asprintf_safe("pid,%s", format));
    char* collected = nullptr;
    int const result = fork_execl_getout(&collected, ps, ps, "-Aww", "-o", columns.get(), nullptr);
    CString const output(collected);
    char const* const text = output ? output.get() : "";
    if (result == 0)
        return signal_lines_with(text, needle, sig);
    fputs(visible_lines(text).c_str(), stderr);
    messlog2(0, 0, "send_signal_field(): %s failed", ps);
    return -1;
}

pid_t get_pid_by_pidfile(char const* pidfile_name)
{
    OpenFile const file(fopen(pidfile_name, "r"));
    if (!file) {
        if (errno != ENOENT)
            fatal("open() pidfile '%s' failed: %s", pidfile_name, strerror(errno));
        return -1;
    }
    char word[64];
    pid_t pid = 0;
    if (fscanf(file.get(), "%63s", word) != 1 || !read_pid(word, pid))
        fatal("read from pidfile '%s' failed", pidfile_name);
    return pid;
}

int is_running_pid_file(char const* pidfile_name)
{
    return findProcessByPid(get_pid_by_pidfile(pidfile_name));
}
