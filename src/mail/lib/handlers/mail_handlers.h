// mail_handlers - adding, changing and removing mail handlers
//
// A mail handler is a program that the mail chain runs at a hook, for the mail of one address
// or domain or for all mail; see handler_types.h. It is known by the name that its descriptor
// gets when it is added, <priority>-<template>-<random>. typeName is its value, which is stored
// in lower case; a global handler needs none and its typeName may be null.
//
// Result: 0, or -1, reported through orvek_log, some of it through messlog2. Failures undo
// nothing: a handler that could not be added whole leaves what there is of its descriptor, and
// one that could not be updated may be gone. There is no lock on the store.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_MAIL_HANDLERS_H
#define MAILVEK_MAIL_LIB_HANDLERS_MAIL_HANDLERS_H

#include "mail/lib/handlers/handler_control.h"

// Adds a handler and applies the action to it: HOOK_ENABLE or HOOK_DISABLE. The executable must
// exist, and is linked to as it is spelled.
int mail_handler_add(char const* name_template, char const* type, char const* typeName,
                     char const* executable, char const* context, char const* hook,
                     char const* priority, handler_control_t action);

// Replaces the handler that get_handler_name finds by one with a new name, which is active if
// the old one was. An executable, a context or a priority that is null or empty is taken from
// the old one, as far as it can be read: a context without white space at its ends. The old
// handler is deleted before the new one is added.
int mail_handler_update(char const* name_template, char const* type, char const* typeName,
                        char const* executable, char const* context, char const* hook,
                        char const* priority);

// Disables a handler and deletes it, by its full name.
int mail_handler_remove(char const* name);

#endif
