// saved_map - puts back the copy of a map that an earlier version has left
//
// That version kept a copy of the indexed file while postmap rebuilt the file in use, so a kill
// could leave a map that does not open or has hardly any record, beside a whole copy. settleSaved
// puts the copy back in that case, adds the records that the map has had since, and says so on
// std::clog. Otherwise it removes the copy. It does nothing when there is none.
//
// A map has lost its records when it has less than a tenth of the copy's records. A copy that does
// not open stays when the map does not open either.
//
// LockedRoom is the frame of everything that is done with a map: it takes the map's lock, makes a
// room, which clears what a crash has left, and settles the copy.
//
// Failures: those of MapRoom and of adding the records.

#ifndef MAILVEK_POSTFIX_MAPS_SAVED_MAP_H
#define MAILVEK_POSTFIX_MAPS_SAVED_MAP_H

#include "postfix/maps/change_lock.h"
#include "postfix/maps/map_room.h"

#include <string>

namespace orvek::mail::postfix {

void settleSaved(MapRoom& room);

struct LockedRoom
{
    explicit LockedRoom(std::string const& map);

    ChangeLock const lock;
    MapRoom room;
};

} // namespace orvek::mail::postfix

#endif
