// sanitized - whether a test runs on code that is compiled with the sanitizers
#pragma once

// Only the sanitizers' runtime defines it. A test's object is linked with and without them.
extern "C" void __asan_init() __attribute__((weak));

/// Whether this program is the one with the sanitizers.
inline bool sanitized()
{
    return __asan_init != nullptr;
}
