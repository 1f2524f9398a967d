// process_set_catcher - notes the end of each child of a pipeline
//
// install() makes childHandler the action of SIGCHLD. It reaps every child of the process, also one
// that someone else waits for. For a child in processes it stores the wait status and writes a byte
// to the self-pipe, which wakes a poll on the read end. Only one catcher can be installed. A
// stopped child is not noticed.
//
// Enter children in processes while SIGCHLD is blocked, and only read the table after that: the
// handler takes no lock.
//
// Failures: std::logic_error from install() while another catcher is installed, which stays,
// and from remove(false) while children of the table are running. SystemError "sigaction",
// "restore sigaction", "process set catcher control pipe", "control pipe fcntl",
// "get sigprocmask", "close". The destructor removes the catcher if it is the installed one and
// raises as remove(false) does, but never leaves the handler behind; with an exception in flight
// it removes by force and raises nothing.

#ifndef MAILVEK_PROCESS_PROCESS_SET_CATCHER_H
#define MAILVEK_PROCESS_PROCESS_SET_CATCHER_H

#include "process/fd_owner.h"
#include "process/flags.h"

#include <csignal>
#include <cstdint>
#include <map>

namespace orvek::process {

class ProcessSetCatcher
{
public:
    ProcessSetCatcher() = default;
    ProcessSetCatcher(ProcessSetCatcher const&) = delete;
    ProcessSetCatcher& operator=(ProcessSetCatcher const&) = delete;
    ~ProcessSetCatcher() noexcept(false);

    void install();
    // Does nothing for a catcher that is not the installed one.
    void remove(bool force);
    // Empties the self-pipe and returns how many bytes there were; errno is kept.
    unsigned long clear_control();

    static void childHandler(int signal, siginfo_t* info, void* context);

    std::map<int, ProcessStatus> processes; // by pid
    std::uint64_t finished = 0;             // children seen to have exited or been killed
    std::uint64_t changed = 0;              // all changes of status noted
    struct sigaction oldAction = {};        // the action to put back
    PipeOwner controlPipe;                  // the self-pipe, both ends non-blocking

private:
    void note(int pid, int status);
    void abandon() noexcept;
};

// The installed catcher, null when there is none: the handler has no other way to find it.
extern ProcessSetCatcher* __global_handler;

} // namespace orvek::process

#endif
