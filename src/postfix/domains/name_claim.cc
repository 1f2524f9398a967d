#include "postfix/domains/name_claim.h"

#include "lib/report/owned.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <boost/algorithm/string/case_conv.hpp>

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace orvek::mail::postfix {

// The file keeps its content, unlike that of an MKLock.
NameClaim::NameClaim(std::string const& name)
{
    std::string const path = "name " + boost::algorithm::to_lower_copy(name);
    errno = 0;
    lock.reset(mk_lock_(path.c_str(), O_RDWR | O_CREAT, LOCK_EX, /*opt=*/1));
    int const code = errno;
    if (!is_locked(lock.get()) || fcntl(lock->fd, F_SETFD, FD_CLOEXEC) != 0)
        throwSystemError("lock() failed", code);
}

bool NameClaim::isBegun(std::string const& oldName) const
{
    std::vector<char> note(oldName.size() + 1);
    ssize_t const size =
        retryOnSignal([&] { return pread(lock->fd, note.data(), note.size(), 0); });
    return size == static_cast<ssize_t>(oldName.size()) &&
           std::string(note.data(), oldName.size()) == oldName;
}

void NameClaim::begin(std::string const& oldName) const
{
    // Not emptied first: a note that is there already must outlive a kill.
    auto const size = static_cast<ssize_t>(oldName.size());
    if (pwrite(lock->fd, oldName.data(), oldName.size(), 0) != size ||
        ftruncate(lock->fd, size) != 0)
        throwSystemError(lock->path, errno);
}

void NameClaim::end() const
{
    ErrnoKeeper const keeper;
    [[maybe_unused]] bool const removed = ftruncate(lock->fd, 0) == 0;
}

} // namespace orvek::mail::postfix
