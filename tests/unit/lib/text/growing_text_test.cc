#include "lib/text/growing_text.h"

#include "support/memory_faults.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

void append(GrowingText& text, std::string const& piece)
{
    for (char const c : piece) {
        ASSERT_TRUE(text.make_room());
        *text.end() = c;
        text.added(1);
    }
}

} // namespace

TEST(GrowingText, DoesNotExistBeforeItHasRoom)
{
    GrowingText text;
    text.terminate();
    EXPECT_EQ(text.get(), nullptr);
    EXPECT_EQ(text.release(), nullptr);
}

TEST(GrowingText, IsEmptyWhenNothingWasAdded)
{
    GrowingText text;
    ASSERT_TRUE(text.make_room());
    text.terminate();
    EXPECT_STREQ(text.get(), "");
}

TEST(GrowingText, GrowsBy4096BytesOnceTheRoomIsUsedUp)
{
    GrowingText text;
    ASSERT_TRUE(text.make_room());
    EXPECT_EQ(text.room(), 4096U);
    text.added(4095);
    ASSERT_TRUE(text.make_room());
    EXPECT_EQ(text.room(), 1U);
    text.added(1);
    ASSERT_TRUE(text.make_room());
    EXPECT_EQ(text.room(), 4096U);
}

TEST(GrowingText, HoldsAnyLengthAndTheNulBehindIt)
{
    for (size_t const length : {1UL, 4095UL, 4096UL, 4097UL, 8192UL, 100000UL}) {
        GrowingText text;
        append(text, std::string(length, 'a'));
        text.terminate();
        CString const released(text.release());
        EXPECT_EQ(released.get(), std::string(length, 'a'));
        EXPECT_EQ(text.get(), nullptr);
    }
}

TEST(GrowingText, StaysAsItIsWithoutMemory)
{
    GrowingText text;
    append(text, std::string(4096, 'a'));
    {
        AllocationFailure const failure(1);
        errno = 0;
        EXPECT_FALSE(text.make_room());
        EXPECT_EQ(errno, ENOMEM);
    }
    text.terminate();
    EXPECT_EQ(text.get(), std::string(4096, 'a'));
}
