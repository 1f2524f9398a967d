// umask_guard - another umask for the length of a scope
//
// The umask is the process's: keep the scope short and run no program in it.

#ifndef MAILVEK_LIB_FILES_UMASK_GUARD_H
#define MAILVEK_LIB_FILES_UMASK_GUARD_H

#include <sys/stat.h>

class UmaskGuard
{
public:
    explicit UmaskGuard(mode_t mask) : before(umask(mask)) {}
    ~UmaskGuard() { umask(before); }
    UmaskGuard(UmaskGuard const&) = delete;
    UmaskGuard& operator=(UmaskGuard const&) = delete;

private:
    mode_t const before;
};

#endif
