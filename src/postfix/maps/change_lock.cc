#include "postfix/maps/change_lock.h"

#include "postfix/maps/map_names.h"

namespace orvek::mail::postfix {

ChangeLock::ChangeLock(std::string const& map) : lock(mapPath(map))
{
}

} // namespace orvek::mail::postfix
