// memory_faults - makes an allocation of the code under test fail
//
// While an AllocationFailure lives, the nth allocation, counted from 1, fails with ENOMEM. Those
// before and after it succeed. This holds for the program's own calls of malloc, calloc, realloc,
// strdup, strndup and asprintf. Link the program with --wrap for each of them. (The compiler may
// turn a realloc of null into a malloc.)

#ifndef MAILVEK_TESTS_SUPPORT_MEMORY_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_MEMORY_FAULTS_H

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace memory_faults_detail {

inline int allocations_to_failure = 0; // 0: none fails

inline bool fails()
{
    if (allocations_to_failure == 0 || --allocations_to_failure > 0)
        return false;
    errno = ENOMEM;
    return true;
}

} // namespace memory_faults_detail

class AllocationFailure
{
public:
    explicit AllocationFailure(int number)
    {
        memory_faults_detail::allocations_to_failure = number;
    }
    ~AllocationFailure() { memory_faults_detail::allocations_to_failure = 0; }
    AllocationFailure(AllocationFailure const&) = delete;
    AllocationFailure& operator=(AllocationFailure const&) = delete;
};

extern "C" {

// Weak, because a program may leave malloc unwrapped: one that links a library statically, whose
// calls would be counted too.
[[gnu::weak]] void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);
char* __real_strdup(char const* text);
char* __real_strndup(char const* text, size_t size);

[[gnu::used]] inline void* __wrap_malloc(size_t size)
{
    return memory_faults_detail::fails() ? nullptr : __real_malloc(size);
}

[[gnu::used]] inline void* __wrap_calloc(size_t count, size_t size)
{
    return memory_faults_detail::fails() ? nullptr : __real_calloc(count, size);
}

[[gnu::used]] inline void* __wrap_realloc(void* memory, size_t size)
{
    return memory_faults_detail::fails() ? nullptr : __real_realloc(memory, size);
}

[[gnu::used]] inline char* __wrap_strdup(char const* text)
{
    return memory_faults_detail::fails() ? nullptr : __real_strdup(text);
}

[[gnu::used]] inline char* __wrap_strndup(char const* text, size_t size)
{
    return memory_faults_detail::fails() ? nullptr : __real_strndup(text, size);
}

[[gnu::used, gnu::format(printf, 2, 3)]] inline int __wrap_asprintf(char** result, char const* fmt,
                                                                    ...)
{
    if (memory_faults_detail::fails())
        return -1;
    va_list args;
    va_start(args, fmt);
    int const length = vasprintf(result, fmt, args);
    va_end(args);
    return length;
}

} // extern "C"

#endif
