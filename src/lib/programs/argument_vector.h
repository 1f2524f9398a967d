// argument_vector - argument vectors from null-terminated lists
//
// Both take an optional program, which becomes element 0, and the rest of a list up to its null.
// They return a null-terminated vector of the same strings, which are not copied.
//
// fixed_vector has room for 100 entries with the program; a longer list is cut. allocated_vector
// takes any list. Without memory it is null with errno set.
//
// No command calls these; they are for callers to come: fixed_vector.

#ifndef MAILVEK_LIB_PROGRAMS_ARGUMENT_VECTOR_H
#define MAILVEK_LIB_PROGRAMS_ARGUMENT_VECTOR_H

#include "lib/report/owned.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <memory>

constexpr size_t fixed_vector_size = 100;

using FixedVector = std::array<char const*, fixed_vector_size + 1>;
using AllocatedVector = std::unique_ptr<char const*[], FreeMemory>;

FixedVector fixed_vector(char const* program, va_list list);
AllocatedVector allocated_vector(char const* program, va_list list);

#endif
