#include "commands/do_main.h"

#include "command_line.h"
#include "mail/lib/accounts/mail_auth_style.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix::mailvek_commands;

namespace {

// What the handler of --features is in this program while it is set.
CommandHandler handler = nullptr;

ChildRun tool(std::initializer_list<std::string> words)
{
    return inChild([&] {
        CommandLine line(words);
        return do_main(line.argc(), line.argv());
    });
}

std::string shortUsage()
{
    return tool({"mailvek", "-h"}).out;
}

void expectUnknown(std::string const& command)
{
    auto const run = tool({"mailvek", command, "--help"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.signal, 0);
    EXPECT_EQ(run.err, "Error: invalid command " + command + "\n" + shortUsage());
    EXPECT_EQ(run.out, "");
}

ChildRun features(CommandHandler stands_in)
{
    return inChild([&] {
        handler = stands_in;
        CommandLine line({"mailvek", "--features", "--help"});
        return do_main(line.argc(), line.argv());
    });
}

} // namespace

// The linker puts __wrap_f in the place of f, which is __real_f then.
extern "C" {

int __real__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc(int argc, char** argv);

int __wrap__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc(int argc, char** argv)
{
    auto const run =
        handler ? handler : __real__ZN5orvek4mail7postfix16mailvek_commands13printFeaturesEiPPc;
    return run(argc, argv);
}

} // extern "C"

TEST(DoMain, WithoutACommandSaysSoOnStandardErrorAlone)
{
    auto const run = tool({"mailvek"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Error: no command specified\n" + shortUsage());
    EXPECT_EQ(run.out, "");
}

TEST(DoMain, WithoutAnyArgumentsAtAllSaysTheSame)
{
    EXPECT_EQ(tool({}).err, "Error: no command specified\n" + shortUsage());
}

TEST(DoMain, NamesAnUnknownCommandOnStandardErrorAlone)
{
    expectUnknown("foo");
}

TEST(DoMain, TakesAnEmptyFirstArgumentForAnUnknownCommand)
{
    expectUnknown("");
}

TEST(DoMain, MatchesNamesExactlyAndCaseSensitively)
{
    expectUnknown("--Features");
    expectUnknown("--feature");
    expectUnknown("--features ");
    expectUnknown("--features=");
}

TEST(DoMain, EndsInTheSameErrorForBytesThatAreNoUtf8AndForNewlines)
{
    expectUnknown("\xff\xfe\x80");
    expectUnknown("--features\n--help");
    expectUnknown("%s%n%p");
}

TEST(DoMain, EndsInTheSameErrorForAVeryLongArgument)
{
    expectUnknown(std::string(100000, 'a'));
}

TEST(DoMain, LooksAtTheFirstArgumentOnly)
{
    auto const run = tool({"mailvek", "foo", "--features"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "");
}

TEST(DoMain, RunsTheHandlerOfTheLongAndTheShortNameAlike)
{
    EXPECT_EQ(tool({"mailvek", "--help"}).out, tool({"mailvek", "-h"}).out);
    EXPECT_EQ(tool({"mailvek", "--help"}).status, 0);
    EXPECT_EQ(tool({"mailvek", "--help"}).err, "");
}

TEST(DoMain, RunsTheThreeHelpCommandsWhateverStandsBehindThem)
{
    for (auto const* const command : {"--help", "-h", "--help-commands", "--help-legacy"}) {
        auto const plain = tool({"mailvek", command});
        auto const followed = tool({"mailvek", command, "--bogus", "\xff"});
        EXPECT_EQ(plain.status, 0);
        EXPECT_EQ(followed.status, 0);
        EXPECT_NE(plain.out, "");
        EXPECT_EQ(plain.out, followed.out);
        EXPECT_EQ(plain.err, "");
    }
}

TEST(DoMain, PointsTheAuthenticationDatabaseAtThePostfixPathBeforeTheHandler)
{
    auto const run = features([](int, char**) {
        return std::string(mailAuthDB) == "/var/spool/postfix/orvek/passwd.db" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(DoMain, GivesTheHandlerTheCommandsNameAsArgumentZero)
{
    auto const run = features([](int argc, char** argv) {
        for (int i = 0; i < argc; ++i)
            std::cout << argv[i] << ';';
        return argv[argc] ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "--features;--help;");
}

TEST(DoMain, ReturnsWhatTheHandlerReturns)
{
    EXPECT_EQ(features([](int, char**) { return 7; }).status, 7);
    EXPECT_EQ(features([](int, char**) { return -1; }).status, 255);
}

TEST(DoMain, LetsWhatTheHandlerRaisesPass)
{
    auto const run = inChild([] {
        handler = [](int, char**) -> int { throw 5; };
        CommandLine line({"mailvek", "--features"});
        try {
            return do_main(line.argc(), line.argv());
        } catch (int raised) {
            return raised;
        }
    });
    EXPECT_EQ(run.status, 5);
}

TEST(CommandMap, HasThisHandlerBehindEachName)
{
    std::map<std::string, CommandHandler> const wanted = {
        {"--add-mailname", addMailname},
        {"--remove-mailname", removeMailname},
        {"--rename-mailname", renameMailname},
        {"--add-mailbox", addMailbox},
        {"--remove-mailbox", removeMailbox},
        {"--get-mailbox-size", getMailboxSize},
        {"--set-password", setPassword},
        {"--set-mailbox-disk-quota", setMailboxDiskQuota},
        {"--add-redirect", addRedirect},
        {"--remove-redirect", removeRedirect},
        {"--set-autoresponder", addAutoresponder},
        {"--reset-autoresponder", removeAutoresponder},
        {"--add-alias", addAlias},
        {"--remove-alias", removeAlias},
        {"--add-domain", addDomain},
        {"--remove-domain", removeDomain},
        {"--turn-on-domain", enableDomain},
        {"--turn-off-domain", disableDomain},
        {"--set-domain-disk-quota", setDomainDiskQuota},
        {"--add-badmailfrom", addBadMailFrom},
        {"--remove-badmailfrom", removeBadMailFrom},
        {"--set-bounce", setBounce},
        {"--set-catchall", setCatchAll},
        {"--set-reject", setReject},
        {"--unset-reject", removeReject},
        {"--add-whitelist", addWhiteList},
        {"--remove-whitelist", removeWhiteList},
        {"--set-maps-protection", setMapsProtection},
        {"--set-accounts-format", setAccountsFormat},
        {"--features", printFeatures},
        {"--set-max-letter-size", setMaxLetterSize},
        {"--get-max-letter-size", getMaxLetterSize},
        {"--get-mailbox-size-limit", getMailboxLimit},
        {"--list-attachments", listAttachments},
        {"--add-attachment", addAttachment},
        {"--remove-attachment", removeAttachment},
        {"--update-spf", updateSPF},
        {"--add-domain-alias", addDomainAlias},
        {"--del-domain-alias", removeDomainAlias},
        {"--rename-domain-alias", renameDomainAlias},
        {"--add-handler", addHandler},
        {"--update-handler", updateHandler},
        {"--remove-handler", removeHandler},
        {"--disable-handler", disableHandler},
        {"--enable-handler", enableHandler},
        {"--check-handler", checkHandler},
        {"--set-domain-key", setDomainKey},
        {"--remove-domain-key", removeDomainKey},
        {"--set-mail-params", setMailParams},
        {"--start-service", startService},
        {"--stop-service", stopService},
        {"--restart-service", restartService},
        {"--reload-service", reloadService},
        {"--status-service", statusService},
        {"--start-smtpd", startSMTPD},
        {"-p", startSMTPD},
        {"--stop-smtpd", stopSMTPD},
        {"-o", stopSMTPD},
        {"--restart-smtpd", restartSMTPD},
        {"-r", restartSMTPD},
        {"--status-smtpd", statusMTA},
        {"-s", statusMTA},
        {"--start-qmail-send", startMTA},
        {"-l", startMTA},
        {"--stop-qmail-send", stopMTA},
        {"-m", stopMTA},
        {"--start-maild", startIMAP},
        {"-i", startIMAP},
        {"--stop-maild", stopIMAP},
        {"-t", stopIMAP},
        {"--restart-maild", restartIMAP},
        {"-z", restartIMAP},
        {"--status-maild", statusIMAP},
        {"-e", statusIMAP},
        {"--enable-message-submission", enableSubmission},
        {"-a", enableSubmission},
        {"--disable-message-submission", disableSubmission},
        {"-b", disableSubmission},
        {"--help", usageShortCmd},
        {"-h", usageShortCmd},
        {"--help-commands", usageCommandsCmd},
        {"--help-legacy", usageLegacyCmd},
    };
    auto const map = commandMap();
    EXPECT_EQ(wanted.size(), 82U);
    EXPECT_EQ(map.size(), wanted.size());
    for (auto const& [name, its_handler] : wanted)
        EXPECT_TRUE(map.contains(name) && map.at(name) == its_handler) << name;
}
