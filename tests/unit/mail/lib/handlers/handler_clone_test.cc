#include "mail/lib/handlers/handler_control.h"

#include "handler_control_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

constexpr char other[] = "other@example.org";

std::string copyOf(char const* name_template, char const* value = other)
{
    CString const name(get_handler_name(name_template, "recipient", value, "before-local"));
    return name ? name.get() : "(null)";
}

} // namespace

TEST_F(HookCloneOnHost, AddsACopyForAnotherValue)
{
    auto const name = add("spam");
    EXPECT_EQ(control(name, HOOK_CLONE, other), 0);
    auto const copy = copyOf("spam");
    ASSERT_NE(copy, "(null)");
    EXPECT_THAT(names(), ::testing::UnorderedElementsAre(name, copy));
    EXPECT_TRUE(copy.starts_with("10-spam-"));
    EXPECT_THAT(tree(info(copy)), ElementsAre(Pair("context", "f 0644 0:0 the context\n"),
                                              Pair("executable", ::testing::_),
                                              Pair("handler-type", "f 0644 0:0 recipient\n"),
                                              Pair("hook", "f 0644 0:0 before-local\n"),
                                              Pair("recipient", "f 0644 0:0 other@example.org\n")));
    EXPECT_TRUE(active(name));
    EXPECT_TRUE(active(copy));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookCloneOnHost, StartsTheCopyActiveWhenTheHandlerIsNot)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    EXPECT_EQ(control(name, HOOK_CLONE, other), 0);
    EXPECT_FALSE(active(name));
    EXPECT_TRUE(active(copyOf("spam")));
}

TEST_F(HookCloneOnHost, ResolvesTheExecutable)
{
    TempDir const dir;
    writeFile(dir / "program", "");
    std::filesystem::create_symlink("program", dir / "link");
    descriptor("10-spam-a1B2c3");
    std::filesystem::remove(info("10-spam-a1B2c3/executable"));
    std::filesystem::create_symlink(dir / "link", info("10-spam-a1B2c3/executable"));
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), 0);
    EXPECT_EQ(std::filesystem::read_symlink(info(copyOf("spam") + "/executable")),
              std::filesystem::canonical(dir / "program"));
}

TEST_F(HookCloneOnHost, KeepsThePriorityAndATemplateWithHyphens)
{
    descriptor("010-spam-and-virus-a1B2c3", {{"context", "  with blanks around  \n"}});
    EXPECT_EQ(control("010-spam-and-virus-a1B2c3", HOOK_CLONE, other), 0);
    auto const copy = copyOf("spam-and-virus");
    EXPECT_TRUE(copy.starts_with("010-spam-and-virus-")) << copy;
    EXPECT_EQ(readFile(info(copy + "/context")), "with blanks around\n");
}

TEST_F(HookCloneOnHost, ChangesNothingWhenThereIsACopy)
{
    auto const name = add("spam");
    ASSERT_EQ(control(name, HOOK_CLONE, other), 0);
    control(copyOf("spam"), HOOK_DISABLE);
    auto const before = store();
    refresher();
    EXPECT_EQ(control(name, HOOK_CLONE, other), 0);
    EXPECT_EQ(store(), before);
    EXPECT_EQ(refreshes(), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookCloneOnHost, TakesAGlobalHandlerForItsOwnCopy)
{
    auto const name = add("spam", "global", nullptr);
    EXPECT_EQ(control(name, HOOK_CLONE, other), 0);
    EXPECT_THAT(names(), ElementsAre(name));
}

TEST_F(HookCloneOnHost, RefreshesForTheCopyAndForItself)
{
    auto const name = add("spam");
    refresher();
    EXPECT_EQ(control(name, HOOK_CLONE, other), 0);
    EXPECT_EQ(refreshes(), 2);
}

TEST_F(HookCloneOnHost, FailsForANameThatCannotBeTakenApart)
{
    for (auto const& [name, why] : {std::pair("spam", "missing priority section"),
                                    std::pair("10-spam", "missing random part"),
                                    std::pair("10--a1B2c3", "empty template part")}) {
        descriptor(name);
        reports().clear();
        refresher();
        EXPECT_EQ(control(name, HOOK_CLONE, other), -1);
        EXPECT_THAT(reports(),
                    ElementsAre(error(std::string("Invalid handler name '") + name + "': " + why)));
        EXPECT_EQ(refreshes(), 1);
        std::filesystem::remove_all(info(name));
        std::filesystem::remove(journal);
    }
}

TEST_F(HookCloneOnHost, FailsWithoutAnExecutable)
{
    descriptor("10-spam-a1B2c3");
    std::filesystem::remove(info("10-spam-a1B2c3/executable"));
    refresher();
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    std::filesystem::create_symlink("/nowhere", info("10-spam-a1B2c3/executable"));
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Unable to get executable file name for handler\n"),
                                       error("Unable to get executable file name for handler\n")));
    EXPECT_THAT(names(), ElementsAre("10-spam-a1B2c3"));
    EXPECT_EQ(refreshes(), 2);
}

TEST_F(HookCloneOnHost, FailsWithoutAContext)
{
    descriptor("10-spam-a1B2c3", {}, {"context"});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("No such parameter 'context' for handler '10-spam-a1B2c3'")));
    EXPECT_THAT(names(), ElementsAre("10-spam-a1B2c3"));
}

TEST_F(HookCloneOnHost, NamesBothExecutableAndContextWhenBothAreMissing)
{
    descriptor("10-spam-a1B2c3", {}, {"context"});
    std::filesystem::remove(info("10-spam-a1B2c3/executable"));
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to get executable file name for handler\n"),
                            error("No such parameter 'context' for handler '10-spam-a1B2c3'")));
}

TEST_F(HookCloneOnHost, FindsItsCopyWhateverTheTypesLetters)
{
    descriptor("10-spam-a1B2c3", {{"handler-type", "RECIPIENT\n"}});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), 0);
    EXPECT_EQ(readFile(info(copyOf("spam") + "/handler-type")), "recipient\n");
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), 0);
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(HookCloneOnHost, AcceptsAnEmptyContext)
{
    descriptor("10-spam-a1B2c3", {{"context", ""}});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), 0);
    EXPECT_FALSE(std::filesystem::exists(info(copyOf("spam") + "/context")));
}

TEST_F(HookCloneOnHost, ReportsALinkWhoseNameIsTooLong)
{
    descriptor("10-spam-a1B2c3");
    // after five paths for the place, and three for the existing handler in the search for a copy
    PathOverflow const overflow(9);
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    EXPECT_THAT(reports(), ElementsAre(error("HandlerName '10-spam-a1B2c3' is too long to form a "
                                             "valid hook filename")));
}

TEST_F(HookCloneOnHost, ReportsThatThereIsNoMemoryForTheLinksTarget)
{
    descriptor("10-spam-a1B2c3");
    AllocationFailure const failure(4); // after the copies of three parameters
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, other), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Insufficient memory")));
}

TEST_F(HookCloneOnHost, FailsAtOnceWhenTheCopyCannotBeAdded)
{
    descriptor("10-spam-a1B2c3");
    refresher();
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_CLONE, nullptr), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Some parameter was not defined"),
                                       error("HandlerTypeName parameter is not defined")));
    EXPECT_EQ(refreshes(), 0);
}

TEST_F(HookMoveOnHost, LeavesACopyAndDeletesTheHandler)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    auto const copy = copyOf("spam");
    EXPECT_THAT(names(), ElementsAre(copy));
    EXPECT_TRUE(active(copy));
    EXPECT_EQ(lookup("spam"), "(null)");
    EXPECT_FALSE(std::filesystem::exists(hookDirectory()));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(HookMoveOnHost, DeletesTheHandlerWhenThereIsACopyAlready)
{
    auto const name = add("spam");
    ASSERT_EQ(control(name, HOOK_CLONE, other), 0);
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    EXPECT_THAT(names(), ElementsAre(copyOf("spam")));
}

TEST_F(HookMoveOnHost, ActivatesTheCopyThatAnInterruptedMoveHasLeft)
{
    auto const name = add("spam");
    ASSERT_EQ(control(name, HOOK_CLONE, other), 0);
    auto const copy = lookup("spam", "recipient", other);
    ASSERT_EQ(control(copy, HOOK_DISABLE), 0);
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    EXPECT_THAT(names(), ElementsAre(copy));
    EXPECT_TRUE(active(copy));
}

TEST_F(HookMoveOnHost, MakesACopyAnewThatHasNoProgram)
{
    auto const name = add("spam");
    ASSERT_EQ(control(name, HOOK_CLONE, other), 0);
    auto const unfinished = lookup("spam", "recipient", other);
    std::filesystem::remove(info(unfinished + "/executable"));
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    auto const copy = copyOf("spam");
    EXPECT_NE(copy, unfinished);
    EXPECT_THAT(names(), ElementsAre(copy));
    EXPECT_TRUE(std::filesystem::is_symlink(info(copy + "/executable")));
    EXPECT_TRUE(active(copy));
}

TEST_F(HookMoveOnHost, LeavesACopyOfAnInactiveHandlerAsItIs)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    ASSERT_EQ(control(name, HOOK_CLONE, other), 0);
    auto const copy = lookup("spam", "recipient", other);
    ASSERT_EQ(control(copy, HOOK_DISABLE), 0);
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    EXPECT_FALSE(active(copy));
}

TEST_F(HookMoveOnHost, RefreshesForEachStepAndTwiceForItself)
{
    auto const name = add("spam");
    refresher();
    EXPECT_EQ(control(name, HOOK_MOVE, other), 0);
    EXPECT_EQ(refreshes(), 5); // the copy's marker, the clone, the marker, and two
}

TEST_F(HookMoveOnHost, KeepsTheHandlerWhenTheCopyCannotBeMade)
{
    descriptor("10-spam-a1B2c3", {}, {"context"});
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_ENABLE), 0);
    refresher();
    EXPECT_EQ(control("10-spam-a1B2c3", HOOK_MOVE, other), -1);
    EXPECT_THAT(names(), ElementsAre("10-spam-a1B2c3"));
    EXPECT_TRUE(active("10-spam-a1B2c3"));
    EXPECT_EQ(refreshes(), 2); // the clone, and itself
}

TEST_F(HookMoveOnHost, KeepsTheDescriptorWhenTheMarkerCannotBeRemoved)
{
    auto const name = add("spam");
    std::filesystem::remove(marker(name));
    std::filesystem::create_directory(marker(name));
    refresher();
    EXPECT_EQ(control(name, HOOK_MOVE, other), -1);
    EXPECT_THAT(names(), ::testing::UnorderedElementsAre(name, copyOf("spam")));
    EXPECT_EQ(refreshes(), 3); // the copy's marker, the clone, and itself
}
