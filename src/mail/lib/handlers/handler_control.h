// handler_control - what can be done with one handler at its hook
//
// A handler is active while an empty file of its name, the marker, stands in its hook
// directory: <handlers_root>/<hook>/<type>/<value>, or <handlers_root>/<hook>/global.
//
// name is a full handler name; newTypeName is the value of the copy for HOOK_CLONE and
// HOOK_MOVE, null otherwise. Result: 0, or -1 on failure; HOOK_CHECK gives 1 for an active
// handler and 0 for one that is not. Failures are reported through orvek_log, those of single
// files through messlog2, and undo nothing; a directory that cannot be made or removed ends the
// process as in make_dir_rec and rm_tree.
//
// After each change the memory copy of the store is refreshed and the hook directory removed if
// it is empty; the directories above it stay.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_CONTROL_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_CONTROL_H

enum handler_control_t
{
    HOOK_ADD = 0,     // no action on a handler that exists: refused as unknown
    HOOK_DELETE = 1,  // disables it and deletes its descriptor
    HOOK_ENABLE = 2,  // creates the marker
    HOOK_DISABLE = 3, // removes the marker; none is fine
    HOOK_CHECK = 4,
    HOOK_CLONE = 5, // adds a copy for another value, active whatever the handler is; one that
                    // is there already is enough
    HOOK_MOVE = 6,  // clones it, then deletes it
};

int control_handler_queue(char const* name, char const* newTypeName, handler_control_t action);

#endif
