// call_faults - makes a system call of the code under test fail
//
// While a CallFailure lives, or after CallFailure::set, the nth call of that name, counted from 1,
// or each_call, is not made: it sets errno and returns the result, by default -1 or null. Other
// calls are made. Children that the program forks go on counting. A BeforeCall runs code right
// before such a call, which is made then: code that another process might run in between. Only one
// of either may live at a time. This holds for the program's own calls. Link the program with
// --wrap for each of the functions below. A failing close, closedir or fclose still closes, as the
// real one does, except a close with EINTR.
//
// While an UnknownTypes lives, readdir gives no entry's type, as on some file systems.

#ifndef MAILVEK_TESTS_SUPPORT_CALL_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_CALL_FAULTS_H

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

constexpr int each_call = std::numeric_limits<int>::min();

namespace call_faults_detail {

struct Fault
{
    char const* call;
    int calls_to_failure;
    int error;
    long result;
    std::function<void()> event; // runs instead of a failure, if set
};

inline Fault* fault = nullptr;
inline bool types_are_unknown = false;
inline int every_syscall_fails = 0; // the error number, or 0

inline bool fails(char const* call)
{
    if (!fault || strcmp(fault->call, call) != 0)
        return false;
    if (fault->calls_to_failure != each_call && --fault->calls_to_failure != 0)
        return false;
    if (fault->event) {
        fault->event();
        return false;
    }
    errno = fault->error;
    return true;
}

template<typename Result>
Result result()
{
    return static_cast<Result>(fault->result);
}

template<>
inline dirent* result<dirent*>()
{
    return nullptr;
}

template<>
inline DIR* result<DIR*>()
{
    return nullptr;
}

template<>
inline char* result<char*>()
{
    return nullptr;
}

class Installed
{
public:
    explicit Installed(Fault wanted) : own(std::move(wanted)) { fault = &own; }
    ~Installed() { fault = nullptr; }
    Installed(Installed const&) = delete;
    Installed& operator=(Installed const&) = delete;

private:
    Fault own;
};

} // namespace call_faults_detail

class CallFailure : call_faults_detail::Installed
{
public:
    CallFailure(char const* call, int error, int number = 1, long result = -1)
        : Installed({call, number, error, result, {}})
    {
    }

    // Holds until the next one. For a failure that begins in the middle of a scope.
    static void set(char const* call, int error, int number = 1, long result = -1)
    {
        static call_faults_detail::Fault lasting;
        lasting = {call, number, error, result, {}};
        call_faults_detail::fault = &lasting;
    }
};

class BeforeCall : call_faults_detail::Installed
{
public:
    BeforeCall(char const* call, int number, std::function<void()> event)
        : Installed({call, number, 0, 0, std::move(event)})
    {
    }
};

// While one lives, openat2 and the like fail with this error, as on an old kernel.
class NoNewCalls
{
public:
    explicit NoNewCalls(int error) { call_faults_detail::every_syscall_fails = error; }
    ~NoNewCalls() { call_faults_detail::every_syscall_fails = 0; }
    NoNewCalls(NoNewCalls const&) = delete;
    NoNewCalls& operator=(NoNewCalls const&) = delete;
};

class UnknownTypes
{
public:
    UnknownTypes() { call_faults_detail::types_are_unknown = true; }
    ~UnknownTypes() { call_faults_detail::types_are_unknown = false; }
    UnknownTypes(UnknownTypes const&) = delete;
    UnknownTypes& operator=(UnknownTypes const&) = delete;
};

extern "C" {

int __real_fcntl(int fd, int command, ...);
pid_t __real_fork();
int __real_poll(pollfd* entries, nfds_t count, int timeout);
pid_t __real_setsid();
int __real_sigaction(int number, struct sigaction const* action, struct sigaction* old);
int __real_sigprocmask(int how, sigset_t const* mask, sigset_t* old);
int __real_open(char const* path, int flags, ...);
int __real_close(int fd);
int __real_closedir(DIR* dir);
int __real_fclose(FILE* file);
ssize_t __real_read(int fd, void* block, size_t size);
ssize_t __real_write(int fd, void const* block, size_t size);
dirent* __real_readdir(DIR* dir);
DIR* __real_opendir(char const* path);
int __real_flock(int fd, int operation);
int __real_stat(char const* path, struct stat* info);
int __real_lstat(char const* path, struct stat* info);
int __real_fstat(int fd, struct stat* info);
int __real_chown(char const* path, uid_t uid, gid_t gid);
int __real_lchown(char const* path, uid_t uid, gid_t gid);
int __real_fchown(int fd, uid_t uid, gid_t gid);
int __real_chmod(char const* path, mode_t mode);
int __real_fchmod(int fd, mode_t mode);
int __real_fchmodat(int dir, char const* path, mode_t mode, int flags);
int __real_chdir(char const* path);
int __real_fchdir(int fd);
char* __real_getcwd(char* path, size_t size);
int __real_unlink(char const* path);
int __real_rmdir(char const* path);
int __real_rename(char const* from, char const* to);
int __real_getrlimit(__rlimit_resource_t resource, rlimit* limit);
int __real_ftruncate(int fd, off_t length);
int __real_fsync(int fd);
int __real_gethostname(char* name, size_t size);
int __real_fchownat(int dir, char const* path, uid_t uid, gid_t gid, int flags);
int __real_fstatat(int dir, char const* path, struct stat* info, int flags);
int __real_mkdirat(int dir, char const* path, mode_t mode);
int __real_openat(int dir, char const* path, int flags, ...);
int __real_renameat(int from_dir, char const* from, int to_dir, char const* to);
int __real_renameat2(int from_dir, char const* from, int to_dir, char const* to, unsigned flags);
long __real_syscall(long number, ...);
int __real_unlinkat(int dir, char const* path, int flags);

[[gnu::used]] inline int __wrap_close(int fd)
{
    if (!call_faults_detail::fails("close"))
        return __real_close(fd);
    int const error = errno;
    if (error != EINTR)
        __real_close(fd);
    errno = error;
    return call_faults_detail::result<int>();
}

[[gnu::used]] inline int __wrap_closedir(DIR* dir)
{
    if (!call_faults_detail::fails("closedir"))
        return __real_closedir(dir);
    int const error = errno;
    __real_closedir(dir);
    errno = error;
    return call_faults_detail::result<int>();
}

[[gnu::used]] inline int __wrap_fclose(FILE* file)
{
    if (!call_faults_detail::fails("fclose"))
        return __real_fclose(file);
    int const error = errno;
    __real_fclose(file);
    errno = error;
    return call_faults_detail::result<int>();
}

[[gnu::used]] inline ssize_t __wrap_read(int fd, void* block, size_t size)
{
    return call_faults_detail::fails("read") ? call_faults_detail::result<ssize_t>()
                                             : __real_read(fd, block, size);
}

[[gnu::used]] inline ssize_t __wrap_write(int fd, void const* block, size_t size)
{
    return call_faults_detail::fails("write") ? call_faults_detail::result<ssize_t>()
                                              : __real_write(fd, block, size);
}

[[gnu::used]] inline dirent* __wrap_readdir(DIR* dir)
{
    if (call_faults_detail::fails("readdir"))
        return call_faults_detail::result<dirent*>();
    dirent* const entry = __real_readdir(dir);
    if (entry && call_faults_detail::types_are_unknown)
        entry->d_type = DT_UNKNOWN;
    return entry;
}

[[gnu::used]] inline int __wrap_flock(int fd, int operation)
{
    return call_faults_detail::fails("flock") ? call_faults_detail::result<int>()
                                              : __real_flock(fd, operation);
}

[[gnu::used]] inline int __wrap_lstat(char const* path, struct stat* info)
{
    return call_faults_detail::fails("lstat") ? call_faults_detail::result<int>()
                                              : __real_lstat(path, info);
}

[[gnu::used]] inline int __wrap_fstat(int fd, struct stat* info)
{
    return call_faults_detail::fails("fstat") ? call_faults_detail::result<int>()
                                              : __real_fstat(fd, info);
}

[[gnu::used]] inline int __wrap_chown(char const* path, uid_t uid, gid_t gid)
{
    return call_faults_detail::fails("chown") ? call_faults_detail::result<int>()
                                              : __real_chown(path, uid, gid);
}

[[gnu::used]] inline int __wrap_lchown(char const* path, uid_t uid, gid_t gid)
{
    return call_faults_detail::fails("lchown") ? call_faults_detail::result<int>()
                                               : __real_lchown(path, uid, gid);
}

[[gnu::used]] inline int __wrap_fchown(int fd, uid_t uid, gid_t gid)
{
    return call_faults_detail::fails("fchown") ? call_faults_detail::result<int>()
                                               : __real_fchown(fd, uid, gid);
}

[[gnu::used]] inline int __wrap_chmod(char const* path, mode_t mode)
{
    return call_faults_detail::fails("chmod") ? call_faults_detail::result<int>()
                                              : __real_chmod(path, mode);
}

[[gnu::used]] inline int __wrap_fchmod(int fd, mode_t mode)
{
    return call_faults_detail::fails("fchmod") ? call_faults_detail::result<int>()
                                               : __real_fchmod(fd, mode);
}

[[gnu::used]] inline int __wrap_fchmodat(int dir, char const* path, mode_t mode, int flags)
{
    return call_faults_detail::fails("fchmodat") ? call_faults_detail::result<int>()
                                                 : __real_fchmodat(dir, path, mode, flags);
}

[[gnu::used]] inline int __wrap_fchdir(int fd)
{
    return call_faults_detail::fails("fchdir") ? call_faults_detail::result<int>()
                                               : __real_fchdir(fd);
}

[[gnu::used]] inline int __wrap_unlink(char const* path)
{
    return call_faults_detail::fails("unlink") ? call_faults_detail::result<int>()
                                               : __real_unlink(path);
}

[[gnu::used]] inline int __wrap_rmdir(char const* path)
{
    return call_faults_detail::fails("rmdir") ? call_faults_detail::result<int>()
                                              : __real_rmdir(path);
}

[[gnu::used]] inline int __wrap_rename(char const* from, char const* to)
{
    return call_faults_detail::fails("rename") ? call_faults_detail::result<int>()
                                               : __real_rename(from, to);
}

[[gnu::used]] inline int __wrap_getrlimit(__rlimit_resource_t resource, rlimit* limit)
{
    return call_faults_detail::fails("getrlimit") ? call_faults_detail::result<int>()
                                                  : __real_getrlimit(resource, limit);
}

[[gnu::used]] inline int __wrap_stat(char const* path, struct stat* info)
{
    return call_faults_detail::fails("stat") ? call_faults_detail::result<int>()
                                             : __real_stat(path, info);
}

[[gnu::used]] inline DIR* __wrap_opendir(char const* path)
{
    return call_faults_detail::fails("opendir") ? call_faults_detail::result<DIR*>()
                                                : __real_opendir(path);
}

[[gnu::used]] inline int __wrap_chdir(char const* path)
{
    return call_faults_detail::fails("chdir") ? call_faults_detail::result<int>()
                                              : __real_chdir(path);
}

[[gnu::used]] inline char* __wrap_getcwd(char* path, size_t size)
{
    return call_faults_detail::fails("getcwd") ? call_faults_detail::result<char*>()
                                               : __real_getcwd(path, size);
}

[[gnu::used]] inline int __wrap_ftruncate(int fd, off_t length)
{
    return call_faults_detail::fails("ftruncate") ? call_faults_detail::result<int>()
                                                  : __real_ftruncate(fd, length);
}

[[gnu::used]] inline int __wrap_fsync(int fd)
{
    return call_faults_detail::fails("fsync") ? call_faults_detail::result<int>()
                                              : __real_fsync(fd);
}

[[gnu::used]] inline int __wrap_gethostname(char* name, size_t size)
{
    return call_faults_detail::fails("gethostname") ? call_faults_detail::result<int>()
                                                    : __real_gethostname(name, size);
}

[[gnu::used]] inline int __wrap_fchownat(int dir, char const* path, uid_t uid, gid_t gid, int flags)
{
    return call_faults_detail::fails("fchownat") ? call_faults_detail::result<int>()
                                                 : __real_fchownat(dir, path, uid, gid, flags);
}

[[gnu::used]] inline int __wrap_fstatat(int dir, char const* path, struct stat* info, int flags)
{
    return call_faults_detail::fails("fstatat") ? call_faults_detail::result<int>()
                                                : __real_fstatat(dir, path, info, flags);
}

[[gnu::used]] inline int __wrap_mkdirat(int dir, char const* path, mode_t mode)
{
    return call_faults_detail::fails("mkdirat") ? call_faults_detail::result<int>()
                                                : __real_mkdirat(dir, path, mode);
}

[[gnu::used]] inline int __wrap_openat(int dir, char const* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t const mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    return call_faults_detail::fails("openat") ? call_faults_detail::result<int>()
                                               : __real_openat(dir, path, flags, mode);
}

[[gnu::used]] inline int __wrap_renameat(int from_dir, char const* from, int to_dir, char const* to)
{
    return call_faults_detail::fails("renameat") ? call_faults_detail::result<int>()
                                                 : __real_renameat(from_dir, from, to_dir, to);
}

[[gnu::used]] inline int __wrap_renameat2(int from_dir, char const* from, int to_dir,
                                          char const* to, unsigned flags)
{
    return call_faults_detail::fails("renameat2")
               ? call_faults_detail::result<int>()
               : __real_renameat2(from_dir, from, to_dir, to, flags);
}

// System calls without a function in the C library. All that the tool uses take four arguments.
[[gnu::used]] inline long __wrap_syscall(long number, ...)
{
    va_list args;
    va_start(args, number);
    long arguments[4];
    for (long& argument : arguments)
        argument = va_arg(args, long);
    va_end(args);
    bool const fails =
        call_faults_detail::every_syscall_fails || call_faults_detail::fails("syscall");
    if (call_faults_detail::every_syscall_fails)
        errno = call_faults_detail::every_syscall_fails;
    return fails ? -1L
                 : __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3]);
}

[[gnu::used]] inline int __wrap_unlinkat(int dir, char const* path, int flags)
{
    return call_faults_detail::fails("unlinkat") ? call_faults_detail::result<int>()
                                                 : __real_unlinkat(dir, path, flags);
}

[[gnu::used]] inline int __wrap_open(char const* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t const mode = flags & O_CREAT ? va_arg(args, mode_t) : 0;
    va_end(args);
    return call_faults_detail::fails("open") ? call_faults_detail::result<int>()
                                             : __real_open(path, flags, mode);
}

[[gnu::used]] inline int __wrap_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    long const argument = va_arg(args, long);
    va_end(args);
    return call_faults_detail::fails("fcntl") ? call_faults_detail::result<int>()
                                              : __real_fcntl(fd, command, argument);
}

[[gnu::used]] inline pid_t __wrap_fork()
{
    return call_faults_detail::fails("fork") ? call_faults_detail::result<pid_t>() : __real_fork();
}

[[gnu::used]] inline int __wrap_poll(pollfd* entries, nfds_t count, int timeout)
{
    return call_faults_detail::fails("poll") ? call_faults_detail::result<int>()
                                             : __real_poll(entries, count, timeout);
}

[[gnu::used]] inline pid_t __wrap_setsid()
{
    return call_faults_detail::fails("setsid") ? call_faults_detail::result<pid_t>()
                                               : __real_setsid();
}

[[gnu::used]] inline int __wrap_sigaction(int number, struct sigaction const* action,
                                          struct sigaction* old)
{
    return call_faults_detail::fails("sigaction") ? call_faults_detail::result<int>()
                                                  : __real_sigaction(number, action, old);
}

[[gnu::used]] inline int __wrap_sigprocmask(int how, sigset_t const* mask, sigset_t* old)
{
    return call_faults_detail::fails("sigprocmask") ? call_faults_detail::result<int>()
                                                    : __real_sigprocmask(how, mask, old);
}

} // extern "C"

#endif
