// change_lock - one change of the maps at a time
//
// Waits until no other process of the tool changes maps in this map's directory, and keeps the
// others waiting until the object ends. postmap's own lock is not enough. postmap -d reads the
// head of the indexed file, frees its lock, and takes another one to write what it has made of
// that head. What another postmap wrote in between is damaged: added keys are lost, removed keys
// come back. A dump beside an addition misses records that the addition has moved.
//
// The lock is on the directory itself, so it leaves no file and needs no map. A child inherits it:
// a postmap that outlives the tool keeps the lock until it is done. Do not nest: a second one in
// this process deadlocks. Take the lock of the map's path first: see docs/architecture.md.
//
// There are no failures. A directory that cannot be opened is not locked: postmap cannot change
// anything there and says why. Keeps errno.

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
