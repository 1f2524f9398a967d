// map_leftovers - what a run that was killed has left of its work on a map
//
// clearLeftovers removes the rooms of the map, and what an earlier version wrote beside the map:
// the text source and a copy of the indexed file that it had not finished. It tells whether there
// is a finished copy of root's own, which it leaves: see saved_map.h. name is the map's own,
// without a directory; dir is open on its directory. Hold the map's ChangeLock, so that what is
// there belongs to nobody any more.
//
// Only what is root's own goes: directories, and regular files with one name. Others may make
// entries with such names. What cannot be looked at or removed stays. Nothing is reported; errno is
// kept.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_LEFTOVERS_H
#define MAILVEK_POSTFIX_MAPS_MAP_LEFTOVERS_H

#include <string>

namespace orvek::mail::postfix {

// The names of a map's rooms begin like this.
std::string roomBeginning(std::string const& name);

std::string savedNameOf(std::string const& name);

bool clearLeftovers(int dir, std::string const& name);

} // namespace orvek::mail::postfix

#endif
