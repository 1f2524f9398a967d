#include "mail/lib/handlers/handler_descriptor.h"

#include "support/handler_store_test.h"
#include "support/path_faults.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using RefreshHandlersOnHost = HandlerStoreTest;
using RemoveHandlerDescriptorOnHost = HandlerStoreTest;

} // namespace

TEST_F(RefreshHandlersOnHost, DoesNothingWithoutTheProgram)
{
    errno = 0;
    refresh_handlers();
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(RefreshHandlersOnHost, RunsTheProgramByItsOwnPathWithOneArgument)
{
    writeFile(tmpfs, std::string("#!/bin/sh\necho \"$0|$#|$1\" >>") + journal + "\n");
    chmod(tmpfs, 0755);
    refresh_handlers();
    EXPECT_EQ(readFile(journal), std::string(tmpfs) + "|1|refresh\n");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(RefreshHandlersOnHost, TakesAProgramOnlyWhenItsOwnerMayExecuteIt)
{
    refresher("", 0100);
    refresh_handlers();
    EXPECT_EQ(refreshes(), 1);
    chmod(tmpfs, 0677);
    refresh_handlers();
    EXPECT_EQ(refreshes(), 1);
}

TEST_F(RefreshHandlersOnHost, TakesNothingButARegularFile)
{
    std::filesystem::create_directory(tmpfs);
    refresh_handlers();
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(RefreshHandlersOnHost, FollowsALinkToTheProgram)
{
    refresher();
    std::filesystem::rename(tmpfs, "/usr/lib64/orvek-9.0/elsewhere");
    std::filesystem::create_symlink("elsewhere", tmpfs);
    refresh_handlers();
    EXPECT_EQ(refreshes(), 1);
    std::filesystem::remove("/usr/lib64/orvek-9.0/elsewhere");
}

TEST_F(RefreshHandlersOnHost, ReportsTheProgramsFailureAndNoMore)
{
    refresher("echo trouble >&2\nexit 3\n");
    auto const run = printed([] {
        refresh_handlers();
        EXPECT_THAT(reports(), ElementsAre(error("Cannot sync tmps storage to fs")));
    });
    EXPECT_EQ(run.err, std::string(tmpfs) + " execution failed:\ntrouble\n");
}

TEST_F(RefreshHandlersOnHost, ReportsAProgramThatDiesBySignal)
{
    refresher("kill -9 $$\n");
    printed([] {
        refresh_handlers();
        EXPECT_THAT(reports(), ElementsAre(error("Cannot sync tmps storage to fs")));
    });
}

TEST_F(RemoveHandlerDescriptorOnHost, RemovesTheDirectoryAndThenRefreshes)
{
    descriptor("10-spam-a1B2c3");
    descriptor("10-spam-other0");
    refresher();
    EXPECT_EQ(remove_handler_descriptor("10-spam-a1B2c3"), 0);
    EXPECT_THAT(names(), ElementsAre("10-spam-other0"));
    EXPECT_EQ(readFile(journal), std::string(tmpfs) + " refresh\ninfo\ninfo/10-spam\n");
}

TEST_F(RemoveHandlerDescriptorOnHost, TakesAMissingOneForRemoved)
{
    EXPECT_EQ(remove_handler_descriptor("10-spam-a1B2c3"), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(RemoveHandlerDescriptorOnHost, FollowsNoLinks)
{
    TempDir const outside;
    writeFile(outside / "file", "kept");
    descriptor("10-spam-a1B2c3");
    std::filesystem::create_directory_symlink(outside.path(), info("10-spam-a1B2c3/link"));
    std::filesystem::create_directory_symlink(outside.path(), info("10-spam-linked"));
    EXPECT_EQ(remove_handler_descriptor("10-spam-a1B2c3"), 0);
    EXPECT_EQ(remove_handler_descriptor("10-spam-linked"), 0);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(readFile(outside / "file"), "kept");
}

TEST_F(RemoveHandlerDescriptorOnHost, ReportsANameThatIsTooLong)
{
    refresher();
    EXPECT_EQ(remove_handler_descriptor(std::string(4096, 'n').c_str()), -1);
    EXPECT_THAT(reports(), ElementsAre(error("handler name is too long to form a valid filesystem "
                                             "object name")));
    EXPECT_EQ(refreshes(), 0);
}

TEST_F(RemoveHandlerDescriptorOnHost, EndsTheProcessWhenTheDirectoryCannotBeRemoved)
{
    descriptor("10-spam-a1B2c3");
    auto const run = inChild([] {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            return 99;
        return remove_handler_descriptor("10-spam-a1B2c3");
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, ::testing::StartsWith("Unable to unlink directory entry "));
    EXPECT_THAT(names(), ElementsAre("10-spam-a1B2c3"));
}
