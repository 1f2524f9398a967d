#include "commands/handlers.h"

#include "command_line.h"
#include "commands/command_table.h"
#include "commands/do_main.h"
#include "commands/program_options_helper.h"
#include "support/child_run.h"
#include "support/handler_store_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

using namespace orvek::mail::postfix::mailvek_commands;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

// The six commands with their handlers. The first two take a handler's full description.
std::pair<char const*, CommandHandler> const commands[] = {
    {"--add-handler", addHandler},       {"--update-handler", updateHandler},
    {"--remove-handler", removeHandler}, {"--disable-handler", disableHandler},
    {"--enable-handler", enableHandler}, {"--check-handler", checkHandler},
};

bool describesWhole(CommandHandler handler)
{
    return handler == addHandler || handler == updateHandler;
}

ChildRun run(CommandHandler handler, std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        return handler(line.argc(), line.argv());
    });
}

using HandlerCommandsOnHost = HandlerStoreTest;

} // namespace

TEST(HandlerCommands, AreInTheCommandMapUnderTheirNames)
{
    auto const map = commandMap();
    for (auto const& [name, handler] : commands)
        EXPECT_EQ(map.at(name), handler) << name;
}

TEST(HandlerCommands, ShowTheirOwnUsageWhenAskedForHelp)
{
    for (auto const& [name, handler] : commands) {
        auto const help = run(handler, {name, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.err, "");
        std::string const summary = commandNamed(name).summary;
        EXPECT_THAT(help.out, StartsWith(summary + "\nUsage: " + commandNamed(name).usage_line +
                                         "\nAllowed options to " + summary + ":\n"));
    }
}

TEST(HandlerCommands, TakeTheOptionsThatTheyNeed)
{
    std::string const naming = "  --handler-name arg      handler name (mandatory)\n"
                               "  --handler-type arg      handler type (global|sender|recipient|"
                               "sender-domain|r\n"
                               "                          ecipient-domain) (mandatory)\n"
                               "  --handler-type-name arg handler type name\n";
    std::string const whole = "  --executable arg        executable (mandatory)\n"
                              "  --context arg           context (mandatory)\n";
    std::string const hook = "  --hook arg              hook point (before-queue|before-local|"
                             "before-remote) \n"
                             "                          (mandatory)\n";
    std::string const priority = "  --priority arg          handler priority (mandatory)\n";
    std::string const help = "  -h [ --help ]           displays this help message\n";
    for (auto const& [name, handler] : commands) {
        std::string const options = describesWhole(handler)
                                        ? naming + whole + hook + priority + help
                                        : naming + hook + help;
        EXPECT_THAT(run(handler, {name, "-h"}).out, HasSubstr(":\n" + options + "\n")) << name;
    }
}

TEST(HandlerCommands, NameTheLastOfTheirMandatoryOptionsThatIsMissing)
{
    for (auto const& [name, handler] : commands) {
        auto const none = run(handler, {name});
        std::string const last = describesWhole(handler) ? "priority" : "hook";
        EXPECT_EQ(none.status, 1);
        EXPECT_EQ(none.err, "mandatory option \"--" + last + "\" is not specified\n");
        EXPECT_THAT(none.out, HasSubstr(std::string("Usage: ") + name));

        auto const some = run(handler, {name, "--priority=1", "--hook=x", "--context=x",
                                        "--executable=x", "--handler-name=x"});
        std::string const missing = "mandatory option \"--handler-type\" is not specified\n";
        EXPECT_EQ(some.status, 1);
        if (describesWhole(handler))
            EXPECT_EQ(some.err, missing);
        else
            EXPECT_THAT(some.err, HasSubstr("priority")) << "an option that it does not have";
    }
}

TEST(HandlerCommands, RaiseWhenTheTypeNeedsANameThatIsMissing)
{
    for (auto const& [name, handler] : commands) {
        for (std::string const type : {"sender", "Global", "everyone", ""}) {
            CommandLine line(
                describesWhole(handler)
                    ? std::initializer_list<std::string>{name, "--handler-name=x", "--handler-type",
                                                         type, "--executable=x", "--context=x",
                                                         "--hook=x", "--priority=1"}
                    : std::initializer_list<std::string>{name, "--handler-name=x", "--handler-type",
                                                         type, "--hook=x"});
            try {
                handler(line.argc(), line.argv());
                ADD_FAILURE() << name << " raised nothing";
            } catch (MissingMandatoryOption const& e) {
                EXPECT_STREQ(e.what(), "mandatory option \"--handler-type-name\" is not specified");
            }
        }
    }
}

TEST_F(HandlerCommandsOnHost, ReportASkippedTargetAsAWarning)
{
    Report const skipped(4, "Handler x for recipient someone@example.com does not exist in queue "
                            "before-local");
    for (auto const& [name, handler] : commands) {
        bool const whole = describesWhole(handler);
        if (handler == checkHandler)
            continue;
        if (handler == addHandler)
            descriptor("10-x-a1B2c3");
        CommandLine line(
            whole ? std::initializer_list<std::string>{name, "--handler-name=x",
                                                       "--handler-type=recipient",
                                                       "--handler-type-name=someone@example.com",
                                                       "--executable=/bin/true", "--context=x",
                                                       "--hook=before-local", "--priority=1"}
                  : std::initializer_list<std::string>{
                        name, "--handler-name=x", "--handler-type=recipient",
                        "--handler-type-name=someone@example.com", "--hook=before-local"});
        reports().clear();
        EXPECT_EQ(handler(line.argc(), line.argv()), 0) << name;
        EXPECT_THAT(reports(), ElementsAre(skipped)) << name;
        std::filesystem::remove_all(info("10-x-a1B2c3"));
    }
}
