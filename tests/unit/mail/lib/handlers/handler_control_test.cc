#include "mail/lib/handlers/handler_control.h"

#include "handler_control_fixture.h"
#include "support/call_faults.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

TEST_F(HookEnableOnHost, CreatesAnEmptyMarkerInTheHookDirectory)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    reports().clear();
    EXPECT_EQ(control(name, HOOK_ENABLE), 0);
    auto const all = store(name);
    EXPECT_THAT(all, Contains(Pair("before-local", "d 0755 0:0")));
    EXPECT_THAT(all, Contains(Pair("before-local/recipient", "d 0755 0:0")));
    EXPECT_THAT(all, Contains(Pair("before-local/recipient/someone@example.com", "d 0755 0:0")));
    EXPECT_THAT(all,
                Contains(Pair("before-local/recipient/someone@example.com/NAME", "f 0644 0:0 ")));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookEnableOnHost, HangsAGlobalHandlerBelowTheHookItself)
{
    auto const name = add("spam", "global", nullptr);
    EXPECT_THAT(store(name), Contains(Pair("before-local/global/NAME", "f 0644 0:0 ")));
}

TEST_F(HookEnableOnHost, MakesDirectoriesThatAllMayEnterWhateverTheUmask)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    mode_t const before = umask(077);
    EXPECT_EQ(control(name, HOOK_ENABLE), 0);
    EXPECT_EQ(umask(before), 077U) << "the umask is the caller's again";
    EXPECT_THAT(store(),
                Contains(Pair("before-local/recipient/someone@example.com", "d 0755 0:0")));
    EXPECT_THAT(store(), Contains(Pair("before-local", "d 0755 0:0")));
}

TEST_F(HookEnableOnHost, LeavesDirectoriesThatAreThereAsTheyAre)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    std::filesystem::create_directory(at("before-local"));
    ASSERT_EQ(chmod(at("before-local").c_str(), 0700), 0);
    ASSERT_EQ(chown(at("before-local").c_str(), 1, 2), 0);
    EXPECT_EQ(control(name, HOOK_ENABLE), 0);
    EXPECT_THAT(store(), Contains(Pair("before-local", "d 0700 1:2")));
    EXPECT_THAT(store(), Contains(Pair("before-local/recipient", "d 0755 0:0")));
}

TEST_F(HookEnableOnHost, EnablesWhatIsEnabledOnceMore)
{
    auto const name = add("spam");
    auto const before = store();
    errno = 0;
    EXPECT_EQ(control(name, HOOK_ENABLE), 0);
    EXPECT_EQ(errno, 0) << "the hook directory that cannot be removed leaves no trace";
    EXPECT_EQ(store(), before);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookEnableOnHost, FailsWithTheMarkerAndRefreshesAllTheSame)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    std::filesystem::create_directories(marker(name) + "/in the way");
    refresher();
    auto const run = printed([&] { EXPECT_EQ(control(name, HOOK_ENABLE), -1); });
    EXPECT_EQ(run.err,
              withErrno("Unable to truncate or create file " + marker(name) + ": Is a directory",
                        EISDIR));
    EXPECT_EQ(refreshes(), 1);
}

TEST_F(HookEnableOnHost, ReportsADirectoryThatCannotBeMadeAndGoesOn)
{
    auto const name = add("spam");
    make_dir_rec_result = -1;
    EXPECT_EQ(control(name, HOOK_ENABLE), 0);
    make_dir_rec_result = 0;
    EXPECT_THAT(reports(), ElementsAre(error(
                               "Unable to create directory '/usr/local/orv/handlers/before-local/"
                               "recipient/someone@example.com'")));
}

TEST_F(HookEnableOnHost, EndsTheProcessWhereMakingADirectoryDoes)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    writeFile(at("before-local"), "");
    auto const run = inChild([&] { return control(name, HOOK_ENABLE); });
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, ::testing::StartsWith("Cannot create directory "));
}

TEST_F(HookDisableOnHost, RemovesTheMarkerAndAnEmptyHookDirectory)
{
    auto const name = add("spam");
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    auto const all = store(name);
    EXPECT_THAT(all,
                Not(Contains(Pair("before-local/recipient/someone@example.com", "d 0755 0:0"))));
    EXPECT_THAT(all, Contains(Pair("before-local/recipient", "d 0755 0:0")));
    EXPECT_THAT(all, Contains(Pair("info/NAME", "d 0755 0:0")));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookDisableOnHost, LeavesAHookDirectoryWithAnotherHandler)
{
    auto const name = add("spam");
    auto const other = add("virus");
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_FALSE(active(name));
    EXPECT_TRUE(active(other));
}

TEST_F(HookDisableOnHost, SucceedsWithoutAMarkerAndRemovesTheEmptyDirectory)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    std::filesystem::create_directories(hookDirectory());
    errno = 0;
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookDisableOnHost, RemovesALinkAtTheMarkerNotItsTarget)
{
    auto const name = add("spam");
    TempDir const dir;
    writeFile(dir / "file", "kept");
    std::filesystem::remove(marker(name));
    std::filesystem::create_symlink(dir / "file", marker(name));
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
    EXPECT_EQ(readFile(dir / "file"), "kept");
}

TEST_F(HookDisableOnHost, TakesALinkThatLeadsNowhereForNoMarker)
{
    auto const name = add("spam");
    std::filesystem::remove(marker(name));
    std::filesystem::create_symlink("nowhere", marker(name));
    EXPECT_FALSE(active(name));
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(marker(name)));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookDisableOnHost, FailsAtOnceWithAMarkerThatCannotBeRemoved)
{
    auto const name = add("spam");
    std::filesystem::remove(marker(name));
    std::filesystem::create_directory(marker(name));
    refresher();
    EXPECT_EQ(control(name, HOOK_DISABLE), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(refreshes(), 0);
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to remove hook '" + name + "' from directory '" +
                                  hookDirectory() + "': Is a directory")));
}

TEST_F(HookDisableOnHost, RemovesAMarkerThatCannotBeLookedAt)
{
    auto const name = add("spam");
    CallFailure const failing("stat", EIO, 4); // after three parameters
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_FALSE(std::filesystem::exists(marker(name)));
}

TEST_F(HookDisableOnHost, RefreshesBeforeTheHookDirectoryIsRemoved)
{
    auto const name = add("spam");
    refresher();
    EXPECT_EQ(control(name, HOOK_DISABLE), 0);
    EXPECT_EQ(readFile(journal), std::string(tmpfs) +
                                     " refresh\nbefore-local\nbefore-local/recipient\n"
                                     "before-local/recipient/someone@example.com\ninfo\n"
                                     "info/10-spam\n");
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
}

TEST_F(HookDisableOnHost, IsNotChangedByARefreshThatFails)
{
    auto const name = add("spam");
    refresher("exit 1\n");
    auto const run = printed([&] {
        EXPECT_EQ(control(name, HOOK_DISABLE), 0);
        EXPECT_THAT(reports(), ElementsAre(error("Cannot sync tmps storage to fs")));
    });
    EXPECT_EQ(run.err, std::string(tmpfs) + " execution failed (no output)\n");
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
}

TEST_F(HookCheckOnHost, TellsWhetherTheMarkerIsThereAndChangesNothing)
{
    auto const name = add("spam");
    refresher();
    EXPECT_EQ(control(name, HOOK_CHECK), 1);
    control(name, HOOK_DISABLE);
    std::filesystem::create_directories(hookDirectory());
    std::filesystem::remove(journal);
    errno = 0;
    EXPECT_EQ(control(name, HOOK_CHECK), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(std::filesystem::exists(hookDirectory())) << "an empty one stays";
    EXPECT_EQ(refreshes(), 0);
}

TEST_F(HookDeleteOnHost, DisablesTheHandlerAndDeletesItsDescriptor)
{
    auto const name = add("spam");
    EXPECT_EQ(control(name, HOOK_DELETE), 0);
    EXPECT_THAT(store(), ElementsAre(Pair("before-local", "d 0755 0:0"),
                                     Pair("before-local/recipient", "d 0755 0:0"),
                                     Pair("info", "d 0755 0:0")));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookDeleteOnHost, LeavesTheProgramAlone)
{
    writeFile("/run/program", "x");
    ASSERT_EQ(mail_handler_add("spam", "recipient", address, "/run/program", "c", "before-local",
                               "10", HOOK_ENABLE),
              0);
    EXPECT_EQ(control(first(), HOOK_DELETE), 0);
    EXPECT_EQ(readFile("/run/program"), "x");
    std::filesystem::remove("/run/program");
}

TEST_F(HookDeleteOnHost, RefreshesOnceForTheMarkerAndTwiceForItself)
{
    auto const name = add("spam");
    refresher();
    EXPECT_EQ(control(name, HOOK_DELETE), 0);
    EXPECT_EQ(refreshes(), 3);
}

TEST_F(HookDeleteOnHost, KeepsTheDescriptorWhenTheMarkerStays)
{
    auto const name = add("spam");
    std::filesystem::remove(marker(name));
    std::filesystem::create_directory(marker(name));
    refresher();
    EXPECT_EQ(control(name, HOOK_DELETE), -1);
    EXPECT_THAT(names(), ElementsAre(name));
    EXPECT_EQ(reports().size(), 1U);
    EXPECT_EQ(refreshes(), 1);
}

TEST_F(HookDeleteOnHost, ReportsANameThatIsTooLongForTheDescriptor)
{
    auto const name = add("spam");
    // after three parameters, a directory and a marker for each of two calls
    PathOverflow const overflow(11);
    EXPECT_EQ(control(name, HOOK_DELETE), -1);
    EXPECT_THAT(reports(), ElementsAre(error("handler name is too long to form a valid filesystem "
                                             "object name")));
    EXPECT_THAT(names(), ElementsAre(name));
    EXPECT_FALSE(active(name));
}

TEST_F(UnknownActionOnHost, IsReportedAndChangesNothing)
{
    auto const name = add("spam");
    auto const before = store();
    EXPECT_EQ(control(name, HOOK_ADD), -1);
    EXPECT_EQ(control(name, static_cast<handler_control_t>(7)), -1);
    EXPECT_EQ(store(), before);
    EXPECT_THAT(reports(), ElementsAre(error("UKNOWN ACTION 0 requested for handler " + name),
                                       error("UKNOWN ACTION 7 requested for handler " + name)));
}

TEST_F(UnknownActionOnHost, EndsWithTheRefreshAndEmptyDirectoryRemoval)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    std::filesystem::create_directories(hookDirectory());
    refresher();
    EXPECT_EQ(control(name, HOOK_ADD), -1);
    EXPECT_EQ(refreshes(), 1);
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
}

TEST_F(HookPlaceOnHost, IsFoundWhateverTheLettersOfTheStoredType)
{
    descriptor("10-spam-a1B2c3", {{"handler-type", "RECIPIENT\n"}});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), 0);
    EXPECT_TRUE(std::filesystem::exists(marker("10-spam-a1B2c3")));
}

TEST_F(HookPlaceOnHost, TakesAnyNameThatHasADescriptor)
{
    descriptor("spam");
    EXPECT_EQ(control("spam", HOOK_ENABLE), 0);
    EXPECT_TRUE(std::filesystem::exists(marker("spam")));
}

TEST_F(HookPlaceOnHost, NeedsAValidType)
{
    descriptor("10-spam-a1B2c3", {{"handler-type", "everyone\n"}});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), -1);
    writeFile(info("10-spam-a1B2c3/handler-type"), "");
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("Invalid handler type 'everyone' for handler '10-spam-a1B2c3'"),
                            error("Invalid handler type '' for handler '10-spam-a1B2c3'")));
}

TEST_F(HookPlaceOnHost, NeedsEachOfTheParametersThatFormIt)
{
    refresher();
    for (std::string const file : {"handler-type", "hook", "recipient"}) {
        descriptor("10-spam-a1B2c3", {}, {file});
        reports().clear();
        EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), -1);
        EXPECT_THAT(reports(),
                    ElementsAre(error("No such parameter '" + file +
                                      "' for handler "
                                      "'10-spam-a1B2c3'"),
                                error("Unable to fetch '" + file +
                                      "' parameter value for handler '10-spam-a1B2c3'")));
        std::filesystem::remove_all(info("10-spam-a1B2c3"));
    }
    EXPECT_EQ(refreshes(), 0);
}

TEST_F(HookPlaceOnHost, NeedsNoValueForAGlobalHandler)
{
    descriptor("10-spam-a1B2c3", {{"handler-type", "global\n"}}, {"recipient"});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), 0);
    EXPECT_TRUE(std::filesystem::exists(at("before-local/global/10-spam-a1B2c3")));
}

TEST_F(HookPlaceOnHost, CannotBeFormedOfATooLongValue)
{
    descriptor("10-spam-a1B2c3", {{"recipient", std::string(311, 'x') + "\n"}});
    auto const run = printed([] {
        EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), -1);
        EXPECT_EQ(reports().size(), 2U);
        EXPECT_EQ(reports().back(), error("Unable to fetch 'recipient' parameter value for handler "
                                          "'10-spam-a1B2c3'"));
    });
    EXPECT_EQ(run.err, "The buffer too short\n");
}

TEST_F(HookPlaceOnHost, ReportsADirectoryOrAMarkerThatIsTooLong)
{
    auto const name = add("spam");
    for (int const number : {4, 5}) {
        PathOverflow const overflow(number);
        EXPECT_EQ(control(name, HOOK_DISABLE), -1);
    }
    EXPECT_THAT(reports(),
                ElementsAre(error("handler parameters values are too long to form a valid "
                                  "filesystem object name"),
                            error("handler name is too long to form a valid filesystem object "
                                  "name")));
    EXPECT_TRUE(active(name));
}
