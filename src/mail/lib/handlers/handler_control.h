// handler_control - actions on one handler
//
// A handler is active while its marker exists: an empty file with the handler's name in its hook
// directory, <handlers_root>/<hook>/<type>/<value> or <handlers_root>/<hook>/global.
//
// name is a full handler name. newTypeName is the value of the copy for HOOK_CLONE and HOOK_MOVE,
// null otherwise. Result: 0, or -1 on failure; HOOK_CHECK gives 1 for an active handler and 0 for
// an inactive one. Failures are reported through orvek_log, those of single files through
// messlog2, and undo nothing. A directory that cannot be made or removed ends the process, as in
// make_dir_rec and rm_tree.
//
// After each change the memory copy of the store is refreshed, and the hook directory is removed if
// it is empty. The directories above it stay.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_CONTROL_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_CONTROL_H

enum handler_control_t
{
    HOOK_ADD = 0,     // refused as unknown
    HOOK_DELETE = 1,  // removes the marker and the descriptor
    HOOK_ENABLE = 2,  // creates the marker
    HOOK_DISABLE = 3, // removes the marker, if there is one
    HOOK_CHECK = 4,
    HOOK_CLONE = 5, // adds an active copy for another value, unless there is one already
    HOOK_MOVE = 6,  // clones the handler, then deletes it
};

int control_handler_queue(char const* name, char const* newTypeName, handler_control_t action);

#endif
