#include "restore/ip_mask.h"

#include "mysql/mysql_error.h"

#include <gtest/gtest.h>

using namespace orvek::mail::restore;
using orvek::mysql::Field;

namespace {

unsigned lengthOf(std::string const& mask)
{
    return prefixLength(Field(mask));
}

} // namespace

TEST(IpMask, CountsTheBitsOfADottedMask)
{
    EXPECT_EQ(lengthOf("255.255.255.255"), 32U);
    EXPECT_EQ(lengthOf("255.255.255.0"), 24U);
    EXPECT_EQ(lengthOf("255.255.254.0"), 23U);
    EXPECT_EQ(lengthOf("128.0.0.0"), 1U);
    EXPECT_EQ(lengthOf("0.0.0.0"), 0U);
}

TEST(IpMask, CountsTheBitsOfAMaskThatIsANumber)
{
    EXPECT_EQ(lengthOf("4294967295"), 32U);
    EXPECT_EQ(lengthOf("4294967040"), 24U);
    EXPECT_EQ(lengthOf("2147483648"), 1U);
}

TEST(IpMask, TakesANumberBelow33ForTheLength)
{
    for (unsigned bits = 0; bits < 33; ++bits)
        EXPECT_EQ(lengthOf(std::to_string(bits)), bits);
    EXPECT_EQ(lengthOf("33"), no_prefix);
}

TEST(IpMask, HasNoPrefixForAMaskWithHoles)
{
    for (char const* const mask :
         {"255.0.255.0", "0.0.0.255", "255.255.255.1", "4278190081", "255"})
        EXPECT_EQ(lengthOf(mask), no_prefix) << mask;
}

TEST(IpMask, HasNoPrefixForANumberOutOfRange)
{
    for (char const* const mask : {"-1", "-256", "4294967296", "9223372036854775807"})
        EXPECT_EQ(lengthOf(mask), no_prefix) << mask;
}

TEST(IpMask, RaisesForATextThatIsNoMask)
{
    for (char const* const mask : {"", "255.255.255", "256.0.0.0", "/24", "ff:ff::", "24 "})
        EXPECT_THROW(lengthOf(mask), orvek::mysql::mError) << mask;
}
