#include "postfix/domains/rename_state.h"

namespace orvek::mail::postfix {

RenameState renameState(std::initializer_list<FoundNames> steps)
{
    bool waits = false;
    bool has_moved = false;
    for (FoundNames const& found : steps) {
        waits = waits || found.oldName;
        if (found.newName && waits)
            return RenameState::taken;
        has_moved = has_moved || found.newName;
    }
    if (!has_moved)
        return RenameState::fresh;
    return waits ? RenameState::begun : RenameState::moved;
}

} // namespace orvek::mail::postfix
