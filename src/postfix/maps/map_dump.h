// map_dump - reads the records of a map
//
// readMap runs postmap -s and hands its output to the receiver as it arrives, in pieces of any
// size. A record is the key, blanks or tabs, the value and a newline. It takes no lock: a dump
// beside a change misses records, so the caller holds a ChangeLock.
//
// Failures: PostfixConfigurationError with postmap's diagnostics, or "unknown error" without any.
// The receiver's exception, once postmap has ended; it receives nothing more by then.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_DUMP_H
#define MAILVEK_POSTFIX_MAPS_MAP_DUMP_H

#include "process/flags.h"

#include <string>

namespace orvek::mail::postfix {

void readMap(std::string const& map, process::ReceiverFunction const& receiver);

} // namespace orvek::mail::postfix

#endif
