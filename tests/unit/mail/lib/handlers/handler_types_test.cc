#include "mail/lib/handlers/handler_types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(HandlerTypes, AreTheFiveInTheirOrder)
{
    std::vector<std::string> all;
    for (auto const* const* type = handler_types; *type; ++type)
        all.emplace_back(*type);
    EXPECT_THAT(all, ::testing::ElementsAre("sender", "recipient", "sender-domain",
                                            "recipient-domain", "global"));
}

TEST(FindHandlerType, GivesTheIndexWhateverTheLetters)
{
    EXPECT_EQ(find_handler_type("sender"), 0U);
    EXPECT_EQ(find_handler_type("Recipient"), 1U);
    EXPECT_EQ(find_handler_type("SENDER-DOMAIN"), 2U);
    EXPECT_EQ(find_handler_type("recipient-Domain"), 3U);
    EXPECT_EQ(find_handler_type("gLOBAL"), global_handler_type);
    EXPECT_EQ(global_handler_type, 4U);
}

TEST(FindHandlerType, GivesNoIndexForAnythingElse)
{
    for (auto const* const type : {"", "send", "senders", "recipient domain", "global ", " global"})
        EXPECT_EQ(find_handler_type(type), 65535U) << type;
    EXPECT_EQ(find_handler_type(nullptr), 65535U);
    EXPECT_EQ(no_handler_type, 65535U);
}
