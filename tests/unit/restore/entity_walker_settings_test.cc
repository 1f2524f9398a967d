#include "restore/entity_walker_settings.h"

#include "walker_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

using namespace orvek::mail::restore;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class WalkerSettingsOnHost : public WalkerTest
{
protected:
    // The relay setting that results from the mode. Expects these warnings.
    std::string relay(std::string const& mode, std::string const& warnings = "")
    {
        setParam("relay", mode);
        EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setRelay), warnings);
        return calls.size() == 1 ? calls[0] : "called " + std::to_string(calls.size());
    }
};

} // namespace

TEST_F(WalkerSettingsOnHost, SplitsTheRblServers)
{
    setParam("rbl", "true");
    setParam("rbl_server", " a.rbl;b.rbl, c.rbl\td.rbl;;e.rbl ");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setRblServers), "");
    EXPECT_THAT(calls, ElementsAre("setRblServers [<a.rbl><b.rbl><c.rbl><d.rbl><e.rbl>]"));
    EXPECT_EQ(spy.statements.back(), paramQuery("rbl_server"));
}

TEST_F(WalkerSettingsOnHost, PassesAnEmptyListOnWithoutRblServers)
{
    setParam("rbl_server", "a.rbl");
    walkedWith(&MailsrvEntitiesCallbacks::setRblServers);
    EXPECT_THAT(calls, ElementsAre("setRblServers []"));
    setParam("rbl", "false");
    walkedWith(&MailsrvEntitiesCallbacks::setRblServers);
    EXPECT_THAT(calls, ElementsAre("setRblServers []"));
    setParam("rbl", "true");
    setParam("rbl_server", " ;, ");
    walkedWith(&MailsrvEntitiesCallbacks::setRblServers);
    EXPECT_THAT(calls, ElementsAre("setRblServers []"));
}

TEST_F(WalkerSettingsOnHost, LeavesTheRblServersAloneThatCannotBeRead)
{
    setParam("rbl", "true");
    spy.replace(paramQuery("rbl_server"), "SELECT 'a.rbl' AS value");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setRblServers),
              "Warning: MySQL Error on RBL Servers query: No field named val in result set, "
              "ignored\n");
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(WalkerSettingsOnHost, SetsSubmissionByThePanel)
{
    walkedWith(&MailsrvEntitiesCallbacks::setSubmission);
    EXPECT_THAT(calls, ElementsAre("setSubmission 0"));
    setParam("message_submission", "true");
    walkedWith(&MailsrvEntitiesCallbacks::setSubmission);
    EXPECT_THAT(calls, ElementsAre("setSubmission 1"));
}

TEST_F(WalkerSettingsOnHost, SetsTheMessageSizeInBytes)
{
    for (auto const& [stored, bytes] :
         {std::pair("1024", "1048576"), std::pair("0", "0"), std::pair("-1", "-1024"),
          std::pair("9007199254740991", "9223372036854774784")}) {
        setParam("ml_size", stored);
        EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setMaxMessageSize), "");
        EXPECT_THAT(calls, ElementsAre(std::string("setMaxMessageSize ") + bytes));
    }
}

TEST_F(WalkerSettingsOnHost, WarnsOfAMessageSizeThatIsNone)
{
    for (char const* const stored : {"", "10M", "1.5", "9007199254740992"}) {
        setParam("ml_size", stored);
        EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setMaxMessageSize),
                  std::string("Warning: invalid Maximal Message Size ") + stored +
                      " stored in Orvek DB, ignored\n");
        EXPECT_THAT(calls, IsEmpty());
    }
}

TEST_F(WalkerSettingsOnHost, RelaysForAllOrNoneWhateverTheLockTimeIs)
{
    setParam("poplock_time", "99");
    setParam("disable_smtp_auth", "0");
    setParam("disable_pop_auth", "0");
    EXPECT_EQ(relay("open"), "setRelay open 0 0 30");
    EXPECT_EQ(relay("closed"), "setRelay closed 0 0 30");
}

TEST_F(WalkerSettingsOnHost, RelaysBySmtpAuthenticationForAnyOtherText)
{
    setParam("disable_smtp_auth", "1");
    EXPECT_EQ(relay(""), "setRelay auth 1 0 30");
    EXPECT_EQ(relay("Open"), "setRelay auth 1 0 30");
    EXPECT_EQ(relay("authenticated"), "setRelay auth 1 0 30");
    run("DELETE FROM misc");
    walkedWith(&MailsrvEntitiesCallbacks::setRelay);
    EXPECT_THAT(calls, ElementsAre("setRelay auth 1 0 30"));
}

TEST_F(WalkerSettingsOnHost, RelaysByTheAuthenticationThatIsNotDisabled)
{
    setParam("poplock_time", "45");
    setParam("disable_smtp_auth", "0");
    setParam("disable_pop_auth", "0");
    EXPECT_EQ(relay("auth"), "setRelay auth 1 1 45");
    setParam("disable_smtp_auth", "2");
    EXPECT_EQ(relay("auth"), "setRelay auth 0 1 45");
    setParam("disable_pop_auth", "-1");
    EXPECT_EQ(relay("auth"), "setRelay auth 0 0 30");
    EXPECT_EQ(spy.statements.back(), paramQuery("disable_pop_auth"));
}

TEST_F(WalkerSettingsOnHost, WarnsOfRelayOptionsThatAreNoNumbers)
{
    setParam("disable_smtp_auth", "yes");
    setParam("disable_pop_auth", "0");
    setParam("poplock_time", "1h");
    EXPECT_EQ(relay("auth",
                    "Warning: invalid SMTP Auth Disable flag value 'yes' stored in Orvek DB, "
                    "ignored\n"
                    "Warning: invalid POP3 lock time value 1h stored in Orvek DB, ignored\n"),
              "setRelay auth 1 1 30");
    setParam("disable_smtp_auth", "1");
    setParam("disable_pop_auth", "no");
    EXPECT_EQ(relay("auth", "Warning: invalid POP3 Auth Disable flag value 'no' stored in Orvek "
                            "DB, ignored\n"),
              "setRelay auth 0 0 30");
    setParam("disable_pop_auth", "0");
    setParam("poplock_time", "32768");
    EXPECT_EQ(
        relay("auth", "Warning: invalid POP3 lock time value 32768 stored in Orvek DB, ignored\n"),
        "setRelay auth 0 1 30");
}

TEST_F(WalkerSettingsOnHost, WarnsOfRelayOptionsThatThePanelDoesNotHave)
{
    std::string const no_smtp_flag =
        "Warning: invalid SMTP Auth Disable flag value '' stored in Orvek DB, ignored\n";
    EXPECT_EQ(relay("auth", no_smtp_flag + "Warning: invalid POP3 Auth Disable flag value '' "
                                           "stored in Orvek DB, ignored\n"),
              "setRelay auth 1 0 30");
    setParam("disable_pop_auth", "0");
    EXPECT_EQ(
        relay("auth", no_smtp_flag +
                          "Warning: invalid POP3 lock time value  stored in Orvek DB, ignored\n"),
        "setRelay auth 1 1 30");
}

TEST_F(WalkerSettingsOnHost, AllowsShortNamesWhenTheyAreEnabled)
{
    for (auto const& [stored, call] :
         {std::pair("enabled", "setShortNames 1"), std::pair("disabled", "setShortNames 0"),
          std::pair("true", "setShortNames 0"), std::pair("", "setShortNames 0")}) {
        setParam("allow_short_pop3_names", stored);
        EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::setShortNames), "");
        EXPECT_THAT(calls, ElementsAre(call));
    }
}

TEST_F(WalkerSettingsOnHost, WarnsOfEachSettingThatCannotBeRead)
{
    WithoutTable const without(panel, "misc");
    // Only these statements, because setting up the connection reads that table too.
    for (char const* const name :
         {"rbl", "message_submission", "ml_size", "relay", "allow_short_pop3_names"})
        spy.replace(paramQuery(name), "SELECT val FROM nowhere");
    spy.replace(panel_set_up[2], "SELECT ''");
    std::string warning =
        "Warning: MySQL Error on Mail Authentication Type query: " + tableMissing("nowhere") +
        ", ignored\n";
    EXPECT_EQ(walked(recording()),
              warning + warning + warning +
                  "Warning: invalid Maximal Message Size  stored in Orvek DB, ignored\n" + warning +
                  warning);
    EXPECT_THAT(calls, ElementsAre("setRblServers []", "setSubmission 0", "setRelay auth 1 0 30",
                                   "setShortNames 0"));
}
