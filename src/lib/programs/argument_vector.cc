#include "lib/programs/argument_vector.h"

namespace {

size_t list_length(va_list list)
{
    va_list copy;
    va_copy(copy, list);
    size_t length = 0;
    while (va_arg(copy, char const*))
        ++length;
    va_end(copy);
    return length;
}

// Fills at most size entries and puts a null after them.
void fill(char const** vector, size_t size, char const* program, va_list list)
{
    size_t used = 0;
    if (program)
        vector[used++] = program;
    while (used < size) {
        char const* const argument = va_arg(list, char const*);
        if (!argument)
            break;
        vector[used++] = argument;
    }
    vector[used] = nullptr;
}

} // namespace

FixedVector fixed_vector(char const* program, va_list list)
{
    FixedVector vector = {};
    fill(vector.data(), fixed_vector_size, program, list);
    return vector;
}

AllocatedVector allocated_vector(char const* program, va_list list)
{
    size_t const size = list_length(list) + (program ? 1 : 0);
    AllocatedVector vector(static_cast<char const**>(calloc(size + 1, sizeof(char const*))));
    if (vector)
        fill(vector.get(), size, program, list);
    return vector;
}
