#include "postfix/server/settings_manager.h"

#include "support/main_cf_test.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>

using boost::logic::indeterminate;
using boost::logic::tribool;
using orvek::mail::postfix::SettingsManager;

namespace {

constexpr char restrictions[] = "smtpd_recipient_restrictions";
constexpr char no_relay[] = "check_client_access pcre:/var/spool/postfix/orvek/no_relay.re";
constexpr char poplock[] = "hash:/var/spool/postfix/orvek/poplock";

std::string const open_list = std::string("permit, ") + no_relay + ", reject\n";
std::string const closed_list =
    std::string("permit_mynetworks, ") + no_relay + ", reject_unauth_destination\n";
std::string const users_list = std::string("permit_mynetworks, ") + no_relay +
                               ", permit_sasl_authenticated, reject_unauth_destination\n";

class SettingsManagerOnHost : public MainCfTest
{
protected:
    void SetUp() override
    {
        MainCfTest::SetUp();
        if (!HasFatalFailure())
            configure("-e mynetworks=192.0.2.0/24,198.51.100.0/24,203.0.113.0/24,10.0.0.0/8 "
                      "smtpd_recipient_restrictions=reject_unknown_client,permit");
    }

    // Changes main.cf by hand and dates it back, since postconf waits when it is new.
    void configure(std::string const& arguments) const
    {
        shellRun(postconf.real + " " + arguments + " && touch -d '-5 seconds' " + main_cf);
    }

    static std::string authRelay(tribool smtpAuth, tribool popBeforeSmtp)
    {
        return outcomeOf([&] { SettingsManager::setAuthRelay(smtpAuth, popBeforeSmtp); });
    }

    std::string limit(std::string const& value) const
    {
        configure("-e 'mailbox_size_limit=" + value + "'");
        return outcomeOf([] { std::cout << SettingsManager::getMailboxSizeLimit(); });
    }

    // Makes all writes after this many fail.
    void failBehind(int writes)
    {
        postconf.run("[ $1 = -e ] && echo x >> $dir/writes && [ $(wc -l < $dir/writes) -gt " +
                     std::to_string(writes) +
                     " ] && { echo 'postconf: fatal: no' >&2; exit 1; }\nexec $real \"$@\"");
    }

    std::string const networks = "192.0.2.0/24,198.51.100.0/24,203.0.113.0/24,10.0.0.0/8";
};

} // namespace

TEST_F(SettingsManagerOnHost, OpensTheRelayWhateverTheListHeld)
{
    EXPECT_EQ(outcomeOf(SettingsManager::setOpenRelay), "");
    EXPECT_EQ(trueSetting(restrictions), open_list);
}

TEST_F(SettingsManagerOnHost, ClosesTheRelayWhateverTheListHeld)
{
    EXPECT_EQ(outcomeOf(SettingsManager::setClosedRelay), "");
    EXPECT_EQ(trueSetting(restrictions), closed_list);
    EXPECT_EQ(outcomeOf(SettingsManager::setOpenRelay), "");
    EXPECT_EQ(outcomeOf(SettingsManager::setClosedRelay), "");
    EXPECT_EQ(trueSetting(restrictions), closed_list);
}

TEST_F(SettingsManagerOnHost, LeavesAuthenticationAndNetworksToTheOtherModes)
{
    configure(std::string("-e smtpd_sasl_auth_enable=yes mynetworks=10.0.0.0/8,") + poplock);
    EXPECT_EQ(outcomeOf(SettingsManager::setOpenRelay), "");
    EXPECT_EQ(outcomeOf(SettingsManager::setClosedRelay), "");
    EXPECT_EQ(trueSetting("smtpd_sasl_auth_enable"), "yes\n");
    EXPECT_EQ(trueSetting("mynetworks"), std::string("10.0.0.0/8,") + poplock + "\n");
}

TEST_F(SettingsManagerOnHost, BuildsTheListInThreeWrites)
{
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(outcomeOf(SettingsManager::setOpenRelay), "");
    EXPECT_EQ(postconf.journal(), std::string("-h config_directory\n"
                                              "-e smtpd_recipient_restrictions=permit\n"
                                              "-h smtpd_recipient_restrictions\n"
                                              "-e smtpd_recipient_restrictions=permit, ") +
                                      no_relay +
                                      "\n"
                                      "-h smtpd_recipient_restrictions\n"
                                      "-e smtpd_recipient_restrictions=" +
                                      open_list);
}

TEST_F(SettingsManagerOnHost, LetsUsersRelayWithSmtpAuth)
{
    EXPECT_EQ(authRelay(true, false), "");
    EXPECT_EQ(trueSetting(restrictions), users_list);
    EXPECT_EQ(trueSetting("smtpd_sasl_auth_enable"), "yes\n");
    EXPECT_EQ(trueSetting("mynetworks"), networks + "\n");
}

TEST_F(SettingsManagerOnHost, GivesTheSameTextWhenSmtpAuthIsSetTwice)
{
    EXPECT_EQ(authRelay(true, false), "");
    EXPECT_EQ(authRelay(true, false), "");
    EXPECT_EQ(trueSetting(restrictions), users_list);
}

TEST_F(SettingsManagerOnHost, ClosesTheRelayWithoutSmtpAuth)
{
    EXPECT_EQ(authRelay(true, false), "");
    EXPECT_EQ(authRelay(false, false), "");
    EXPECT_EQ(trueSetting(restrictions), closed_list);
    EXPECT_EQ(trueSetting("smtpd_sasl_auth_enable"), "no\n");
}

TEST_F(SettingsManagerOnHost, EnablesAuthThenBuildsTheListThenSetsNetworks)
{
    postconf.run("exec $real \"$@\"");
    EXPECT_EQ(authRelay(true, true), "");
    EXPECT_EQ(postconf.journal(),
              std::string("-h config_directory\n"
                          "-e smtpd_sasl_auth_enable=yes\n"
                          "-e smtpd_recipient_restrictions=permit_mynetworks\n"
                          "-h smtpd_recipient_restrictions\n"
                          "-e smtpd_recipient_restrictions=permit_mynetworks, ") +
                  no_relay +
                  "\n"
                  "-h smtpd_recipient_restrictions\n"
                  "-e smtpd_recipient_restrictions=" +
                  users_list +
                  "-h mynetworks\n"
                  "-h -d mynetworks\n"
                  "-e mynetworks=" +
                  networks + ", " + poplock + "\n");
}

TEST_F(SettingsManagerOnHost, LeavesModeAndAuthenticationAloneUnlessTold)
{
    configure("-e smtpd_sasl_auth_enable=yes");
    EXPECT_EQ(authRelay(indeterminate, true), "");
    EXPECT_EQ(trueSetting(restrictions), "reject_unknown_client,permit\n");
    EXPECT_EQ(trueSetting("smtpd_sasl_auth_enable"), "yes\n");
    EXPECT_EQ(trueSetting("mynetworks"), networks + ", " + poplock + "\n");
}

TEST_F(SettingsManagerOnHost, EndsPopBeforeSmtpWithoutAWordOnItToo)
{
    for (tribool const nothing : {tribool(false), tribool(indeterminate)}) {
        EXPECT_EQ(authRelay(indeterminate, true), "");
        EXPECT_EQ(authRelay(indeterminate, nothing), "");
        EXPECT_EQ(trueSetting("mynetworks"),
                  "192.0.2.0/24, 198.51.100.0/24, 203.0.113.0/24, 10.0.0.0/8\n");
        EXPECT_EQ(trueSetting(restrictions), "reject_unknown_client,permit\n");
    }
}

TEST_F(SettingsManagerOnHost, ListsThePoplockMapOnceAndPinsNetworks)
{
    giveAddress();
    configure("-X mynetworks");
    EXPECT_EQ(authRelay(indeterminate, true), "");
    EXPECT_EQ(authRelay(indeterminate, true), "");
    EXPECT_EQ(trueSetting("mynetworks"),
              std::string("127.0.0.0/8, 192.0.2.7/32, ") + poplock + "\n");
    EXPECT_EQ(authRelay(indeterminate, false), "");
    EXPECT_EQ(trueSetting("mynetworks"), "127.0.0.0/8, 192.0.2.7/32\n");
}

TEST_F(SettingsManagerOnHost, LeavesTheListWhereTheLastGoodWriteLeftIt)
{
    std::string const lists[] = {"reject_unknown_client,permit\n", "permit_mynetworks\n",
                                 std::string("permit_mynetworks, ") + no_relay + "\n"};
    for (int writes = 0; writes < 3; ++writes) {
        std::filesystem::remove(postconf.dir / "writes");
        configure("-e smtpd_recipient_restrictions=reject_unknown_client,permit");
        failBehind(writes);
        EXPECT_EQ(outcomeOf(SettingsManager::setClosedRelay),
                  "!PostfixConfigurationError: postconf: fatal: no\n");
        postconf.remove();
        EXPECT_EQ(trueSetting(restrictions), lists[writes]);
    }
    EXPECT_EQ(outcomeOf(SettingsManager::setClosedRelay), "");
    EXPECT_EQ(trueSetting(restrictions), closed_list);
}

TEST_F(SettingsManagerOnHost, StopsWhenAuthenticationCannotBeEnabled)
{
    failBehind(0);
    EXPECT_EQ(authRelay(true, true), "!PostfixConfigurationError: postconf: fatal: no\n");
    postconf.remove();
    EXPECT_EQ(trueSetting(restrictions), "reject_unknown_client,permit\n");
    EXPECT_EQ(trueSetting("mynetworks"), networks + "\n");
}

TEST_F(SettingsManagerOnHost, LeavesTheModeSetWhenTheNetworksCannotBe)
{
    failBehind(4);
    EXPECT_EQ(authRelay(true, true), "!PostfixConfigurationError: postconf: fatal: no\n");
    postconf.remove();
    EXPECT_EQ(trueSetting(restrictions), users_list);
    EXPECT_EQ(trueSetting("mynetworks"), networks + "\n");
}

TEST_F(SettingsManagerOnHost, ReadsTheMailboxSizeLimit)
{
    EXPECT_EQ(limit("51200000"), "51200000");
    EXPECT_EQ(limit("0"), "0");
    EXPECT_EQ(limit("-1"), "-1");
    EXPECT_EQ(limit("9223372036854775807"), "9223372036854775807");
}

TEST_F(SettingsManagerOnHost, RaisesForALimitThatIsNoWholeNumber)
{
    std::string const refusal =
        "!bad_cast: bad lexical cast: source type value could not be interpreted as target";
    for (auto const value : {"", "x", "12 34", "12k", "1.5", "9223372036854775808"})
        EXPECT_EQ(limit(value), refusal) << value;
}

TEST_F(SettingsManagerOnHost, RaisesWhatPostconfSaysOfTheLimit)
{
    postconf.run("[ $2 = config_directory ] && exec $real \"$@\"\necho 'postconf: no' >&2; exit 1");
    EXPECT_EQ(outcomeOf([] { std::cout << SettingsManager::getMailboxSizeLimit(); }),
              "!PostfixConfigurationError: postconf: no\n");
}
