// key_bytes - tells without postmap that a map has no record of a key
//
// An indexed file holds every key as it is, in lower case and in one piece. So a key whose bytes
// are nowhere in the file has no record. keysToAsk returns those of the keys that may have one, for
// postmap to tell. The keys must begin alike: the file is read once, for what they begin with.
//
// It returns all keys where it cannot tell, and after a failure, which postmap will report: for a
// map of another type; for a file that somebody has locked, that has a saved copy beside it
// (saved_map.h), or that is dearer to read than postmap is to start; for keys with bytes above 127
// or of a length that might be stored in pieces. A map without an indexed file has no records. Hold
// the map's ChangeLock.

#ifndef MAILVEK_POSTFIX_MAPS_KEY_BYTES_H
#define MAILVEK_POSTFIX_MAPS_KEY_BYTES_H

#include <string>
#include <vector>

namespace orvek::mail::postfix {

std::vector<std::string> keysToAsk(std::string const& map, std::vector<std::string> const& keys);

} // namespace orvek::mail::postfix

#endif
