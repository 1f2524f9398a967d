// idna_faults - makes Libidn give the test's answer instead of converting
//
// While a ForcedAnswer lives, both conversions return its result and store a copy of its text, or
// null. Every conversion must be called with flags 0. Link the program with --wrap for both
// conversions.

#ifndef MAILVEK_TESTS_SUPPORT_IDNA_FAULTS_H
#define MAILVEK_TESTS_SUPPORT_IDNA_FAULTS_H

#include <gtest/gtest.h>

#include <cstring>

class ForcedAnswer
{
public:
    ForcedAnswer(int result, char const* left) : result(result), left(left) { current = this; }
    ~ForcedAnswer() { current = nullptr; }
    ForcedAnswer(ForcedAnswer const&) = delete;
    ForcedAnswer& operator=(ForcedAnswer const&) = delete;

    // The current answer, or null.
    static ForcedAnswer const* inForce() { return current; }

    int give(char** output) const
    {
        *output = left ? strdup(left) : nullptr;
        return result;
    }

private:
    inline static ForcedAnswer const* current = nullptr;

    int const result;
    char const* const left;
};

extern "C" {

int __real_idna_to_ascii_8z(char const* input, char** output, int flags);
int __real_idna_to_unicode_8z8z(char const* input, char** output, int flags);

[[gnu::used]] inline int __wrap_idna_to_ascii_8z(char const* input, char** output, int flags)
{
    EXPECT_EQ(flags, 0);
    ForcedAnswer const* const answer = ForcedAnswer::inForce();
    return answer ? answer->give(output) : __real_idna_to_ascii_8z(input, output, flags);
}

[[gnu::used]] inline int __wrap_idna_to_unicode_8z8z(char const* input, char** output, int flags)
{
    EXPECT_EQ(flags, 0);
    ForcedAnswer const* const answer = ForcedAnswer::inForce();
    return answer ? answer->give(output) : __real_idna_to_unicode_8z8z(input, output, flags);
}

} // extern "C"

#endif
