// worker - children that work on one thing at the same time, and a pipe to start them
//
// Each worker has its own file for reports.

#ifndef MAILVEK_TESTS_SUPPORT_WORKER_H
#define MAILVEK_TESTS_SUPPORT_WORKER_H

#include "lib/report/product_log.h"
#include "support/temp_dir.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

// A child that runs code with its reports in a file. It is killed if the test ends first. A failing
// fork ends the test program, because there is no child to kill then.
class Worker
{
public:
    Worker(std::string const& reports, std::function<int()> const& code) : reports(reports)
    {
        pid = fork();
        if (pid < 0)
            abort();
        if (pid > 0)
            return;
        int const file = open(reports.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDERR_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
        _exit(code());
    }
    ~Worker()
    {
        if (pid > 0)
            kill();
    }
    Worker(Worker&& other) noexcept : reports(other.reports), pid(std::exchange(other.pid, -1)) {}

    // The exit status, or -1 after a signal or when the child was waited for before.
    int wait()
    {
        if (pid <= 0)
            return -1;
        int status = 0;
        waitpid(std::exchange(pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    void kill()
    {
        if (pid > 0)
            ::kill(pid, SIGKILL);
        wait();
    }
    std::string printed() const { return readFile(reports); }

private:
    std::string reports;
    pid_t pid = -1;
};

// A pipe. Its read end is at end of file once everybody has closed the write end.
class Channel
{
public:
    Channel() { opened = pipe(ends.data()) == 0; }
    ~Channel()
    {
        closeReading();
        closeWriting();
    }
    Channel(Channel const&) = delete;
    Channel& operator=(Channel const&) = delete;

    void closeReading() { close(std::exchange(ends[0], -1)); }
    void closeWriting() { close(std::exchange(ends[1], -1)); }
    int reading() const { return ends[0]; }
    int writing() const { return ends[1]; }

    bool opened = false;

private:
    std::array<int, 2> ends = {-1, -1};
};

#endif
