// change_lock - one change of the maps at a time
//
// Waits until no other process of the tool changes maps in the directory of this one, and keeps
// them waiting until the end of the object's life. postmap's own lock is not enough for that:
// postmap -d reads the head of the indexed file when it opens it, lets its lock go, and takes
// another one to write what it has made of that head. Whatever another postmap has written in
// between is damaged: keys that were added are lost, keys that were removed come back. And a
// dump beside an addition misses records that the addition has moved to a new place.
//
// The lock is on the directory itself, so that it leaves no file and no map has to be there. A
// child inherits it: a postmap that outlives the tool keeps it until it is done. Not for use
// within each other: a second one in the same process waits for ever.
//
// Failures: none. A directory that cannot be opened is not locked, for postmap can change nothing
// in it and says why. Keeps errno.

#ifndef MAILVEK_POSTFIX_MAPS_CHANGE_LOCK_H
#define MAILVEK_POSTFIX_MAPS_CHANGE_LOCK_H

#include "lib/report/owned.h"

#include <string>

namespace orvek::mail::postfix {

class ChangeLock
{
public:
    // Of the full name of a map.
    explicit ChangeLock(std::string const& map);

private:
    OpenDescriptor directory;
};

} // namespace orvek::mail::postfix

#endif
