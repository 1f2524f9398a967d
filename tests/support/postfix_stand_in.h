// postfix_stand_in - a stand-in for Postfix: its init script and its two processes
//
// StandInPostfix starts a process with a child of a chosen name and writes the process's pid file.
// Both processes and the pid file end with the object. A test starts without a pid file.

#ifndef MAILVEK_TESTS_SUPPORT_POSTFIX_STAND_IN_H
#define MAILVEK_TESTS_SUPPORT_POSTFIX_STAND_IN_H

#include "support/host_test.h"
#include "support/stand_in.h"
#include "support/waiting_process.h"

#include <csignal>
#include <filesystem>
#include <string>

#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

inline constexpr char master_pid[] = "/var/spool/postfix/pid/master.pid";

class StandInPostfix
{
public:
    explicit StandInPostfix(char const* child_name = "qmgr")
        : master([=] { startChild(child_name); })
    {
        writeFile(master_pid, "      " + std::to_string(master.pid) + "\n");
    }
    ~StandInPostfix() { std::filesystem::remove(master_pid); }
    StandInPostfix(StandInPostfix const&) = delete;
    StandInPostfix& operator=(StandInPostfix const&) = delete;

    pid_t number() const { return master.pid; }

private:
    static void startChild(char const* name)
    {
        int named[2] = {-1, -1};
        if (pipe(named) != 0)
            return;
        if (fork() == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prctl(PR_SET_NAME, name);
            close(named[0]);
            close(named[1]);
            char byte = 0;
            while (read(STDIN_FILENO, &byte, 1) < 0) {
            }
            _exit(0);
        }
        close(named[1]);
        char byte = 0;
        while (read(named[0], &byte, 1) < 0) {
        }
        close(named[0]);
    }

    WaitingProcess master;
};

class PostfixTest : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        script.prepare();
        std::filesystem::remove(master_pid);
    }

    // Makes the script exit with this code.
    void scriptExits(int code) { script.run("exit " + std::to_string(code)); }

    StandIn script{"/etc/init.d/postfix"};
};

#endif
