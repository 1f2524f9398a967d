// handler_name - the parts of a handler's name, and the order of handlers
//
// A handler is named by its descriptor directory, <priority>-<template>-<random>. The priority ends
// at the first "-" and the random part starts after the last; the template may contain "-" itself.
//
// No command calls these; they are for callers to come: handlers_compare, handlers_sort.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_NAME_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_NAME_H

#include <cstddef>
#include <string_view>

// Views into the string that was split.
struct HandlerNameParts
{
    std::string_view priority;
    std::string_view name_template;
    std::string_view random;
};

// 0, or -1, reported through orvek_log, for a name without two "-" or with an empty template.
[[nodiscard]] int split_handler_name(char const* name, HandlerNameParts& parts);

// Below, above or equal to 0 when a comes before b, after b, or neither. Priorities are compared
// first, as numbers: a leading 0 means octal, 0x hexadecimal, and text counts as 0. Then the second
// and the third field between "-" are compared in the order of the locale. Out of memory, which is
// reported, all names are equal.
int handlers_compare(char const* a, char const* b);

// Sorts count names into that order. names may be null when count is 0.
void handlers_sort(char const** names, std::size_t count);

#endif
