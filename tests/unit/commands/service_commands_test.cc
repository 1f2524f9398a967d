#include "commands/handlers.h"

#include "command_line.h"
#include "commands/do_main.h"
#include "support/child_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace orvek::mail::postfix::mailvek_commands;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

struct ComponentCommand
{
    char const* name;
    CommandHandler handler;
    char const* summary;
};

ComponentCommand const with_components[] = {
    {"--start-service", startService, "start a service"},
    {"--stop-service", stopService, "stop a service"},
    {"--restart-service", restartService, "restart a service"},
    {"--reload-service", reloadService, "reload a service"},
    {"--status-service", statusService, "get service status"},
};

struct OldCommand
{
    char const* name;
    char const* letter;
    CommandHandler handler;
};

OldCommand const old_commands[] = {
    {"--start-smtpd", "-p", startSMTPD},
    {"--stop-smtpd", "-o", stopSMTPD},
    {"--restart-smtpd", "-r", restartSMTPD},
    {"--status-smtpd", "-s", statusMTA},
    {"--start-qmail-send", "-l", startMTA},
    {"--stop-qmail-send", "-m", stopMTA},
    {"--start-maild", "-i", startIMAP},
    {"--stop-maild", "-t", stopIMAP},
    {"--restart-maild", "-z", restartIMAP},
    {"--status-maild", "-e", statusIMAP},
    {"--enable-message-submission", "-a", enableSubmission},
    {"--disable-message-submission", "-b", disableSubmission},
};

ChildRun run(CommandHandler handler, std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        return handler(line.argc(), line.argv());
    });
}

} // namespace

TEST(ServiceCommands, AreInTheCommandMapUnderTheirNames)
{
    auto const map = commandMap();
    for (ComponentCommand const& command : with_components)
        EXPECT_EQ(map.at(command.name), command.handler) << command.name;
    for (OldCommand const& command : old_commands) {
        EXPECT_EQ(map.at(command.name), command.handler) << command.name;
        EXPECT_EQ(map.at(command.letter), command.handler) << command.letter;
    }
}

TEST(ServiceCommands, ShowTheirOwnUsageWhenAskedForHelp)
{
    for (auto const& [name, handler, summary] : with_components) {
        auto const help = run(handler, {name, "--mail-component=pop3", "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_EQ(help.err, "");
        std::string usage = summary;
        usage.append("\nUsage: ").append(name);
        usage.append(" [--mail-component={mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|all}]"
                     " [--mail-component=...]\nAllowed options to ");
        usage.append(summary).append(":\n");
        EXPECT_THAT(help.out, StartsWith(usage));
    }
}

TEST(ServiceCommands, DescribeTheirOneOption)
{
    std::string words = run(startService, {"--start-service", "-h"}).out;
    for (size_t end = 0; (end = words.find_first_of(" \n", end)) != std::string::npos;)
        words.erase(end, 1);
    EXPECT_THAT(words, HasSubstr("--mail-componentargmailcomponentname"
                                 "(mta|smtp|smtps|submission|pop3|imap|pop3s|imaps|all)"
                                 "(defaultall)-h"));
}

TEST(ServiceCommands, RefuseWhatTheyDoNotKnow)
{
    for (auto const& [name, handler, summary] : with_components) {
        auto const component = run(handler, {name, "--mail-component=mta", "--mail-component=ftp"});
        EXPECT_EQ(component.status, 1);
        EXPECT_THAT(component.err, HasSubstr("unknown component ftp"));
        EXPECT_THAT(component.out, HasSubstr(std::string("Usage: ") + name + " "));
        EXPECT_EQ(run(handler, {name, "--mail-component="}).status, 1);
        EXPECT_EQ(run(handler, {name, "--all"}).status, 1);
    }
}
