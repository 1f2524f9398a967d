#include "mail/lib/handlers/mail_handlers.h"

#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/path_faults.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

namespace {

using MailHandlerAddOnHost = HandlerStoreTest;
using MailHandlerRemoveOnHost = HandlerStoreTest;

class MailHandlerUpdateOnHost : public HandlerStoreTest
{
protected:
    static int update(char const* executable, char const* context, char const* priority,
                      char const* name_template = "spam")
    {
        return mail_handler_update(name_template, "recipient", address, executable, context,
                                   "before-local", priority);
    }
    static std::string executableOf(std::string const& name)
    {
        return std::filesystem::read_symlink(info(name + "/executable"));
    }
    static std::string contextOf(std::string const& name)
    {
        return readFile(info(name + "/context"));
    }
};

} // namespace

TEST_F(MailHandlerAddOnHost, MakesADescriptorAndAMarkerAndNothingElse)
{
    auto const name = add("spam");
    EXPECT_THAT(name, ::testing::MatchesRegex("10-spam-[A-Za-z0-9]{6}"));
    EXPECT_THAT(store(name),
                ElementsAre(Pair("before-local", "d 0755 0:0"),
                            Pair("before-local/recipient", "d 0755 0:0"),
                            Pair("before-local/recipient/someone@example.com", "d 0755 0:0"),
                            Pair("before-local/recipient/someone@example.com/NAME", "f 0644 0:0 "),
                            Pair("info", "d 0755 0:0"), Pair("info/NAME", "d 0755 0:0"),
                            Pair("info/NAME/context", "f 0644 0:0 the context\n"),
                            Pair("info/NAME/executable", "l /bin/true"),
                            Pair("info/NAME/handler-type", "f 0644 0:0 recipient\n"),
                            Pair("info/NAME/hook", "f 0644 0:0 before-local\n"),
                            Pair("info/NAME/recipient", "f 0644 0:0 someone@example.com\n")));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailHandlerAddOnHost, GivesDescriptorAndFilesTheirModesWhateverTheUmask)
{
    mode_t const before = umask(077);
    auto const name = add("spam");
    EXPECT_EQ(umask(before), 077U);
    auto const all = store(name);
    EXPECT_THAT(all, Contains(Pair("info/NAME", "d 0755 0:0")));
    EXPECT_THAT(all, Contains(Pair("info/NAME/context", "f 0644 0:0 the context\n")));
    EXPECT_THAT(all, Contains(Pair("info/NAME/recipient", "f 0644 0:0 someone@example.com\n")));
}

TEST_F(MailHandlerAddOnHost, MakesAFlagForAGlobalHandlersValue)
{
    auto const name = add("spam", "global", nullptr);
    EXPECT_THAT(tree(info(name)),
                ElementsAre(Pair("context", "f 0644 0:0 the context\n"),
                            Pair("executable", "l /bin/true"), Pair("global", "f 0644 0:0 "),
                            Pair("handler-type", "f 0644 0:0 global\n"),
                            Pair("hook", "f 0644 0:0 before-local\n")));
    EXPECT_TRUE(std::filesystem::exists(at("before-local/global/" + name)));
}

TEST_F(MailHandlerAddOnHost, EmptiesTheValueThatAGlobalHandlerIsGiven)
{
    auto const name = add("spam", "global", "Value");
    EXPECT_THAT(tree(info(name)), Contains(Pair("global", "f 0644 0:0 ")));
}

TEST_F(MailHandlerAddOnHost, StoresLowerCaseValuesAndTheTablesTypes)
{
    auto const name = add("spam", "SENDER-Domain", "Example.COM");
    EXPECT_EQ(readFile(info(name + "/handler-type")), "sender-domain\n");
    EXPECT_EQ(readFile(info(name + "/sender-domain")), "example.com\n");
    EXPECT_TRUE(std::filesystem::exists(at("before-local/sender-domain/example.com/" + name)));
    EXPECT_EQ(lookup("spam", "sender-domain", "EXAMPLE.com"), name);
}

TEST_F(MailHandlerAddOnHost, LinksToTheExecutableAsItIsSpelled)
{
    std::filesystem::current_path("/");
    ASSERT_EQ(mail_handler_add("spam", "global", nullptr, "bin/../bin/true", "c", "before-local",
                               "10", HOOK_ENABLE),
              0);
    EXPECT_EQ(std::filesystem::read_symlink(info(first() + "/executable")), "bin/../bin/true");
}

TEST_F(MailHandlerAddOnHost, LeavesAHandlerInactiveWhenAskedTo)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    EXPECT_FALSE(active(name));
    EXPECT_FALSE(std::filesystem::exists(at("before-local")));
}

TEST_F(MailHandlerAddOnHost, ReturnsWhatTheActionReturns)
{
    EXPECT_EQ(mail_handler_add("spam", "recipient", address, "/bin/true", "c", "before-local", "10",
                               HOOK_CHECK),
              0);
    EXPECT_EQ(mail_handler_add("spam", "recipient", address, "/bin/true", "c", "before-local", "10",
                               HOOK_ADD),
              -1);
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(MailHandlerAddOnHost, MakesNoContextFileForAnEmptyContext)
{
    ASSERT_EQ(mail_handler_add("spam", "recipient", address, "/bin/true", "", "before-local", "10",
                               HOOK_ENABLE),
              0);
    EXPECT_FALSE(std::filesystem::exists(info(first() + "/context")));
}

TEST_F(MailHandlerAddOnHost, GivesASecondHandlerAnotherName)
{
    auto const one = add("spam");
    EXPECT_NE(add("spam"), one);
    EXPECT_EQ(names().size(), 2U);
}

TEST_F(MailHandlerAddOnHost, RefreshesOnce)
{
    refresher();
    add("spam");
    EXPECT_EQ(refreshes(), 1);
}

TEST_F(MailHandlerUpdateOnHost, ReplacesTheHandlerByOneWithANewName)
{
    auto const old = add("spam");
    reports().clear();
    EXPECT_EQ(update("/bin/false", "another context", "020"), 0);
    ASSERT_EQ(names().size(), 1U);
    auto const name = first();
    EXPECT_THAT(name, ::testing::MatchesRegex("020-spam-[A-Za-z0-9]{6}"));
    EXPECT_EQ(contextOf(name), "another context\n");
    EXPECT_EQ(executableOf(name), "/bin/false");
    EXPECT_TRUE(active(name));
    EXPECT_EQ(store(name).size(), 11U);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailHandlerUpdateOnHost, KeepsWhatIsEmptyOrMissing)
{
    auto const old = add("spam");
    EXPECT_EQ(update("", "", ""), 0);
    EXPECT_EQ(update(nullptr, nullptr, nullptr), 0);
    ASSERT_EQ(names().size(), 1U);
    auto const name = first();
    EXPECT_NE(name, old);
    EXPECT_TRUE(name.starts_with("10-spam-"));
    EXPECT_EQ(contextOf(name), "the context\n");
    EXPECT_EQ(executableOf(name), "/bin/true");
    EXPECT_TRUE(active(name));
}

TEST_F(MailHandlerUpdateOnHost, CopiesTheTextOfTheLinkAndTheContextTrimmed)
{
    std::filesystem::create_symlink("/bin/true", "/run/link");
    descriptor("10-spam-a1B2c3", {{"context", "  two  words \n"}});
    std::filesystem::remove(info("10-spam-a1B2c3/executable"));
    std::filesystem::create_symlink("/run/../run/link", info("10-spam-a1B2c3/executable"));
    EXPECT_EQ(update("", "", ""), 0);
    EXPECT_EQ(executableOf(first()), "/run/../run/link");
    EXPECT_EQ(contextOf(first()), "two  words\n");
    std::filesystem::remove("/run/link");
}

TEST_F(MailHandlerUpdateOnHost, KeepsALinkOfAnyLength)
{
    std::string const program = std::string(4095 - strlen("bin/true"), '/') + "bin/true";
    ASSERT_EQ(mail_handler_add("spam", "recipient", address, program.c_str(), "c", "before-local",
                               "10", HOOK_ENABLE),
              0);
    ASSERT_EQ(update("", "", ""), 0);
    EXPECT_EQ(executableOf(first()), program);
}

TEST_F(MailHandlerUpdateOnHost, LeavesADisabledHandlerDisabled)
{
    add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    EXPECT_EQ(update("", "", "20"), 0);
    EXPECT_TRUE(first().starts_with("20-spam-"));
    EXPECT_FALSE(active(first()));
}

TEST_F(MailHandlerUpdateOnHost, UpdatesAGlobalHandler)
{
    add("spam", "global", nullptr);
    EXPECT_EQ(mail_handler_update("spam", "global", nullptr, "", "", "before-local", "5"), 0);
    EXPECT_TRUE(first().starts_with("5-spam-"));
    EXPECT_TRUE(std::filesystem::exists(at("before-local/global/" + first())));
}

TEST_F(MailHandlerUpdateOnHost, GivesTheFoundHandlerTheSearchedTemplate)
{
    add("antispam");
    EXPECT_EQ(update("", "", ""), 0);
    EXPECT_THAT(names(), ElementsAre(::testing::StartsWith("10-spam-")));
}

TEST_F(MailHandlerUpdateOnHost, ReportsAHandlerThatIsNotThere)
{
    EXPECT_EQ(update("/bin/true", "c", "10"), -1);
    EXPECT_EQ(mail_handler_update("spam", "global", nullptr, "", "", "before-queue", "5"), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Handler spam for someone@example.com does not exist "
                                             "in queue before-local"),
                                       error("Handler spam for (null) does not exist in queue "
                                             "before-queue")));
}

TEST_F(MailHandlerUpdateOnHost, KeepsTheHandlerWhenTheNewExecutableIsMissing)
{
    auto const name = add("spam");
    auto const before = store();
    EXPECT_EQ(update("/nowhere", "c", "20"), -1);
    EXPECT_EQ(store(), before);
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to stat executable '/nowhere': No such file or "
                                  "directory")));
}

TEST_F(MailHandlerUpdateOnHost, KeepsTheHandlerWhenANewValueIsRefused)
{
    add("spam");
    auto const before = store();
    std::string const long_context(400, 'x');
    EXPECT_EQ(update("", long_context.c_str(), ""), -1);
    EXPECT_EQ(update("", "two\nlines", ""), -1);
    EXPECT_EQ(update("", "", " 10"), -1);
    EXPECT_EQ(store(), before);
    EXPECT_THAT(reports(), ElementsAre(error("Invalid handler context '" + long_context + "'"),
                                       error("Invalid handler context 'two\nlines'"),
                                       error("Invalid handler priority ' 10'")));
}

TEST_F(MailHandlerUpdateOnHost, LosesAHandlerWhoseOwnExecutableIsMissing)
{
    descriptor("10-spam-a1B2c3");
    std::filesystem::remove(info("10-spam-a1B2c3/executable"));
    EXPECT_EQ(update("", "c", "20"), -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(),
                ElementsAre(Report(4, "Unable to fetch executable link target: No such file or "
                                      "directory"),
                            error("Unable to stat executable '': No such file or directory")));
}

TEST_F(MailHandlerUpdateOnHost, GoesOnWithoutAContextThatCannotBeRead)
{
    descriptor("10-spam-a1B2c3", {}, {"context"});
    EXPECT_EQ(update("", "", ""), 0);
    EXPECT_THAT(reports(),
                ElementsAre(error("No such parameter 'context' for handler '10-spam-a1B2c3'")));
    EXPECT_FALSE(std::filesystem::exists(info(first() + "/context")));
}

TEST_F(MailHandlerUpdateOnHost, ChecksExecutableThenContextThenPriority)
{
    descriptor("spam", {}, {"context"});
    std::filesystem::remove(info("spam/executable"));
    EXPECT_EQ(update("", "", ""), -1);
    EXPECT_THAT(reports(), ElementsAre(Report(4, "Unable to fetch executable link target: No such "
                                                 "file or directory"),
                                       error("No such parameter 'context' for handler 'spam'"),
                                       error("Invalid handler name 'spam': missing priority "
                                             "section")));
    EXPECT_THAT(names(), ElementsAre("spam"));
}

TEST_F(MailHandlerUpdateOnHost, RefusesThePriorityOfAnUnparsableName)
{
    descriptor("spam");
    EXPECT_EQ(update("", "", ""), -1);
    EXPECT_THAT(names(), ElementsAre("spam"));
    EXPECT_THAT(reports(),
                ElementsAre(error("Invalid handler name 'spam': missing priority section")));
    EXPECT_EQ(update("", "", "10"), 0) << "another priority helps";
}

TEST_F(MailHandlerUpdateOnHost, KeepsTheHandlerWhenItCannotBeDisabled)
{
    auto const name = add("spam");
    std::string const marker = at("before-local/recipient/someone@example.com/" + name);
    std::filesystem::remove(marker);
    std::filesystem::create_directory(marker);
    EXPECT_EQ(update("", "c", "20"), -1);
    EXPECT_THAT(names(), ElementsAre(name));
    EXPECT_EQ(reports().size(), 1U);
}

TEST_F(MailHandlerUpdateOnHost, ReportsALinkWhoseNameIsTooLong)
{
    auto const name = add("spam");
    PathOverflow const overflow(4); // after the search for the handler
    EXPECT_EQ(update("", "", ""), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("handler name '" + name +
                                  "' is too long to form a valid filesystem object name")));
    EXPECT_THAT(names(), ElementsAre(name));
}

TEST_F(MailHandlerUpdateOnHost, DeletesBeforeItAdds)
{
    add("spam");
    refresher();
    EXPECT_EQ(update("", "", "20"), 0);
    std::string const gone =
        std::string(tmpfs) + " refresh\nbefore-local\nbefore-local/recipient\ninfo\n";
    EXPECT_THAT(readFile(journal), ::testing::HasSubstr(gone + tmpfs));
    EXPECT_EQ(refreshes(), 3);
}

TEST_F(MailHandlerUpdateOnHost, LeavesNoHandlerWhenTheNewOneCannotBeAdded)
{
    add("spam");
    EXPECT_EQ(update("", "", std::string(4096, '1').c_str()), -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(reports().size(), 1U);
}

TEST_F(MailHandlerRemoveOnHost, DisablesAndDeletes)
{
    auto const name = add("spam");
    auto const other = add("virus");
    refresher();
    EXPECT_EQ(mail_handler_remove(name.c_str()), 0);
    EXPECT_THAT(names(), ElementsAre(other));
    EXPECT_THAT(store(name), Not(Contains(Pair(::testing::HasSubstr("NAME"), ::testing::_))));
    EXPECT_EQ(refreshes(), 2);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailHandlerRemoveOnHost, RemovesADisabledHandler)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    EXPECT_EQ(mail_handler_remove(name.c_str()), 0);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(MailHandlerRemoveOnHost, FailsForAHandlerThatIsNotThere)
{
    EXPECT_EQ(mail_handler_remove("10-spam-a1B2c3"), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("No such parameter 'handler-type' for handler '10-spam-a1B2c3'"),
                            error("Unable to fetch 'handler-type' parameter value for handler "
                                  "'10-spam-a1B2c3'")));
}

TEST_F(MailHandlerRemoveOnHost, ReportsANameThatIsTooLongForTheDescriptor)
{
    auto const name = add("spam");
    PathOverflow const overflow(6); // after disabling
    EXPECT_EQ(mail_handler_remove(name.c_str()), -1);
    EXPECT_THAT(names(), ElementsAre(name));
    EXPECT_THAT(reports(), ElementsAre(error("handler name is too long to form a valid filesystem "
                                             "object name")));
}
