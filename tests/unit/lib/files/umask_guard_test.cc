#include "lib/files/umask_guard.h"

#include <gtest/gtest.h>

TEST(UmaskGuard, SetsTheUmaskForItsScopeAlone)
{
    mode_t const before = umask(037);
    {
        UmaskGuard const guard(0123);
        EXPECT_EQ(umask(0123), 0123U);
    }
    EXPECT_EQ(umask(before), 037U);
}
