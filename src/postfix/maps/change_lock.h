// change_lock - one change of a map at a time
//
// Waits until no other process of the tool changes the map, and keeps the others waiting until the
// object ends. Every change takes it, of single records or of the whole map; postmap's own lock is
// not enough. postmap -d reads the head of the indexed file, frees its lock, and takes another one
// to write what it has made of that head. What another postmap wrote in between is damaged: added
// keys are lost, removed keys come back. A dump beside an addition misses records that the addition
// has moved.
//
// It is the lock of the map's path, so its file is in the lock directory, where nobody but root can
// hold it. A child inherits it: a postmap that outlives the tool keeps the lock until it is done.
// Do not nest: a second one of the same map in this process deadlocks. Never hold the locks of two
// maps at once: so their order cannot matter.
//
// Failures: those of MKLock.

#ifndef MAILVEK_POSTFIX_MAPS_CHANGE_LOCK_H
#define MAILVEK_POSTFIX_MAPS_CHANGE_LOCK_H

#include "util/mk_lock.h"

#include <string>

namespace orvek::mail::postfix {

class ChangeLock
{
public:
    // Takes the full name of a map.
    explicit ChangeLock(std::string const& map);

private:
    MKLock lock;
};

} // namespace orvek::mail::postfix

#endif
