// host_test - base of the suites that work on real system paths or as other users
//
// Such a suite may change the machine, so each of its tests fails at once anywhere but in the
// throw-away mail host, which sets MAILVEK_HOST=1.

#ifndef MAILVEK_TESTS_SUPPORT_HOST_TEST_H
#define MAILVEK_TESTS_SUPPORT_HOST_TEST_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// For SetUp, of a fixture that has another base than HostTest.
inline void requireHost()
{
    char const* const host = getenv("MAILVEK_HOST");
    ASSERT_EQ(std::string(host ? host : ""), "1")
        << "this suite changes the machine: run it inside the throw-away mail host";
}

class HostTest : public ::testing::Test
{
protected:
    void SetUp() override { requireHost(); }
};

#endif
