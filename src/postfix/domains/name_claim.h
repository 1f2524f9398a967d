// name_claim - an address or a domain while it is being given away
//
// Two commands may want one name at the same time. Each looks whether somebody has it, and then
// makes directories and records in several steps. A NameClaim keeps the look true until the steps
// are done: it waits for another process of the tool that gives the name away, and keeps others
// waiting until it ends. Its file is in the lock directory, where nobody but root can hold the
// lock. Letters count in any case, as in Postfix. No child inherits the lock.
//
// Take it before the lock of any map, and never hold two claims: so their order cannot matter.
//
// A rename notes the old name in the file while it is under way. A kill leaves the note, and a
// restart of the machine takes it away. Whoever gives the name to somebody new calls end().
//
// Failures: SystemError when the lock or the note cannot be made.

#ifndef MAILVEK_POSTFIX_DOMAINS_NAME_CLAIM_H
#define MAILVEK_POSTFIX_DOMAINS_NAME_CLAIM_H

#include "lib/files/op_locks.h"

#include <string>

namespace orvek::mail::postfix {

class NameClaim
{
public:
    explicit NameClaim(std::string const& name);

    // Whether a rename of oldName to this name was begun and nothing has ended it since.
    [[nodiscard]] bool isBegun(std::string const& oldName) const;
    void begin(std::string const& oldName) const;
    // Removes the note. A failure is not reported: the next rename to the name replaces the note.
    void end() const;

private:
    OwnedLock lock;
};

} // namespace orvek::mail::postfix

#endif
