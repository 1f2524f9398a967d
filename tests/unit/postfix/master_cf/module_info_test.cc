#include "postfix/master_cf/module_info.h"

#include <gtest/gtest.h>

#include <limits>

using namespace orvek::mail::postfix;

TEST(ModuleInfo, BeginsCleared)
{
    ModuleInfo const info;
    EXPECT_EQ(info.name, "");
    EXPECT_EQ(info.type, ModuleType::inet);
    EXPECT_TRUE(boost::indeterminate(info.privateService));
    EXPECT_TRUE(boost::indeterminate(info.unprivileged));
    EXPECT_TRUE(bool(!info.chroot));
    EXPECT_EQ(info.wakeupTime, -1);
    EXPECT_FALSE(info.wakeupIfUsed);
    EXPECT_EQ(info.maxProcesses, -1);
    EXPECT_TRUE(info.command.empty());
}

TEST(ModuleInfo, NamesAndNumbersTheTypes)
{
    EXPECT_EQ(typeText(ModuleType::inet), "inet");
    EXPECT_EQ(typeText(ModuleType::unix), "unix");
    EXPECT_EQ(typeText(ModuleType::fifo), "fifo");
    EXPECT_EQ(typeText(ModuleType::unix_dgram), "unix-dgram");
    EXPECT_EQ(typeText(ModuleType::pass), "pass");
    EXPECT_EQ(static_cast<int>(ModuleType::inet), 0);
    EXPECT_EQ(static_cast<int>(ModuleType::unix), 1);
    EXPECT_EQ(static_cast<int>(ModuleType::fifo), 2);
    EXPECT_EQ(static_cast<int>(ModuleType::unix_dgram), 3);
    EXPECT_EQ(static_cast<int>(ModuleType::pass), 4);
}

TEST(ModuleInfo, PrintsAClearedRecordWithNInTheChrootColumn)
{
    EXPECT_EQ(entryText(ModuleInfo()), " inet - - n - -");
}

TEST(ModuleInfo, PrintsOneSpaceBeforeEachColumnAndElement)
{
    ModuleInfo info;
    info.name = "smtp";
    info.privateService = false;
    info.command = {"smtpd", "-o smtpd_proxy_filter=127.0.0.1:10025"};
    EXPECT_EQ(entryText(info), "smtp inet n - n - - smtpd -o smtpd_proxy_filter=127.0.0.1:10025");
}

TEST(ModuleInfo, PrintsEveryValueOfTheAnswers)
{
    ModuleInfo info;
    info.type = ModuleType::fifo;
    info.privateService = true;
    info.unprivileged = false;
    info.chroot = boost::indeterminate;
    EXPECT_EQ(entryText(info), " fifo y n - - -");
}

TEST(ModuleInfo, PrintsNumbersAndTheMarkOfAWakeup)
{
    ModuleInfo info;
    info.type = ModuleType::unix;
    info.wakeupTime = 60;
    info.maxProcesses = 0;
    EXPECT_EQ(entryText(info), " unix - - n 60 0");
    info.wakeupIfUsed = true;
    info.maxProcesses = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(entryText(info), " unix - - n 60? 2147483647");
    info.wakeupTime = -2;
    EXPECT_EQ(entryText(info), " unix - - n -2? 2147483647");
}

TEST(ModuleInfo, PrintsNoMarkWithoutAWakeup)
{
    ModuleInfo info;
    info.wakeupIfUsed = true;
    EXPECT_EQ(entryText(info), " inet - - n - -");
}
