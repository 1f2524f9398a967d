// handler_descriptor - removing a handler's descriptor, and the memory copy of the store
//
// The optional program handlers-tmpfs keeps a copy of the handler store in memory. After a
// change of the store it is told to renew it.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_DESCRIPTOR_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_DESCRIPTOR_H

// Removes the descriptor directory with all that is in it, without following links, and
// refreshes the copy. A missing one counts as removed. 0, or -1, reported through orvek_log,
// for a name that is too long; what cannot be removed ends the process as in rm_tree.
[[nodiscard]] int remove_handler_descriptor(char const* name);

// Runs handlers-tmpfs if it is there: a regular file that its owner may execute. Its failure
// is reported and changes nothing.
void refresh_handlers();

#endif
