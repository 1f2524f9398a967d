// child_main - the program that launch tests run: child_main MODE [ARGUMENT...]
//
// Every mode ends by itself. An alarm ends a child that a failed test has left behind.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <unistd.h>

extern char** environ;

namespace {

using Arguments = std::vector<std::string>;

void writeOut(int fd, char const* data, size_t length)
{
    while (length > 0) {
        ssize_t const written = write(fd, data, length);
        if (written <= 0)
            exit(111);
        data += written;
        length -= static_cast<size_t>(written);
    }
}

size_t copyInput(int to, useconds_t pause, size_t block)
{
    std::vector<char> buffer(block);
    size_t total = 0;
    for (ssize_t got; (got = read(0, buffer.data(), buffer.size())) > 0;) {
        total += static_cast<size_t>(got);
        if (to >= 0)
            writeOut(to, buffer.data(), static_cast<size_t>(got));
        if (pause > 0)
            usleep(pause);
    }
    return total;
}

void pauseFor(std::string const& milliseconds)
{
    usleep(static_cast<useconds_t>(std::stoul(milliseconds) * 1000));
}

// echo [SUFFIX]: prints standard input, then the suffix
int echo(Arguments const& args)
{
    copyInput(1, 0, 65536);
    if (!args.empty())
        writeOut(1, args[0].data(), args[0].size());
    return 0;
}

// drip: as echo, but reads small pieces slowly
int drip(Arguments const&)
{
    copyInput(1, 1000, 2000);
    return 0;
}

// count: prints the number of bytes on standard input
int count(Arguments const&)
{
    printf("%zu", copyInput(-1, 0, 65536));
    return 0;
}

// spew BYTES: writes that many bytes on each stream, in turns; does not read its input
int spew(Arguments const& args)
{
    std::vector<char> const out(4096, 'o');
    std::vector<char> const err(4096, 'e');
    for (size_t left = std::stoul(args.at(0)); left > 0;) {
        size_t const now = std::min(left, out.size());
        writeOut(1, out.data(), now);
        writeOut(2, err.data(), now);
        left -= now;
    }
    return 0;
}

// say OUT ERR [STATUS]
int say(Arguments const& args)
{
    writeOut(1, args.at(0).data(), args.at(0).size());
    writeOut(2, args.at(1).data(), args.at(1).size());
    return args.size() > 2 ? std::stoi(args[2]) : 0;
}

// exit STATUS
int exitWith(Arguments const& args)
{
    return std::stoi(args.at(0));
}

// signal NUMBER
int dieBySignal(Arguments const& args)
{
    int const number = std::stoi(args.at(0));
    signal(number, SIG_DFL);
    raise(number);
    return 0;
}

// idle MILLISECONDS: reads nothing and writes nothing
int idle(Arguments const& args)
{
    pauseFor(args.at(0));
    return 0;
}

// shut MILLISECONDS: closes standard input at once and lives on for a while
int shut(Arguments const& args)
{
    close(0);
    pauseFor(args.at(0));
    return 0;
}

// orphan FD: leaves a child behind that keeps all streams open until FD is at end of file
int orphan(Arguments const& args)
{
    if (fork() != 0)
        return 0;
    alarm(300);
    char byte;
    while (read(std::stoi(args.at(0)), &byte, 1) > 0) {
    }
    return 0;
}

void reportDescriptors()
{
    std::vector<int> open;
    DIR* const dir = opendir("/proc/self/fd");
    while (dirent const* const entry = readdir(dir))
        if (entry->d_name[0] != '.' && std::stoi(entry->d_name) != dirfd(dir))
            open.push_back(std::stoi(entry->d_name));
    closedir(dir);
    std::sort(open.begin(), open.end());
    printf("fds:");
    for (int const fd : open)
        printf(" %d", fd);
    printf("\n");
}

void reportSignals()
{
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    printf("blocked:");
    for (int i = 1; i < NSIG; ++i)
        if (sigismember(&mask, i) == 1)
            printf(" %d", i);
    struct sigaction action;
    sigaction(SIGPIPE, nullptr, &action);
    printf("\nsigpipe: %s\n", action.sa_handler == SIG_DFL ? "default" : "other");
}

// report [ARGUMENT...]: prints how the program was started
int report(Arguments const& args)
{
    reportDescriptors();
    reportSignals();
    char* const cwd = getcwd(nullptr, 0);
    printf("cwd: %s\n", cwd);
    free(cwd);
    printf("session: %s\n", getsid(0) == getpid() ? "own" : "inherited");
    printf("args:");
    for (std::string const& arg : args)
        printf(" [%s]", arg.c_str());
    printf("\n");
    for (char** entry = environ; *entry; ++entry)
        printf("env: %s\n", *entry);
    return 0;
}

struct Mode
{
    char const* name;
    int (*run)(Arguments const&);
};

constexpr Mode modes[] = {
    {"echo", echo}, {"drip", drip},     {"count", count},        {"spew", spew},
    {"say", say},   {"exit", exitWith}, {"signal", dieBySignal}, {"idle", idle},
    {"shut", shut}, {"orphan", orphan}, {"report", report},
};

} // namespace

int main(int argc, char** argv)
{
    alarm(300);
    for (Mode const& mode : modes)
        if (argc > 1 && strcmp(argv[1], mode.name) == 0)
            return mode.run(Arguments(argv + 2, argv + argc));
    return 112;
}
