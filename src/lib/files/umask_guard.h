// umask_guard - sets another umask for the length of a scope
//
// The umask belongs to the whole process: keep the scope short and run no program in it.

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
