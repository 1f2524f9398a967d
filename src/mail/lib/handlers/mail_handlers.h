// mail_handlers - adds, changes and removes mail handlers
//
// A mail handler is a program that the mail chain runs at a hook, for one address, for one domain
// or for all mail; see handler_types.h. Adding it gives it its name, that of its descriptor:
// <priority>-<template>-<random>. typeName is the value, which is stored in lower case; it may be
// null for a global handler.
//
// Result: 0, or -1, reported through orvek_log, some failures through messlog2. Nothing is undone:
// a failed add leaves a part of the descriptor, and a failed update may leave no handler. The store
// has no lock.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_MAIL_HANDLERS_H
#define MAILVEK_MAIL_LIB_HANDLERS_MAIL_HANDLERS_H

#include "mail/lib/handlers/handler_control.h"

// Adds a handler and applies the action to it: HOOK_ENABLE or HOOK_DISABLE. The executable must
// exist; the link to it has the path as given. Template, hook, priority and value must be storable
// names, hook and value of at most 255 bytes, and the context a readable line
// (handler_parameters.h); otherwise nothing is made.
int mail_handler_add(char const* name_template, char const* type, char const* typeName,
                     char const* executable, char const* context, char const* hook,
                     char const* priority, handler_control_t action);

// Replaces the handler that get_handler_name finds by one with a new name, active if the old one
// was. A null or empty executable, context or priority is taken from the old handler, if it can be
// read. The old handler is deleted before the new one is added.
int mail_handler_update(char const* name_template, char const* type, char const* typeName,
                        char const* executable, char const* context, char const* hook,
                        char const* priority);

// Disables and deletes a handler by its full name.
int mail_handler_remove(char const* name);

#endif
