// fuzz_target - what the fuzz targets share
//
// A target ends the process, with a line on standard error, at the first input for which a
// requirement does not hold.

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
