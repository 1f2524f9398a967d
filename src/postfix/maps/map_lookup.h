// map_lookup - asks a map for records
//
// findRecords returns those of the keys that the map has, each with its value; a map that is
// missing has none. It is one run of postmap for all keys, which compares them as Postfix does: in
// lower case. No postmap is started where the indexed file shows that there is none of the keys,
// see key_bytes.h; a damaged file may pass for one without the keys. A copy that an earlier version
// has left is put back first, see saved_map.h. The keys are returned as they were given.
//
// Failures: PostfixDatabaseError with postmap's diagnostics, if any, and for a key that
// record_text.h does not allow. System errors when postmap cannot be started, and from the lock and
// the room.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_LOOKUP_H
#define MAILVEK_POSTFIX_MAPS_MAP_LOOKUP_H

#include <map>
#include <string>
#include <vector>

namespace orvek::mail::postfix {

using FoundRecords = std::map<std::string, std::string>;

// Takes the full name of a map.
FoundRecords findRecords(std::string const& map, std::vector<std::string> const& keys);

} // namespace orvek::mail::postfix

#endif
