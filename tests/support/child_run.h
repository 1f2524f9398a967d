// child_run - runs a piece of code in a child and returns how the child ended
//
// For code that ends the process, prints, or changes the process's state. Standard output and
// standard error are captured separately. The child leaves by exit, so output of destructors of
// static objects is captured too.

#ifndef MAILVEK_TESTS_SUPPORT_CHILD_RUN_H
#define MAILVEK_TESTS_SUPPORT_CHILD_RUN_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

struct ChildRun
{
    int status = -1; // the exit status, or -1 when a signal ended the child
    int signal = 0;
    std::string out;
    std::string err;
};

namespace child_run_detail {

inline std::string contents(FILE* file)
{
    std::string text;
    char block[4096];
    rewind(file);
    while (size_t const got = fread(block, 1, sizeof block, file))
        text.append(block, got);
    return text;
}

} // namespace child_run_detail

inline ChildRun inChild(std::function<int()> const& code)
{
    FILE* const out = tmpfile();
    FILE* const err = tmpfile();
    fflush(nullptr);
    pid_t const child = fork();
    if (child == 0) {
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(err), STDERR_FILENO);
        errno = 0;
        exit(code());
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    ChildRun run;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    run.out = child_run_detail::contents(out);
    run.err = child_run_detail::contents(err);
    fclose(out);
    fclose(err);
    return run;
}

// Ends a child without the leak sanitizer, which would fail at exit in a child without /proc or
// descriptors. Flushes stdio.
[[noreturn]] inline void leaveUnseen(int status)
{
    fflush(nullptr);
    _exit(status);
}

// Runs code that is expected to return. The child's exit status is 0 then.
inline ChildRun printedBy(std::function<void()> const& code)
{
    return inChild([&] {
        code();
        return 0;
    });
}

#endif
