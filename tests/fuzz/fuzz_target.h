// fuzz_target - shared by the fuzz targets
//
// A target ends the process with a line on standard error at the first input that breaks a
// requirement.

#ifndef MAILVEK_TESTS_FUZZ_FUZZ_TARGET_H
#define MAILVEK_TESTS_FUZZ_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

inline void require(bool holds, char const* what)
{
    if (holds)
        return;
    fprintf(stderr, "fuzzer: %s\n", what);
    abort();
}

#endif
