#include "restore/entity_walker.h"

#include "mysql/mysql_error.h"
#include "support/child_run.h"
#include "walker_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvek::mail::restore;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char whitelist[] = "SELECT ip_address, ip_mask FROM smtp_poplocks WHERE lock_time IS "
                             "NULL";
constexpr char blacklist[] = "SELECT domain from badmailfrom";

class EntityWalkerOnHost : public WalkerTest
{
protected:
    // Adds one entity for each callback.
    void fill()
    {
        addDomain(1, "d.test");
        run("INSERT INTO domainaliases (dom_id, name) VALUES (1, 'a.test')");
        addMailname(1, 1, "joe", ", postbox, mail_group, redirect, redir_addr, mbox_quota",
                    ", 'true', 'true', 'true', 'j@x.test', 4096");
        run("INSERT INTO mail_aliases (mn_id, alias) VALUES (1, 'jo')");
        run("INSERT INTO mail_redir (mn_id, address) VALUES (1, 'r@x.test')");
        run("INSERT INTO smtp_poplocks (ip_address, ip_mask) VALUES ('10.0.0.0', '255.0.0.0')");
        run("INSERT INTO badmailfrom VALUES ('bad.test')");
        setParam("rbl", "true");
        setParam("rbl_server", "one.rbl;two.rbl");
        setParam("message_submission", "true");
        setParam("ml_size", "1024");
        setParam("relay", "closed");
        setParam("allow_short_pop3_names", "enabled");
    }

    std::vector<std::string> const all_calls = {
        "addDomain d.test 1",
        "setDomainCatchall d.test reject <>",
        "addDomainAlias d.test a.test 1",
        "addMailname d.test joe",
        "setMailbox d.test joe 1",
        "setMailboxQuota d.test joe 4096",
        "addMailForward d.test joe j@x.test",
        "addMailAlias d.test joe jo",
        "addMailGroup d.test joe [<r@x.test>]",
        "addWhitelistNetwork 10.0.0.0 8",
        "addBlacklistedDomain bad.test",
        "setRblServers [<one.rbl><two.rbl>]",
        "setSubmission 1",
        "setMaxMessageSize 1048576",
        "setRelay closed 0 0 30",
        "setShortNames 1",
    };
};

} // namespace

// Designators must be in the order of the fields.
TEST(EntityWalker, HasSixteenCallbacksInTheirOrder)
{
    MailsrvEntitiesCallbacks const callbacks{
        .addDomain = nullptr,
        .addDomainAlias = nullptr,
        .setDomainCatchall = nullptr,
        .addMailname = nullptr,
        .addMailForward = nullptr,
        .addMailGroup = nullptr,
        .addMailAlias = nullptr,
        .addWhitelistNetwork = nullptr,
        .addBlacklistedDomain = nullptr,
        .setRblServers = nullptr,
        .setSubmission = nullptr,
        .setMaxMessageSize = nullptr,
        .setRelay = nullptr,
        .setShortNames = nullptr,
        .setMailbox = nullptr,
        .setMailboxQuota = nullptr,
    };
    EXPECT_EQ(sizeof callbacks, 16 * sizeof(std::function<void()>));
}

TEST_F(EntityWalkerOnHost, HandsEveryEntityToItsCallbackInOrder)
{
    fill();
    EXPECT_EQ(walked(recording()), "");
    EXPECT_THAT(calls, ElementsAreArray(all_calls));
    EXPECT_EQ(progress, "");
}

TEST_F(EntityWalkerOnHost, ReadsTheSettingsInOrderAndByOneConnection)
{
    walked(recording());
    EXPECT_EQ(spy.connects.size(), 1U);
    spy.statements.erase(spy.statements.begin(), spy.statements.begin() + 5);
    EXPECT_THAT(spy.statements,
                ElementsAre(whitelist, blacklist, paramQuery("rbl"),
                            paramQuery("message_submission"), paramQuery("ml_size"),
                            paramQuery("relay"), paramQuery("allow_short_pop3_names")));
}

TEST_F(EntityWalkerOnHost, RunsTheQueryForDomainsWithoutCallbacksAndCallsNothing)
{
    fill();
    run("DELETE FROM domains");
    EXPECT_EQ(walked({}), "");
    ASSERT_EQ(spy.statements.size(), panel_set_up.size() + 1);
    EXPECT_THAT(spy.statements.back(), HasSubstr(" FROM domains d, DomainServices s, "));
}

TEST_F(EntityWalkerOnHost, ReachesTheEndWhenEveryCallbackRaises)
{
    fill();
    raising.insert(all_calls.begin(), all_calls.end());
    EXPECT_EQ(walked(recording()), "");
    EXPECT_THAT(calls, ElementsAreArray(all_calls));
}

TEST_F(EntityWalkerOnHost, TakesWhateverACallbackRaises)
{
    fill();
    MailsrvEntitiesCallbacks callbacks = recording();
    callbacks.setRblServers = [](MailsrvEntitiesCallbacks::List) { throw 7; };
    callbacks.setSubmission = [](bool) { throw orvek::mysql::mError("of its own"); };
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    EXPECT_EQ(walked(callbacks), "");
    EXPECT_THAT(progress, HasSubstr(" restoring the RBL servers configuration... failed (unknown "
                                    "error), ignored\n"
                                    " restoring the submission service configuration... failed (of "
                                    "its own), ignored\n"));
    EXPECT_EQ(calls.back(), "setShortNames 1");
}

TEST_F(EntityWalkerOnHost, TellsOfItsProgress)
{
    fill();
    raising = {"addBlacklistedDomain bad.test"};
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    EXPECT_EQ(walked(recording()), "");
    EXPECT_EQ(progress, "Restoring Mail Server Entities from Orvek DB:\n"
                        " executing the central domain restoration cycle:\n"
                        "  restoring basic records for d.test... done\n"
                        "  restoring catchall/reject settings for d.test... done\n"
                        "  restoring domain aliases for d.test... done\n"
                        "  executing mailnames restoration cycle for d.test:\n"
                        "   registering mailname joe... done\n"
                        "   registering mailbox for joe... done\n"
                        "   restoring mailbox quota settings for joe... done\n"
                        "   restoring mail forwarding for joe... done\n"
                        "    restoring mail aliases for joe... done\n"
                        "   executing mail group forwarding cycle for joe... done\n"
                        " executing the whitelist networks restoration cycle... done\n"
                        " executing the blacklisted domains restoration cycle... failed (boom at "
                        "addBlacklistedDomain bad.test), ignored\n"
                        " restoring the RBL servers configuration... done\n"
                        " restoring the submission service configuration... done\n"
                        " restoring maximal message size limit... done\n"
                        " restoring SMTP Relaying and Authentication options... done\n"
                        " restoring short names authentication option (if applicable)... done\n");
}

TEST_F(EntityWalkerOnHost, TellsNothingOfStepsWithoutACallback)
{
    setenv("ORVEK_INSTALLER_DEBUG", "yes", 1);
    walked({});
    EXPECT_EQ(progress, "Restoring Mail Server Entities from Orvek DB:\n"
                        " executing the central domain restoration cycle:\n");
}

TEST_F(EntityWalkerOnHost, RaisesWhenThereIsNoDatabase)
{
    panel.stop();
    ChildRun const run = inChild([&] {
        MailsrvEntitiesCallbacks callbacks = recording();
        setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
        try {
            walkMailServerEntities(callbacks);
        } catch (orvek::mysql::mError const& e) {
            std::cout << e.what();
            return 3;
        }
        return 0;
    });
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, StartsWith("Unable to connect to Orvek Database: "));
    EXPECT_THAT(run.out, testing::EndsWith("connection failed"));
    EXPECT_THAT(run.err, testing::Not(HasSubstr("Restoring Mail Server Entities")));
}

TEST_F(EntityWalkerOnHost, ReachesTheEndWithoutAnyOneTable)
{
    fill();
    for (char const* const table :
         {"domains", "DomainServices", "Parameters", "domainaliases", "Limits", "mail",
          "mail_aliases", "mail_redir", "badmailfrom", "smtp_poplocks"}) {
        WithoutTable const without(panel, table);
        calls.clear();
        EXPECT_THAT(walked(recording()), HasSubstr(tableMissing(table) + ", ignored\n"));
        ASSERT_FALSE(calls.empty());
        EXPECT_EQ(calls.back(), "setShortNames 1");
    }
}

TEST_F(EntityWalkerOnHost, ReachesTheEndOnAConnectionThatIsKilled)
{
    fill();
    spy.before = [&](int number) {
        if (number == static_cast<int>(panel_set_up.size()) + 1)
            panel.killConnections();
    };
    std::string const err = walked(recording());
    EXPECT_THAT(err, StartsWith("Warning: MySQL Query error on top Domains cycle: Mysql error "));
    EXPECT_THAT(calls, ElementsAre("setRblServers []", "setSubmission 0", "setRelay auth 1 0 30",
                                   "setShortNames 0"));
}

TEST_F(EntityWalkerOnHost, WhitelistsNetworksByTheirPrefix)
{
    run("INSERT INTO smtp_poplocks (ip_address, ip_mask, lock_time) VALUES "
        "('10.1.1.1', '255.255.255.255', NULL), ('10.2.0.0', '16', NULL), "
        "('10.3.3.0', '4294967040', NULL), ('0.0.0.0', '0', NULL), "
        "('10.4.0.0', '255.0.255.0', NULL), ('10.5.0.0', '33', NULL), "
        "('10.6.6.6', '32', '2026-01-01 00:00:00')");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addWhitelistNetwork), "");
    EXPECT_THAT(calls,
                ElementsAre("addWhitelistNetwork 10.1.1.1 32", "addWhitelistNetwork 10.2.0.0 16",
                            "addWhitelistNetwork 10.3.3.0 24", "addWhitelistNetwork 0.0.0.0 0"));
}

TEST_F(EntityWalkerOnHost, PassesANetworkOverWhoseMaskIsNone)
{
    run("INSERT INTO smtp_poplocks (ip_address, ip_mask) VALUES ('10.1.1.1', ''), "
        "('10.2.2.2', '32')");
    EXPECT_EQ(
        walkedWith(&MailsrvEntitiesCallbacks::addWhitelistNetwork),
        "Warning: MySQL Fetch Row Error on White IPs/Networks cycle: bad lexical cast: source "
        "type value could not be interpreted as target, row ignored\n");
    EXPECT_THAT(calls, ElementsAre("addWhitelistNetwork 10.2.2.2 32"));
}

TEST_F(EntityWalkerOnHost, PassesTheOtherNetworksOnWhenOneIsRefused)
{
    run("INSERT INTO smtp_poplocks (ip_address, ip_mask) VALUES ('10.1.1.1', '32'), "
        "('10.2.2.2', '32')");
    raising = {"addWhitelistNetwork 10.1.1.1 32"};
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addWhitelistNetwork), "");
    EXPECT_EQ(calls.size(), 2U);
}

TEST_F(EntityWalkerOnHost, WarnsOfAWhitelistThatCannotBeRead)
{
    WithoutTable const without(panel, "smtp_poplocks");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addWhitelistNetwork),
              queryWarning("White IPs/Networks cycle", "smtp_poplocks"));
}

TEST_F(EntityWalkerOnHost, ProcessesNoWhitelistWithoutACallback)
{
    MailsrvEntitiesCallbacks callbacks;
    processWhiteLists(callbacks, conn());
    EXPECT_THAT(spy.statements, IsEmpty());
}

TEST_F(EntityWalkerOnHost, BlacklistsDomainsInUnicode)
{
    run("INSERT INTO badmailfrom VALUES ('a.test'), ('xn--bcher-kva.test')");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addBlacklistedDomain), "");
    EXPECT_THAT(calls, ElementsAre("addBlacklistedDomain a.test", "addBlacklistedDomain b\xc3\xbc"
                                                                  "cher.test"));
}

TEST_F(EntityWalkerOnHost, PassesABlackDomainOverWhoseNameIsNoUnicode)
{
    spy.replace(blacklist, "SELECT _binary X'FF2E74657374' AS domain UNION ALL SELECT 'a.test'");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addBlacklistedDomain),
              "Warning: unable to de-IDN'ize domain name '\xff.test': Iconv error, ignored\n");
    EXPECT_THAT(calls, ElementsAre("addBlacklistedDomain a.test"));
}

TEST_F(EntityWalkerOnHost, WarnsOfABlacklistThatCannotBeRead)
{
    {
        WithoutTable const without(panel, "badmailfrom");
        EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addBlacklistedDomain),
                  queryWarning("Blacklisted Domains cycle", "badmailfrom"));
    }
    spy.replace(blacklist, "SELECT 'a.test' AS name");
    EXPECT_EQ(walkedWith(&MailsrvEntitiesCallbacks::addBlacklistedDomain),
              rowWarning("Blacklisted Domains cycle", "No field named domain in result set"));
    EXPECT_THAT(calls, IsEmpty());
}
