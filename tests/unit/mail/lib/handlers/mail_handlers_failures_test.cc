#include "mail/lib/handlers/mail_handlers.h"

#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/path_faults.h"
#include "support/syscall_faults.h"

#include <set>

#include <fcntl.h>

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Pair;

namespace {

// Tests what is left of a handler that could not be added whole.
class MailHandlerAddFailsOnHost : public HandlerStoreTest
{
protected:
    static int tryToAdd(char const* type = "recipient", char const* value = address,
                        char const* executable = "/bin/true", char const* priority = "10")
    {
        return mail_handler_add("spam", type, value, executable, "the context", "before-local",
                                priority, HOOK_ENABLE);
    }

    static std::vector<std::string> leftovers()
    {
        std::vector<std::string> files;
        for (auto const& [path, what] : tree(info(first())))
            files.push_back(path);
        EXPECT_FALSE(std::filesystem::exists(at("before-local")));
        return files;
    }

    // Makes the system call fail in a child, where the handler cannot be added then. Also checks
    // the reports there.
    template<typename Matcher>
    static ChildRun failingCall(int number, int error, Matcher const& wanted)
    {
        return printed([&] {
            failSystemCall(number, error);
            EXPECT_EQ(tryToAdd(), -1);
            EXPECT_THAT(reports(), wanted);
        });
    }
};

} // namespace

TEST_F(MailHandlerAddFailsOnHost, WithoutTheExecutable)
{
    EXPECT_EQ(tryToAdd("nonsense", nullptr, "/nowhere"), -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to stat executable '/nowhere': No such file or "
                                  "directory")));
}

TEST_F(MailHandlerAddFailsOnHost, WithoutAValidType)
{
    EXPECT_EQ(tryToAdd("everyone"), -1);
    EXPECT_EQ(tryToAdd(""), -1);
    EXPECT_EQ(tryToAdd(nullptr), -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(), ElementsAre(error("Handler type is invalid: everyone"),
                                       error("Handler type is invalid: "),
                                       error("Handler type is invalid: (null)")));
}

TEST_F(MailHandlerAddFailsOnHost, WithoutAValueForATypeThatNeedsOne)
{
    EXPECT_EQ(tryToAdd("sender", nullptr), -1);
    EXPECT_EQ(tryToAdd("sender", ""), -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(), ElementsAre(error("HandlerTypeName parameter is not defined"),
                                       error("HandlerTypeName parameter is not defined")));
}

TEST_F(MailHandlerAddFailsOnHost, WithANameThatIsTooLong)
{
    std::string const priority(4096, '1');
    EXPECT_EQ(tryToAdd("recipient", address, "/bin/true", priority.c_str()), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Name template 'spam' or priority '" + priority +
                                             "' are too long to form a valid handler name")));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheDescriptorCannotBeMade)
{
    std::filesystem::remove(handlers_info);
    EXPECT_EQ(tryToAdd(), -1);
    ASSERT_EQ(reports().size(), 1U);
    EXPECT_EQ(reports()[0].first, 3);
    EXPECT_THAT(reports()[0].second,
                MatchesRegex("Unable to create directory /usr/local/orv/handlers/info/10-spam-"
                             "[A-Za-z0-9]{6}: No such file or directory"));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheDescriptorsModeFailsAndItStaysEmpty)
{
    failingCall(SYS_chmod, EPERM,
                ElementsAre(Pair(3, MatchesRegex("Unable to change permissions for directory "
                                                 "'/usr/local/orv/handlers/info/10-spam-[^']{6}': "
                                                 "Operation not permitted"))));
    EXPECT_THAT(leftovers(), IsEmpty());
    EXPECT_EQ(modeOf(info(first())), 0700U);
}

TEST_F(MailHandlerAddFailsOnHost, WhenAParameterFailsAndTheFileStaysEmpty)
{
    barLocks();
    auto const run = printed([] { EXPECT_EQ(tryToAdd(), -1); });
    EXPECT_THAT(leftovers(), ElementsAre("hook"));
    std::string const dir = info(first());
    EXPECT_THAT(
        run.err,
        EndsWith(withErrno("Unable to add string 'before-local' to '" + dir + "/hook'", ENOTDIR)));
}

TEST_F(MailHandlerAddFailsOnHost, WithOneReportMoreForTheDirectoryOfTheParameter)
{
    barLocks();
    printed([] {
        EXPECT_EQ(tryToAdd(), -1);
        EXPECT_THAT(reports(),
                    ElementsAre(error("Unable to store handler parameters into directory "
                                      "'" +
                                      info(first()) + "'")));
    });
}

TEST_F(MailHandlerAddFailsOnHost, AnywhereAfterHookContextAndTypeInThisOrder)
{
    // Whichever allocation fails, only what was made before it exists.
    std::set<std::vector<std::string>> found;
    int added = -1;
    for (int number = 1; added != 0 && number < 100; ++number) {
        std::filesystem::remove_all(handlers_info);
        std::filesystem::create_directory(handlers_info);
        added = inChild([&] {
                    AllocationFailure const failure(number);
                    return tryToAdd();
                }).status;
        for (auto const& name : names()) {
            std::vector<std::string> files;
            for (auto const& entry : tree(info(name)))
                files.push_back(entry.first);
            found.insert(files);
        }
    }
    EXPECT_EQ(added, 0);
    using Files = std::vector<std::string>;
    EXPECT_THAT(found, ::testing::UnorderedElementsAre(
                           Files{"hook"}, Files{"context", "hook"},
                           Files{"context", "handler-type", "hook"},
                           Files{"context", "handler-type", "hook", "recipient"},
                           Files{"context", "executable", "handler-type", "hook", "recipient"}));
}

TEST_F(MailHandlerAddFailsOnHost, WhenLoweringFailsAndTheOtherParametersStay)
{
    auto const run = printed([] {
        int number = 0;
        // The lock of each of the three files takes more than one allocation.
        do {
            std::filesystem::remove_all(handlers_info);
            std::filesystem::create_directory(handlers_info);
            reports().clear();
            AllocationFailure const failure(++number);
            static_cast<void>(tryToAdd());
        } while (reports() != Reports{error("Unable to convert HandlerTypeName to lowercase")} &&
                 number < 100);
        EXPECT_LT(number, 100);
    });
    EXPECT_THAT(run.err, EndsWith(withErrno("System error: Cannot allocate memory\n", ENOMEM)));
    EXPECT_THAT(leftovers(), ElementsAre("context", "handler-type", "hook"));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheFlagOfAGlobalHandlerDoesNotFit)
{
    PathOverflow const overflow(2);
    EXPECT_EQ(tryToAdd("global", nullptr), -1);
    EXPECT_THAT(reports(), ElementsAre(error("global handler flag name is too long to be stored in "
                                             "the filesystem")));
    EXPECT_THAT(leftovers(), ElementsAre("context", "handler-type", "hook"));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheFlagOfAGlobalHandlerCannotBeCreated)
{
    auto const run = printed([] {
        BeforePath const in_the_way(
            2, [] { std::filesystem::create_directory(info(first() + "/global")); });
        EXPECT_EQ(tryToAdd("global", nullptr), -1);
        EXPECT_THAT(reports(),
                    ElementsAre(error("Unable to create file '" + info(first()) + "/global'")));
    });
    EXPECT_EQ(run.err, withErrno("Unable to truncate or create file " + info(first()) +
                                     "/global: Is a directory",
                                 EISDIR));
    EXPECT_THAT(leftovers(), ElementsAre("context", "global", "handler-type", "hook"));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheLinkDoesNotFit)
{
    PathOverflow const overflow(2);
    EXPECT_EQ(tryToAdd(), -1);
    EXPECT_THAT(reports(), ElementsAre(error("executable link name is too long to be stored in the "
                                             "filesystem")));
    EXPECT_THAT(leftovers(), ElementsAre("context", "handler-type", "hook", "recipient"));
}

TEST_F(MailHandlerAddFailsOnHost, WhenTheExecutableCannotBeLinkedTo)
{
    failingCall(SYS_symlink, ENOSPC,
                ElementsAre(Pair(3, MatchesRegex("Unable to symlink '/bin/true' to "
                                                 "'/usr/local/orv/handlers/info/10-spam-[^']{6}/"
                                                 "executable'"))));
    EXPECT_THAT(leftovers(), ElementsAre("context", "handler-type", "hook", "recipient"));
}

TEST_F(MailHandlerAddFailsOnHost, NotWhenTheLinkIsThere)
{
    auto const run = printed([] {
        failSystemCall(SYS_symlink, EEXIST);
        errno = 0;
        EXPECT_EQ(tryToAdd(), 0);
        EXPECT_EQ(errno, 0);
        EXPECT_THAT(reports(), IsEmpty());
    });
    EXPECT_EQ(run.err, "");
}

TEST_F(MailHandlerAddFailsOnHost, WithANameThatLeadsElsewhere)
{
    for (char const* const name : {"", ".", "..", "a/b", "../../x", "a\nb", " a", "a\t", "\x7f"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(mail_handler_add(name, "recipient", address, "/bin/true", "c", "before-local",
                                   "10", HOOK_ENABLE),
                  -1);
        EXPECT_EQ(
            mail_handler_add("a", "recipient", address, "/bin/true", "c", name, "10", HOOK_ENABLE),
            -1);
        EXPECT_EQ(mail_handler_add("a", "recipient", address, "/bin/true", "c", "before-local",
                                   name, HOOK_ENABLE),
                  -1);
        EXPECT_EQ(tryToAdd("recipient", name), -1);
    }
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_EQ(reports().front(), error("Invalid handler template ''"));
    EXPECT_EQ(reports().back(), error("Invalid handler value '\x7f'"));
}

TEST_F(MailHandlerAddFailsOnHost, WithWhatCannotBeReadBack)
{
    std::string const longest_name(255, 'x');
    std::string const name = longest_name + 'x';
    std::string const context(311, 'x');
    EXPECT_EQ(tryToAdd("recipient", name.c_str()), -1);
    EXPECT_EQ(mail_handler_add("a", "recipient", address, "/bin/true", "c", name.c_str(), "10",
                               HOOK_ENABLE),
              -1);
    for (char const* const text : {context.c_str(), "two\nlines"})
        EXPECT_EQ(mail_handler_add("a", "recipient", address, "/bin/true", text, "before-local",
                                   "10", HOOK_ENABLE),
                  -1);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(), ElementsAre(error("Invalid handler value '" + name + "'"),
                                       error("Invalid handler hook '" + name + "'"),
                                       error("Invalid handler context '" + context + "'"),
                                       error("Invalid handler context 'two\nlines'")));
    EXPECT_EQ(tryToAdd("recipient", longest_name.c_str()), 0);
}

TEST_F(MailHandlerAddFailsOnHost, WithAReportOfTheFileThatCannotBeCreated)
{
    printed([] {
        failSystemCallWith(SYS_openat, 2, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                           EDQUOT);
        EXPECT_EQ(tryToAdd(), -1);
        EXPECT_EQ(reports().size(), 1U);
    });
    EXPECT_THAT(leftovers(), IsEmpty());
}
