#include "lib/programs/argument_vector.h"

#include "support/memory_faults.h"
#include "support/shell_script.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Strings = std::vector<std::string>;

Strings strings(char const* const* vector)
{
    Strings all;
    for (; *vector; ++vector)
        all.emplace_back(*vector);
    return all;
}

Strings fixed(char const* program, ...)
{
    va_list list;
    va_start(list, program);
    FixedVector const vector = fixed_vector(program, list);
    va_end(list);
    return strings(vector.data());
}

Strings allocated(char const* program, ...)
{
    va_list list;
    va_start(list, program);
    AllocatedVector const vector = allocated_vector(program, list);
    va_end(list);
    return vector ? strings(vector.get()) : Strings{"no memory"};
}

// For tests without a program, because variable arguments must follow a parameter.
char const* const no_program = nullptr;

} // namespace

TEST(FixedVector, HoldsTheListInItsOrder)
{
    EXPECT_EQ(fixed(no_program, "a", "", "c", nullptr), (Strings{"a", "", "c"}));
}

TEST(FixedVector, BeginsWithTheProgramIfThereIsOne)
{
    EXPECT_EQ(fixed("/bin/x", "a", nullptr), (Strings{"/bin/x", "a"}));
}

TEST(FixedVector, IsEmptyForAnEmptyList)
{
    EXPECT_EQ(fixed(no_program, nullptr), Strings());
}

TEST(FixedVector, HoldsAHundredEntriesAndCutsTheRest)
{
    EXPECT_EQ(fixed(no_program, HUNDRED_ARGUMENTS, nullptr).size(), 100U);
    EXPECT_EQ(fixed(no_program, HUNDRED_ARGUMENTS, "behind", nullptr), Strings(100, "x"));
}

TEST(FixedVector, CountsTheProgram)
{
    auto const vector = fixed("/bin/x", HUNDRED_ARGUMENTS, nullptr);
    EXPECT_EQ(vector.size(), 100U);
    EXPECT_EQ(vector.front(), "/bin/x");
}

TEST(AllocatedVector, HoldsTheWholeList)
{
    auto const vector = allocated("/bin/x", HUNDRED_ARGUMENTS, HUNDRED_ARGUMENTS, "last", nullptr);
    EXPECT_EQ(vector.size(), 202U);
    EXPECT_EQ(vector.front(), "/bin/x");
    EXPECT_EQ(vector.back(), "last");
}

TEST(AllocatedVector, NeedsNoProgramAndNoArguments)
{
    EXPECT_EQ(allocated(no_program, "a", nullptr), Strings{"a"});
    EXPECT_EQ(allocated(no_program, nullptr), Strings());
}

TEST(AllocatedVector, IsNullWithoutMemory)
{
    AllocationFailure const failure(1);
    EXPECT_EQ(allocated(no_program, "a", nullptr), Strings{"no memory"});
    EXPECT_EQ(errno, ENOMEM);
}
