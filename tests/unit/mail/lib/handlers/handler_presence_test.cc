#include "mail/lib/handlers/handler_presence.h"

#include "support/handler_store_test.h"

using ::testing::IsEmpty;

namespace {

using HandlerPresenceOnHost = HandlerStoreTest;

} // namespace

TEST_F(HandlerPresenceOnHost, TellsWhetherAValueIsExactlyTheName)
{
    descriptor("10-spam-a1B2c3");
    EXPECT_TRUE(has_handler_of(address));
    EXPECT_FALSE(has_handler_of("example.com"));
    EXPECT_FALSE(has_handler_of("someone@example.co"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HandlerPresenceOnHost, PassesOverAHandlerThatCannotBeRead)
{
    descriptor("10-spam-a1B2c3");
    std::filesystem::create_directory(info("10-damaged-a1B2c3"));
    EXPECT_TRUE(has_handler_of(address));
    EXPECT_FALSE(has_handler_of("other@example.com"));
    EXPECT_FALSE(reports().empty());
}

TEST_F(HandlerPresenceOnHost, ReportsAMissingStoreAndFindsNone)
{
    std::filesystem::remove_all(handlers_info);
    EXPECT_FALSE(has_handler_of(address));
    EXPECT_FALSE(reports().empty());
}
