// syscall_faults - makes a system call of this process fail from now on
//
// The call fails with the given error, in this process and in all that it starts. This cannot be
// undone: use it inside inChild. With an argument's position (from 0) and value, only calls with
// that value fail; 32 bits are compared.

#ifndef MAILVEK_TESTS_SUPPORT_SYSCALL_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_SYSCALL_FAULTS_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

namespace syscall_faults_detail {

inline bool installed = false;

inline sock_filter load(size_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset));
}

inline void install(std::vector<sock_filter> conditions, int error)
{
    // Each condition that does not hold jumps to the last instruction, which allows the call.
    for (size_t i = 1; i < conditions.size(); i += 2)
        conditions[i].jf = static_cast<uint8_t>(conditions.size() - i);
    conditions.push_back(
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)));
    conditions.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog const program = {static_cast<unsigned short>(conditions.size()), conditions.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        perror("cannot install a system call filter");
        abort();
    }
    installed = true;
}

} // namespace syscall_faults_detail

// The leak sanitizer asks this before it searches for leaks. The search needs system calls that may
// fail by then.
extern "C" [[gnu::used]] inline int __lsan_is_turned_off()
{
    return syscall_faults_detail::installed ? 1 : 0;
}

inline void failSystemCall(int number, int error)
{
    using namespace syscall_faults_detail;
    install({load(offsetof(seccomp_data, nr)),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 0)},
            error);
}

inline void failSystemCallWith(int number, size_t position, uint32_t value, int error)
{
    using namespace syscall_faults_detail;
    install({load(offsetof(seccomp_data, nr)),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(number), 0, 0),
             load(offsetof(seccomp_data, args) + position * sizeof(uint64_t)),
             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 0)},
            error);
}

// Makes fork fail from now on, whichever system call the C library uses for it.
inline void failFork(int error)
{
    for (int const number : {SYS_fork, SYS_vfork, SYS_clone, SYS_clone3})
        failSystemCall(number, error);
}

#endif
