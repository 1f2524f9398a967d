// process_call_faults - lets a system call of the code under test fail
//
// While a CallFailure lives, or after CallFailure::set, the call with the given name and number,
// counted from 1, fails with the given error number; the ones before and after it are made. What
// counts is a call by the program itself, which has to be linked with --wrap for each of the
// names, and by the children it forks. A close that fails has closed its descriptor all the
// same, unless it was interrupted. A write that fails with the number 0 gives 0.

#ifndef MAILVEK_TESTS_SUPPORT_PROCESS_CALL_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_PROCESS_CALL_FAULTS_H

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace call_faults_detail {

inline char const* name = "";
inline int calls_to_failure = 0; // 0: none fails
inline int code = 0;

inline bool fails(char const* call)
{
    if (calls_to_failure == 0 || strcmp(call, name) != 0 || --calls_to_failure > 0)
        return false;
    errno = code;
    return true;
}

} // namespace call_faults_detail

class CallFailure
{
public:
    CallFailure(char const* call, int number, int code) { set(call, number, code); }
    ~CallFailure() { call_faults_detail::calls_to_failure = 0; }
    CallFailure(CallFailure const&) = delete;
    CallFailure& operator=(CallFailure const&) = delete;

    static void set(char const* call, int number, int code)
    {
        call_faults_detail::name = call;
        call_faults_detail::calls_to_failure = number;
        call_faults_detail::code = code;
    }
};

extern "C" {

int __real_close(int fd);
int __real_fcntl(int fd, int command, ...);
pid_t __real_fork();
int __real_poll(pollfd* entries, nfds_t count, int timeout);
ssize_t __real_read(int fd, void* block, size_t size);
pid_t __real_setsid();
int __real_sigaction(int number, struct sigaction const* action, struct sigaction* old);
int __real_sigprocmask(int how, sigset_t const* mask, sigset_t* old);
ssize_t __real_write(int fd, void const* block, size_t size);

[[gnu::used]] inline int __wrap_close(int fd)
{
    if (!call_faults_detail::fails("close"))
        return __real_close(fd);
    if (errno != EINTR) {
        __real_close(fd);
        errno = call_faults_detail::code;
    }
    return -1;
}

[[gnu::used]] inline int __wrap_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    long const argument = va_arg(args, long);
    va_end(args);
    return call_faults_detail::fails("fcntl") ? -1 : __real_fcntl(fd, command, argument);
}

[[gnu::used]] inline pid_t __wrap_fork()
{
    return call_faults_detail::fails("fork") ? -1 : __real_fork();
}

[[gnu::used]] inline int __wrap_poll(pollfd* entries, nfds_t count, int timeout)
{
    return call_faults_detail::fails("poll") ? -1 : __real_poll(entries, count, timeout);
}

[[gnu::used]] inline ssize_t __wrap_read(int fd, void* block, size_t size)
{
    return call_faults_detail::fails("read") ? -1 : __real_read(fd, block, size);
}

[[gnu::used]] inline pid_t __wrap_setsid()
{
    return call_faults_detail::fails("setsid") ? -1 : __real_setsid();
}

[[gnu::used]] inline int __wrap_sigaction(int number, struct sigaction const* action,
                                          struct sigaction* old)
{
    return call_faults_detail::fails("sigaction") ? -1 : __real_sigaction(number, action, old);
}

[[gnu::used]] inline int __wrap_sigprocmask(int how, sigset_t const* mask, sigset_t* old)
{
    return call_faults_detail::fails("sigprocmask") ? -1 : __real_sigprocmask(how, mask, old);
}

[[gnu::used]] inline ssize_t __wrap_write(int fd, void const* block, size_t size)
{
    if (!call_faults_detail::fails("write"))
        return __real_write(fd, block, size);
    return call_faults_detail::code == 0 ? 0 : -1;
}

} // extern "C"

#endif
