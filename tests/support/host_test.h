// host_test - base of the suites that work on real system paths or as other users
//
// Such a suite may change the machine. So its tests fail at once outside the throw-away mail host,
// which sets MAILVEK_HOST=1.

#ifndef MAILVEK_TESTS_SUPPORT_HOST_TEST_H
#define MAILVEK_TESTS_SUPPORT_HOST_TEST_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

// Call this in SetUp of a fixture that is not derived from HostTest.
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
