#include "commands/postfix_modules.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;

TEST(PostfixModules, HaveNothingToDoWithComponentsThatAreNone)
{
    for (unsigned int const mask : {0U, 0x1U, 0xf0U, 0xf1U, 0xfff1U}) {
        ChildRun const run = inChild([=] {
            return checkEnablePostfixModules(mask) || checkDisablePostfixModules(mask) ? 1 : 0;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out + run.err, "");
    }
}
