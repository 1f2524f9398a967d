#include "lib/names/idn_error.h"

#include <gtest/gtest.h>

TEST(IdnStrerror, HasATextForEachResult)
{
    EXPECT_STREQ(idn_strerror(0), "Success");
    EXPECT_STREQ(idn_strerror(1), "Stringprep error");
    EXPECT_STREQ(idn_strerror(2), "Punycode error");
    EXPECT_STREQ(idn_strerror(3), "Contains non-LDH characters");
    EXPECT_STREQ(idn_strerror(4), "Contains minus");
    EXPECT_STREQ(idn_strerror(5), "Invalid length");
    EXPECT_STREQ(idn_strerror(6), "ACE prefix not found");
    EXPECT_STREQ(idn_strerror(7), "Verify error");
    EXPECT_STREQ(idn_strerror(8), "ACE prefix found");
    EXPECT_STREQ(idn_strerror(9), "Iconv error");
    EXPECT_STREQ(idn_strerror(201), "Cannot allocate buffer");
}

TEST(IdnStrerror, DoesNotKnowAnyOtherResult)
{
    for (int const code : {-1, 10, 200, 202})
        EXPECT_STREQ(idn_strerror(code), "Unknown error");
}
