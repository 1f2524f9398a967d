#include "lib/programs/popen_exec.h"

#include "lib/programs/forkexec_child.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/liblog.h"
#include "lib/report/owned.h"
#include "lib/text/growing_text.h"

#include <cstdio>

namespace {

// Reads to the end of the output even without memory to keep all of it: SIGPIPE would kill a
// command whose output nobody reads.
void read_output(FILE* stream, GrowingText& text)
{
    bool cut = false;
    for (int c = getc(stream); c != EOF; c = getc(stream)) {
        if (!cut && !text.make_room()) {
            fputs("popen_exec: warning: failed to allocate memory for command output buffer\n",
                  stderr);
            cut = true;
        }
        if (cut)
            continue;
        *text.end() = static_cast<char>(c);
        text.added(1);
    }
}

// Formats the text first, because a report shows the newlines of its arguments as "\n".
void report_output(int result, char const* output)
{
    CString const text(asprintf_safe("popen_exec: command failed code: %d , %s\n", result, output));
    messlog2(0, 0, "%s", text.get());
}

} // namespace

int popen_exec_getoutput(char** dest, char const* cmd)
{
    *dest = nullptr;
    OpenCommand command(popen(cmd, "r"));
    if (!command) {
        fputs("popen_exec: failed to execute command: fork or pipe calls failed, or cannon "
              "allocate memory\n",
              stderr);
        return -1;
    }
    GrowingText text;
    if (!text.make_room()) {
        fputs("popen_exec: failed to allocate memory\n", stderr);
        return -1;
    }
    read_output(command.get(), text);
    text.terminate();
    int const status = pclose(command.release());
    *dest = text.release();
    return status == -1 ? -1 : exit_status(status);
}

int popen_exec(char const* cmd)
{
    char* collected = nullptr;
    int const result = popen_exec_getoutput(&collected, cmd);
    CString const output(collected);
    if (result == -1)
        messlog2(0, 0, "popen_exec: failed to execute command: %s\n", cmd);
    else if (result != 0)
        report_output(result, output && *output ? output.get() : "error: none");
    return result;
}
