#include "mail/lib/handlers/handler_lookup.h"

#include "support/call_faults.h"
#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it
#include "support/path_faults.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using GetHandlerNameOnHost = HandlerStoreTest;

class CheckAllOnHost : public HandlerStoreTest
{
protected:
    static int check(char const* value = address)
    {
        return mail_handler_check_all(value, "before-local");
    }
    static void mark(std::string const& path)
    {
        std::filesystem::create_directories(at("before-local/" + path));
        writeFile(at("before-local/" + path + "/10-spam-a1B2c3"), "");
    }
};

} // namespace

TEST_F(GetHandlerNameOnHost, FindsAHandlerByTemplateTypeValueAndHook)
{
    descriptor("10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam"), "10-spam-a1B2c3");
    EXPECT_EQ(lookup("virus"), "(null)");
    EXPECT_EQ(lookup("spam", "sender"), "(null)");
    EXPECT_EQ(lookup("spam", "recipient", "other@example.com"), "(null)");
    EXPECT_EQ(lookup("spam", "recipient", address, "before-queue"), "(null)");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(GetHandlerNameOnHost, FindsATemplateThatIsPartOfTheWholeName)
{
    descriptor("10-antispam-a1B2c3");
    EXPECT_EQ(lookup("spam"), "10-antispam-a1B2c3");
    EXPECT_EQ(lookup("10-anti"), "10-antispam-a1B2c3");
    EXPECT_EQ(lookup("B2c3"), "10-antispam-a1B2c3");
    EXPECT_EQ(lookup("Spam"), "(null)") << "the letters of a template count";
}

TEST_F(GetHandlerNameOnHost, IgnoresCaseInValuesButNotHookAndType)
{
    descriptor("10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam", "recipient", "SomeOne@Example.COM"), "10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam", "Recipient"), "(null)");
    EXPECT_EQ(lookup("spam", "recipient", address, "Before-Local"), "(null)");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(GetHandlerNameOnHost, DoesNotLookAtAGlobalHandlersValue)
{
    descriptor("10-spam-a1B2c3", {{"handler-type", "global\n"}}, {"recipient"});
    EXPECT_EQ(lookup("spam", "global", nullptr), "10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam", "global", "whatever"), "10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam", "GLOBAL", nullptr), "(null)");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(GetHandlerNameOnHost, GivesTheFirstInDirectoryOrder)
{
    for (char last = 'a'; last <= 'j'; ++last)
        descriptor(std::string("10-spam-a1B2c") + last);
    auto const first = std::filesystem::directory_iterator(handlers_info)->path().filename();
    EXPECT_EQ(lookup("spam"), first.string());
}

TEST_F(GetHandlerNameOnHost, TakesTheStoredValuesWithoutWhiteSpaceAtTheirEnds)
{
    descriptor("10-spam-a1B2c3", {{"hook", " before-local \n"},
                                  {"handler-type", "\trecipient\r\n"},
                                  {"recipient", "  someone@example.com"}});
    EXPECT_EQ(lookup("spam"), "10-spam-a1B2c3");
}

TEST_F(GetHandlerNameOnHost, ReportsMissingArguments)
{
    EXPECT_EQ(lookup(""), "(null)");
    EXPECT_EQ(get_handler_name(nullptr, "recipient", address, "before-local"), nullptr);
    EXPECT_EQ(lookup("spam", "recipient", address, ""), "(null)");
    EXPECT_EQ(get_handler_name("spam", "recipient", address, nullptr), nullptr);
    EXPECT_THAT(reports(), ::testing::Each(error("Some parameter(s) were not defined")));
    EXPECT_EQ(reports().size(), 4U);
}

TEST_F(GetHandlerNameOnHost, ReportsAnInvalidType)
{
    EXPECT_EQ(lookup("spam", nullptr), "(null)");
    EXPECT_EQ(lookup("spam", ""), "(null)");
    EXPECT_EQ(lookup("spam", "everyone"), "(null)");
    EXPECT_THAT(reports(), ElementsAre(error("Invalid handler type '(null)'"),
                                       error("Invalid handler type ''"),
                                       error("Invalid handler type 'everyone'")));
}

TEST_F(GetHandlerNameOnHost, ReportsAValueThatIsMissing)
{
    EXPECT_EQ(lookup("spam", "recipient", ""), "(null)");
    EXPECT_EQ(get_handler_name("spam", "sender-domain", nullptr, "before-local"), nullptr);
    EXPECT_THAT(reports(), ElementsAre(error("Some parameter was not defined"),
                                       error("Some parameter was not defined")));
}

TEST_F(GetHandlerNameOnHost, ReportsAStoreThatCannotBeOpened)
{
    std::filesystem::remove(handlers_info);
    EXPECT_EQ(lookup("spam"), "(null)");
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to open directory /usr/local/orv/handlers/info: No such "
                                  "file or directory")));
}

TEST_F(GetHandlerNameOnHost, ReportsAStoreThatCannotBeReadToItsEnd)
{
    add("spam");
    {
        CallFailure const failing("readdir", EIO, 3);
        EXPECT_EQ(lookup("spam"), "(null)");
    }
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to read directory /usr/local/orv/handlers/info: "
                                  "Input/output error")));
}

TEST_F(GetHandlerNameOnHost, EndsAtADescriptorThatMightMatchAndIsDamaged)
{
    for (auto const* const file : {"hook", "handler-type", "recipient"}) {
        descriptor("10-spam-broken", {}, {file});
        reports().clear();
        auto const run = printed([&] {
            EXPECT_EQ(lookup("broken"), "(null)");
            EXPECT_THAT(reports(), ElementsAre(error("Unable to get string from file: No such file "
                                                     "or directory\n")));
        });
        std::string const path = info("10-spam-broken/") + file;
        EXPECT_EQ(
            run.err,
            withErrno("Unable to open file " + path + ": No such file or directory\n", ENOENT));
        std::filesystem::remove_all(info("10-spam-broken"));
    }
}

TEST_F(GetHandlerNameOnHost, LooksAtNothingAfterADamagedDescriptor)
{
    for (int i = 0; i < 10; ++i)
        descriptor("10-spam-a1B2c" + std::to_string(i));
    std::string const first = std::filesystem::directory_iterator(handlers_info)->path().filename();
    std::filesystem::remove(info(first + "/hook"));
    auto const run = printed([] { EXPECT_EQ(lookup("spam"), "(null)"); });
    EXPECT_THAT(run.err, ::testing::HasSubstr(first));
}

TEST_F(GetHandlerNameOnHost, DoesNotMindDamagedDescriptorsThatCannotMatch)
{
    descriptor("10-virus-broken", {}, {"hook"});
    descriptor("10-spam-queue0", {{"hook", "before-queue\n"}}, {"handler-type"});
    descriptor("10-spam-sender", {{"handler-type", "sender\n"}}, {"recipient"});
    descriptor("10-spam-a1B2c3");
    EXPECT_EQ(lookup("spam"), "10-spam-a1B2c3");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(GetHandlerNameOnHost, EndsAtATooLongValue)
{
    descriptor("10-spam-a1B2c3", {{"recipient", std::string(311, 'x') + "\n"}});
    auto const run = printed([] { EXPECT_EQ(lookup("spam"), "(null)"); });
    EXPECT_EQ(run.err, "The buffer too short\n");
}

TEST_F(GetHandlerNameOnHost, FindsAValueOfThreeHundredAndTenCharacters)
{
    std::string const value(310, 'x');
    descriptor("10-spam-a1B2c3", {{"recipient", value + "\n"}});
    EXPECT_EQ(lookup("spam", "recipient", value.c_str()), "10-spam-a1B2c3");
}

TEST_F(GetHandlerNameOnHost, PassesOverTheDirectoryItselfAndTheOneAbove)
{
    descriptor("10-a.b..c-a1B2c3");
    EXPECT_EQ(lookup("."), "10-a.b..c-a1B2c3");
    EXPECT_EQ(lookup(".."), "10-a.b..c-a1B2c3");
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(GetHandlerNameOnHost, NamesEachPathThatIsTooLong)
{
    descriptor("10-spam-a1B2c3");
    std::string const path = "Path '/usr/local/orv/handlers/info/10-spam-a1B2c3/";
    for (int number = 1; number <= 3; ++number) {
        PathOverflow const overflow(number);
        EXPECT_EQ(lookup("spam"), "(null)");
    }
    EXPECT_THAT(
        reports(),
        ElementsAre(error(path + "hook' is too long to be stored in the filesystem"),
                    error(path + "handler-type' is too long to be stored in the filesystem"),
                    error(path + "recipient' is too long to be stored in the filesystem")));
}

TEST_F(GetHandlerNameOnHost, ReportsThatThereIsNoMemory)
{
    descriptor("10-spam-a1B2c3");
    AllocationFailure const failure(1);
    EXPECT_EQ(lookup("spam"), "(null)");
    EXPECT_THAT(reports(), ElementsAre(error("Insufficient memory")));
}

TEST_F(CheckAllOnHost, GivesZeroWhenNoHandlerIsActive)
{
    EXPECT_EQ(check(), 0);
    std::filesystem::create_directories(at("before-local/recipient/someone@example.com"));
    errno = 0;
    EXPECT_EQ(check(), 0) << "an empty hook directory";
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(CheckAllOnHost, GivesOneForAHandlerOfEachType)
{
    for (auto const* const path :
         {"sender/someone@example.com", "recipient/someone@example.com",
          "sender-domain/example.com", "recipient-domain/example.com", "global"}) {
        mark(path);
        EXPECT_EQ(check(), 1) << path;
        std::filesystem::remove_all(at("before-local"));
    }
}

TEST_F(CheckAllOnHost, DoesNotMindHandlersOfOtherAddressesAndHooks)
{
    mark("sender/other@example.com");
    mark("recipient-domain/someone@example.com");
    mark("sender-domain/example.org");
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(mail_handler_check_all("other@example.com", "before-queue"), 0);
    EXPECT_EQ(mail_handler_check_all("other@example.com", "before-local"), 1);
}

TEST_F(CheckAllOnHost, TakesTheDomainAfterTheFirstAt)
{
    mark("sender-domain/b@c");
    EXPECT_EQ(check("a@b@c"), 1);
}

TEST_F(CheckAllOnHost, LooksInTheRecipientsDirectoryTwiceWithoutADomain)
{
    mark("global");
    EXPECT_EQ(check("localname"), 1);
    std::filesystem::remove_all(at("before-local"));
    mark("sender-domain/localname");
    EXPECT_EQ(check("localname"), 0);
}

TEST_F(CheckAllOnHost, ReportsADirectoryThatCannotBeOpened)
{
    std::filesystem::create_directories(at("before-local/recipient"));
    writeFile(at("before-local/recipient/someone@example.com"), "");
    mark("global");
    EXPECT_EQ(check(), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Unable to open dir "
                                             "/usr/local/orv/handlers/before-local/recipient/"
                                             "someone@example.com: Not a directory")));
}

TEST_F(CheckAllOnHost, ReportsADirectoryThatCannotBeRead)
{
    mark("global");
    {
        CallFailure const failing("readdir", EIO);
        EXPECT_EQ(check(), -1);
    }
    EXPECT_THAT(reports(), ElementsAre(error("Unable to read dir "
                                             "/usr/local/orv/handlers/before-local/global: "
                                             "Input/output error")));
}

TEST_F(CheckAllOnHost, ReportsAPathThatIsTooLong)
{
    std::string const value(4100, 'v');
    EXPECT_EQ(check(value.c_str()), -1);
    EXPECT_THAT(reports(), ElementsAre(error("Path /usr/local/orv/handlers/before-local/sender/" +
                                             value + " too long to be stored in the filesystem")));
}

TEST_F(CheckAllOnHost, ReportsTheDomainOfAPathThatIsTooLong)
{
    PathOverflow const overflow(3);
    EXPECT_EQ(check(), -1);
    EXPECT_THAT(reports(),
                ElementsAre(error("Path /usr/local/orv/handlers/before-local/sender-domain/"
                                  "example.com too long to be stored in the filesystem")));
}
