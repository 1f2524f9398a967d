#include "util/umask_guard.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

mode_t currentMask()
{
    mode_t const mask = umask(0);
    umask(mask);
    return mask;
}

} // namespace

TEST(UmaskGuard, SetsTheMaskForTheLengthOfItsScope)
{
    mode_t const before = umask(0027);
    {
        orvek::UmaskGuard const guard(0077);
        EXPECT_EQ(currentMask(), mode_t{0077});
    }
    EXPECT_EQ(currentMask(), mode_t{0027});
    umask(before);
}

TEST(UmaskGuard, GivesTheOldMaskBackWhenTheScopeIsLeftByAnException)
{
    mode_t const before = umask(0);
    try {
        orvek::UmaskGuard const guard(0777);
        throw std::runtime_error("out");
    } catch (std::runtime_error const&) {
        EXPECT_EQ(currentMask(), mode_t{0});
    }
    umask(before);
}
