// map_leftovers - removes what a killed run has left of its work on a map
//
// clearLeftovers removes the rooms that are named after the map and no longer locked, the map's
// files from every other room, and the files that an earlier version wrote beside the map: the text
// source and an unfinished copy of the indexed file. It returns whether there is a finished copy of
// root's own, which it leaves: see saved_map.h. name is the map's name without a directory; dir is
// open on its directory. Hold the map's ChangeLock, so that nobody uses these files any more.
//
// Others may make entries with such names. So only root's own directories and regular files with
// one name are removed. What cannot be checked or removed stays. Nothing is reported; errno is
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
