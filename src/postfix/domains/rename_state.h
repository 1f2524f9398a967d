// rename_state - how far a rename has come that goes by steps
//
// Each step moves one thing from the old name to the new one, and none leaves it under both. So a
// rename that was interrupted has moved the first things and left the rest; whatever else there is
// under the new name belongs to somebody else. A thing under neither name tells nothing.

#ifndef MAILVEK_POSTFIX_DOMAINS_RENAME_STATE_H
#define MAILVEK_POSTFIX_DOMAINS_RENAME_STATE_H

#include <initializer_list>

namespace orvek::mail::postfix {

// Under which names a step's thing is found.
struct FoundNames
{
    bool oldName;
    bool newName;
};

enum class RenameState
{
    fresh, // nothing has the new name
    begun, // some things have it already, the others still have the old one
    moved, // everything has the new name: it was renamed, or never had the old name
    taken, // the new name is somebody else's
};

// Takes the steps in their order.
RenameState renameState(std::initializer_list<FoundNames> steps);

} // namespace orvek::mail::postfix

#endif
