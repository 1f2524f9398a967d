// handler_name - the parts of a handler's name, and the order of handlers
//
// A handler is known by the name of its descriptor directory, <priority>-<template>-<random>.
// The priority stands before the first "-", the random part behind the last, and the template
// between them may hold more of them.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_NAME_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_NAME_H

#include <cstddef>
#include <string_view>

// Parts of the string that was split, as long as it lives.
struct HandlerNameParts
{
    std::string_view priority;
    std::string_view name_template;
    std::string_view random;
};

// 0, or -1, reported through orvek_log, for a name without two "-" or with an empty template.
[[nodiscard]] int split_handler_name(char const* name, HandlerNameParts& parts);

// Below, above or equal to 0 as a stands before, behind or level with b. The priorities count
// first, as numbers: a leading 0 means octal, 0x hexadecimal, and what is no number is 0. Then
// count the second and the third of the fields between "-", by the locale's order. Without
// memory, which is reported, all names are level.
int handlers_compare(char const* a, char const* b);

// Sorts count names into that order; names may be null when there are none.
void handlers_sort(char const** names, std::size_t count);

#endif
