// shell_script - a script of /bin/sh as path and argument vector, and helpers for its tests

#ifndef MAILVEK_TESTS_SUPPORT_SHELL_SCRIPT_H
#define MAILVEK_TESTS_SUPPORT_SHELL_SCRIPT_H

#include "support/temp_dir.h"

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>

#include <sys/wait.h>

constexpr char shell[] = "/bin/sh";

class Script
{
public:
    explicit Script(std::string text) : text(std::move(text)), vector{"sh", "-c", nullptr, nullptr}
    {
        vector[2] = this->text.c_str();
    }
    Script(Script const&) = delete;
    Script& operator=(Script const&) = delete;

    char const* const* args() const { return vector; }

private:
    std::string const text;
    char const* vector[4];
};

// A script that prints the byte count times, in the background, on descriptor fd.
inline std::string flood(size_t count, char byte, int fd)
{
    return "head -c " + std::to_string(count) + " /dev/zero | tr '\\0' " + byte + " >&" +
           std::to_string(fd) + " & ";
}

// Ends a process whose pid is in a file, and waits for it if it is a child.
inline void endProcessOf(std::string const& pid_file)
{
    pid_t const process = atoi(readFile(pid_file).c_str());
    if (process > 1 && kill(process, SIGKILL) == 0)
        waitpid(process, nullptr, 0);
}

// A hundred arguments for variable argument lists.
#define TEN_ARGUMENTS "x", "x", "x", "x", "x", "x", "x", "x", "x", "x"
#define HUNDRED_ARGUMENTS                                                                          \
    TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS,      \
        TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS, TEN_ARGUMENTS

#endif
