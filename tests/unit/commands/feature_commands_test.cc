#include "commands/handlers.h"

#include "command_line.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

ChildRun report(std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        return printFeatures(line.argc(), line.argv());
    });
}

} // namespace

TEST(PrintFeatures, Prints58AssignmentsAndReturnsZero)
{
    auto const run = report({"--features"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 58);
    EXPECT_EQ(run.err, "");
}

TEST(PrintFeatures, BeginsWithTheFirstAssignmentAndEndsWithTheLast)
{
    std::string const first = "$features['MailName_SetName'] = true;\n";
    std::string const last = "\n$features['Message_Submission_Dedicated_IP'] = false;\n";
    std::string const text = report({"--features"}).out;
    EXPECT_EQ(text.find(first), 0U);
    EXPECT_EQ(text.rfind(last), text.size() - last.size());
}

TEST(PrintFeatures, QuotesTheServersAndNotTheTruthValues)
{
    std::string const text = report({"--features"}).out;
    EXPECT_NE(text.find("\n$features['SMTP_Server'] = \"Postfix\";\n"
                        "$features['IMAP_POP3_Server'] = \"Courier-IMAP\";\n"
                        "$features['SMTP_Server_package'] = \"postfix\";\n"
                        "$features['IMAP_POP3_Server_package'] = \"courier-imap\";\n"),
              std::string::npos);
}

TEST(PrintFeatures, SaysFalseFourTimes)
{
    std::string const text = report({"--features"}).out;
    for (auto const* const key : {"Relay_AuthType_POP3", "AccountsFormat_Simple",
                                  "AccountsFormat_Both", "Message_Submission_Dedicated_IP"})
        EXPECT_NE(text.find(std::string("$features['") + key + "'] = false;\n"), std::string::npos);
    size_t count = 0;
    for (size_t at = text.find("= false;"); at != std::string::npos;
         at = text.find("= false;", at + 1))
        ++count;
    EXPECT_EQ(count, 4U);
}

TEST(PrintFeatures, IgnoresItsArguments)
{
    EXPECT_EQ(report({"--features", "--help"}).out, report({"--features"}).out);
    EXPECT_EQ(report({"--features", "\xff", ""}).out, report({"--features"}).out);
}

TEST(PrintFeatures, SucceedsEvenWhenNothingCouldBePrinted)
{
    auto const run = inChild([] {
        fclose(stdout);
        CommandLine line({"--features"});
        return printFeatures(line.argc(), line.argv());
    });
    EXPECT_EQ(run.status, 0);
}
