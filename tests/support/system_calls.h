// system_calls - counts the system calls of a piece of code, with strace
//
// The code runs in a child. The result is the number of calls by name. Calls before and after the
// code are not counted, except a few from setting up the tracer. Empty when strace does not start
// within ten seconds.

#ifndef MAILVEK_TESTS_SUPPORT_SYSTEM_CALLS_H
#define MAILVEK_TESTS_SUPPORT_SYSTEM_CALLS_H

#include "support/temp_dir.h"

#include <fstream>
#include <functional>
#include <map>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace system_calls_detail {

inline bool isTraced()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "TracerPid:")
            return status >> word && word != "0";
    return false;
}

inline bool waitForTracer()
{
    for (int i = 0; i < 30000; ++i) {
        if (isTraced())
            return true;
        usleep(10000);
    }
    return false;
}

} // namespace system_calls_detail

inline std::map<std::string, long> systemCalls(std::function<void()> const& code)
{
    TempDir const dir;
    std::string const trace = dir / "trace";
    pid_t tracer = -1;
    int ends[2];
    if (pipe(ends) != 0)
        return {};
    // The tracer is this process's child. It ends when the process that it watches ends.
    pid_t const watched = fork();
    if (watched == 0) {
        char byte = 0;
        close(ends[1]);
        bool const told = read(ends[0], &byte, 1) == 1;
        if (!told || !system_calls_detail::waitForTracer())
            _exit(1);
        code();
        _exit(0);
    }
    tracer = fork();
    if (tracer == 0)
        execlp("strace", "strace", "-qq", "-o", trace.c_str(), "-p",
               std::to_string(watched).c_str(), nullptr);
    bool const told = write(ends[1], "x", 1) == 1;
    close(ends[0]);
    close(ends[1]);
    int status = -1;
    waitpid(watched, &status, 0);
    waitpid(tracer, nullptr, 0);
    std::map<std::string, long> calls;
    std::ifstream lines(trace);
    for (std::string line; told && status == 0 && std::getline(lines, line);)
        ++calls[line.substr(0, line.find('('))];
    return calls;
}

#endif
