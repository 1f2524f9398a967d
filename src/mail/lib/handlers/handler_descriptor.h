// handler_descriptor - removes a handler's descriptor, and refreshes the memory copy of the store
//
// The optional program handlers-tmpfs keeps a copy of the handler store in memory. It is run after
// each change of the store.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_DESCRIPTOR_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_DESCRIPTOR_H

// Removes the descriptor directory and its content, without following links, and refreshes the
// copy. A missing directory is a success. 0, or -1, reported through orvek_log, for a name that is
// too long. A failed removal ends the process, as in rm_tree.
[[nodiscard]] int remove_handler_descriptor(char const* name);

// Runs handlers-tmpfs if it is a regular file that its owner may execute. Its failure is only
// reported.
void refresh_handlers();

#endif
