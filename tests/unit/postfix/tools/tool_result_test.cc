#include "postfix/tools/tool_result.h"

#include "util/errors.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

namespace {

constexpr int exit_0 = 0;
constexpr int exit_1 = 1 << 8;
constexpr int killed = 9;
constexpr int stopped = 0x137f;

std::string raisedFor(int status, std::string const& diagnostics)
{
    try {
        requireSuccess(status, diagnostics);
    } catch (PostfixConfigurationError const& e) {
        return e.what();
    }
    return "nothing was raised";
}

} // namespace

TEST(ToolResult, TakesOnlyAnExitWithZeroForSuccess)
{
    EXPECT_FALSE(hasFailed(exit_0));
    EXPECT_TRUE(hasFailed(exit_1));
    EXPECT_TRUE(hasFailed(killed));
    EXPECT_TRUE(hasFailed(stopped));
    EXPECT_TRUE(hasFailed(-1));
}

TEST(ToolResult, RaisesTheDiagnosticsAsTheyStand)
{
    EXPECT_EQ(raisedFor(exit_1, "postconf: fatal: %s\n"), "postconf: fatal: %s\n");
    EXPECT_EQ(raisedFor(killed, "half a li"), "half a li");
}

TEST(ToolResult, CallsAFailureInSilenceAnUnknownError)
{
    EXPECT_EQ(raisedFor(exit_1, ""), "unknown error");
}

TEST(ToolResult, RaisesNothingForASuccessWhateverWasSaid)
{
    EXPECT_EQ(raisedFor(exit_0, "postconf: fatal: no"), "nothing was raised");
}
