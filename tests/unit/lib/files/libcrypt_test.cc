#include "lib/files/libcrypt.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

namespace {

bool digests_fail = false;

} // namespace

extern "C" {

struct MD5state_st;
int __real_MD5_Init(MD5state_st* context);

int __wrap_MD5_Init(MD5state_st* context)
{
    return digests_fail ? 0 : __real_MD5_Init(context);
}

} // extern "C"

namespace {

std::string md5(char const* digest, char const* text)
{
    char result[33];
    EXPECT_EQ(get_md5sum(digest, text, result), result);
    return result;
}

} // namespace

TEST(GetMd5sum, IsTheMd5OfBothTextsTogether)
{
    EXPECT_EQ(md5("ab", "c"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5("abc", ""), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(GetMd5sum, OfAnEmptyFirstArgumentIsThatOfTheSecond)
{
    EXPECT_EQ(md5("", "abc"), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5(nullptr, "abc"), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(GetMd5sum, OfNothingIsTheMd5OfTheEmptyText)
{
    EXPECT_EQ(md5(nullptr, nullptr), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(GetMd5sum, EndsTheProcessRatherThanGiveAWrongSum)
{
    auto const run = inChild([] {
        digests_fail = true;
        md5("", "abc");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.find("Unable to compute an MD5 sum\n"), 0U);
    EXPECT_EQ(run.out, run.err);
}
