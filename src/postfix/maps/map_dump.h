// map_dump - reads the records of a map
//
// readMap runs postmap -s on what has been borrowed into the room, and hands the output to the
// receiver as it arrives, in pieces of any size. A record is the key, blanks or tabs, the value and
// a newline. A dump beside a change misses records: the room's ChangeLock prevents that.
//
// Failures: PostfixDatabaseError when there are more records than the indexed file can hold, see
// MapRoom::mostText; postmap has a few seconds then. PostfixConfigurationError with postmap's
// diagnostics, or "unknown error" without any. The receiver's exception, once postmap has ended; it
// receives nothing more by then.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_DUMP_H
#define MAILVEK_POSTFIX_MAPS_MAP_DUMP_H

#include "postfix/maps/map_room.h"

namespace orvek::mail::postfix {

void readMap(MapRoom const& room, process::ReceiverFunction const& receiver);

} // namespace orvek::mail::postfix

#endif
