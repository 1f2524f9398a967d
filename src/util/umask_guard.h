// umask_guard - the process's umask for the length of a scope
//
// The old umask comes back on every way out of the scope.

#ifndef MAILVEK_UTIL_UMASK_GUARD_H
#define MAILVEK_UTIL_UMASK_GUARD_H

#include <sys/stat.h>

namespace orvek {

class UmaskGuard
{
public:
    explicit UmaskGuard(mode_t mask) : old(umask(mask)) {}
    ~UmaskGuard() { umask(old); }
    UmaskGuard(UmaskGuard const&) = delete;
    UmaskGuard& operator=(UmaskGuard const&) = delete;

private:
    mode_t const old;
};

} // namespace orvek

#endif
