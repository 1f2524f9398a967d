#include "restore/entity_walker.h"

#include "walker_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace orvek::mail::restore;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class MailnamesCycleOnHost : public WalkerTest
{
protected:
    static constexpr char columns[] = ", postbox, mail_group, redirect, redir_addr, mbox_quota";

    // Standard error of the cycle over domain 1.
    std::string processed(MailsrvEntitiesCallbacks callbacks)
    {
        CapturedStreams const streams;
        processMailnamesCycle("1", "d.test", callbacks, conn());
        EXPECT_EQ(streams.out(), streams.err());
        progress = streams.log();
        return streams.err();
    }
    void addMailbox(int id, std::string const& name, std::string const& quota)
    {
        addMailname(id, 1, name, ", postbox, mbox_quota", ", 'true', " + quota);
    }
    void setDefaultQuota(std::string const& value)
    {
        addDomain(1, "d.test");
        run("INSERT INTO Limits VALUES (1, 'mbox_quota', " + value + ")");
    }
};

constexpr char default_quota[] = "SELECT l.value AS value  FROM domains d, Limits l  WHERE "
                                 "d.id=1    AND d.limits_id=l.id    AND l.limit_name='mbox_quota'";
constexpr char mailnames[] = "SELECT id, mail_name, postbox, mail_group, redirect, redir_addr, "
                             "mbox_quota FROM mail  WHERE dom_id=1";

} // namespace

TEST_F(MailnamesCycleOnHost, TakesAllStepsOfAMailnameInOrder)
{
    addMailname(7, 1, "joe", columns, ", 'true', 'true', 'true', 'j@x.test', 4096");
    run("INSERT INTO mail_aliases (mn_id, alias) VALUES (7, 'joseph'), (7, 'jo'), (8, 'other')");
    run("INSERT INTO mail_redir (mn_id, address) VALUES (7, 'a@x.test'), (7, 'b@x.test'), "
        "(8, 'other')");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(calls,
                ElementsAre("addMailname d.test joe", "setMailbox d.test joe 1",
                            "setMailboxQuota d.test joe 4096", "addMailForward d.test joe j@x.test",
                            "addMailAlias d.test joe joseph", "addMailAlias d.test joe jo",
                            "addMailGroup d.test joe [<a@x.test><b@x.test>]"));
    EXPECT_THAT(spy.statements, ElementsAre(default_quota, mailnames,
                                            "SELECT alias FROM mail_aliases WHERE mn_id=7",
                                            "SELECT address FROM mail_redir WHERE mn_id=7"));
}

TEST_F(MailnamesCycleOnHost, LeavesOutWhatAMailnameDoesNotHave)
{
    addMailname(7, 1, "joe", ", redir_addr, mbox_quota", ", 'j@x.test', 4096");
    run("INSERT INTO mail_redir (mn_id, address) VALUES (7, 'a@x.test')");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(calls, ElementsAre("addMailname d.test joe", "setMailbox d.test joe 0"));
}

TEST_F(MailnamesCycleOnHost, PassesTheMailnamesOfItsDomainAlone)
{
    addMailname(1, 1, "a");
    addMailname(2, 2, "b");
    addMailname(3, 1, "c");
    processed(recording());
    EXPECT_THAT(callsOf("addMailname"),
                ElementsAre("addMailname d.test a", "addMailname d.test c"));
}

TEST_F(MailnamesCycleOnHost, DoesWithoutEachCallbackThatIsEmpty)
{
    addMailname(7, 1, "joe", columns, ", 'true', 'true', 'true', 'j@x.test', 4096");
    run("INSERT INTO mail_aliases (mn_id, alias) VALUES (7, 'jo')");
    run("INSERT INTO mail_redir (mn_id, address) VALUES (7, 'a@x.test')");
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    EXPECT_EQ(processed({}), "");
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_EQ(progress, "");
    EXPECT_THAT(spy.statements, ElementsAre(mailnames));
}

TEST_F(MailnamesCycleOnHost, AsksForTheDefaultQuotaOnlyToSetQuotas)
{
    MailsrvEntitiesCallbacks callbacks;
    callbacks.setMailboxQuota = recording().setMailboxQuota;
    processed(callbacks);
    EXPECT_THAT(spy.statements, ElementsAre(default_quota, mailnames));
}

TEST_F(MailnamesCycleOnHost, GivesAMailboxWithoutAQuotaThatOfItsDomain)
{
    setDefaultQuota("1048576");
    addMailbox(1, "a", "-1");
    addMailbox(2, "b", "77");
    addMailbox(3, "c", "0");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setMailboxQuota"),
                ElementsAre("setMailboxQuota d.test a 1048576", "setMailboxQuota d.test b 77",
                            "setMailboxQuota d.test c 0"));
}

TEST_F(MailnamesCycleOnHost, PassesAnUnsetQuotaOnWithoutADefault)
{
    addDomain(1, "d.test");
    addMailbox(1, "joe", "-1");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setMailboxQuota"), ElementsAre("setMailboxQuota d.test joe -1"));
}

TEST_F(MailnamesCycleOnHost, PassesQuotasBeyondTheIntegersOfThirtyTwoBits)
{
    addMailbox(1, "joe", "9223372036854775807");
    processed(recording());
    EXPECT_THAT(callsOf("setMailboxQuota"),
                ElementsAre("setMailboxQuota d.test joe 9223372036854775807"));
}

TEST_F(MailnamesCycleOnHost, WarnsOfADefaultQuotaThatIsNoNumber)
{
    addMailbox(1, "joe", "-1");
    spy.replace(default_quota, "SELECT '10M' AS value");
    EXPECT_EQ(processed(recording()), "Warning: invalid default mailbox quota value '10M' stored "
                                      "in Orvek DB, ignored\n");
    EXPECT_THAT(callsOf("setMailboxQuota"), ElementsAre("setMailboxQuota d.test joe -1"));
}

TEST_F(MailnamesCycleOnHost, WarnsOfADefaultQuotaThatCannotBeRead)
{
    addMailbox(1, "joe", "-1");
    WithoutTable const without(panel, "Limits");
    EXPECT_EQ(processed(recording()), queryWarning("Default Mailbox Quota for d.test", "Limits"));
    EXPECT_THAT(callsOf("setMailboxQuota"), ElementsAre("setMailboxQuota d.test joe -1"));
}

TEST_F(MailnamesCycleOnHost, TakesTheDefaultForAQuotaWithoutNumber)
{
    setDefaultQuota("500");
    spy.replace(mailnames, "SELECT 1 AS id, 'joe' AS mail_name, 'true' AS postbox, 'false' AS "
                           "mail_group, 'false' AS redirect, NULL AS redir_addr, '1k' AS mbox_quota"
                           " UNION ALL SELECT 2, 'kim', 'true', 'false', 'false', NULL, NULL");
    EXPECT_EQ(processed(recording()),
              "Warning: invalid mailbox quota value '1k' stored in Orvek DB, ignored\n"
              "Warning: invalid mailbox quota value '' stored in Orvek DB, ignored\n");
    EXPECT_THAT(callsOf("setMailboxQuota"),
                ElementsAre("setMailboxQuota d.test joe 500", "setMailboxQuota d.test kim 500"));
}

TEST_F(MailnamesCycleOnHost, SkipsTheQuotaOfAMailboxThatIsOff)
{
    spy.replace(mailnames,
                "SELECT 1 AS id, 'joe' AS mail_name, 'false' AS postbox, 'false' AS "
                "mail_group, 'false' AS redirect, NULL AS redir_addr, 'x' AS mbox_quota");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setMailboxQuota"), IsEmpty());
}

TEST_F(MailnamesCycleOnHost, TakesTheRestOfAMailnameWhenACallbackRaises)
{
    addMailname(7, 1, "joe", columns, ", 'true', 'true', 'true', 'j@x.test', 4096");
    addMailname(8, 1, "next");
    run("INSERT INTO mail_aliases (mn_id, alias) VALUES (7, 'a'), (7, 'b')");
    processed(recording());
    std::vector<std::string> const undisturbed = calls;
    calls.clear();
    raising.insert(undisturbed.begin(), undisturbed.end());
    EXPECT_EQ(processed(recording()), "");
    EXPECT_EQ(calls, undisturbed);
    EXPECT_EQ(calls.size(), 9U);
}

TEST_F(MailnamesCycleOnHost, TellsOfEachStep)
{
    addMailname(7, 1, "joe", columns, ", 'true', 'true', 'true', 'j@x.test', 4096");
    run("INSERT INTO mail_aliases (mn_id, alias) VALUES (7, 'a'), (7, 'b')");
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    raising = {"setMailbox d.test joe 1", "addMailAlias d.test joe a"};
    EXPECT_EQ(processed(recording()), "");
    EXPECT_EQ(
        progress,
        "   registering mailname joe... done\n"
        "   registering mailbox for joe... failed (boom at setMailbox d.test joe 1), ignored\n"
        "   restoring mailbox quota settings for joe... done\n"
        "   restoring mail forwarding for joe... done\n"
        "    restoring mail aliases for joe... failed (boom at addMailAlias d.test joe a), "
        "ignored\n"
        "   executing mail group forwarding cycle for joe... done\n");
}

TEST_F(MailnamesCycleOnHost, WarnsOfMailnamesThatCannotBeRead)
{
    WithoutTable const without(panel, "mail");
    EXPECT_EQ(processed(recording()), queryWarning("Mail names cycle for d.test", "mail"));
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MailnamesCycleOnHost, WarnsOfAliasesThatCannotBeReadAndGoesOn)
{
    addMailname(7, 1, "joe");
    addMailname(8, 1, "kim");
    WithoutTable const without(panel, "mail_aliases");
    EXPECT_EQ(processed(recording()),
              queryWarning("Mail Aliases cycle for joe", "mail_aliases") +
                  queryWarning("Mail Aliases cycle for kim", "mail_aliases"));
    EXPECT_EQ(callsOf("addMailname").size(), 2U);
}

TEST_F(MailnamesCycleOnHost, LeavesAGroupAloneWhoseAddressesCannotBeRead)
{
    addMailname(7, 1, "joe", ", mail_group", ", 'true'");
    WithoutTable const without(panel, "mail_redir");
    EXPECT_EQ(processed(recording()), queryWarning("Mail Forwards cycle for joe", "mail_redir"));
    EXPECT_THAT(callsOf("addMailGroup"), IsEmpty());
}

TEST_F(MailnamesCycleOnHost, PassesAGroupWithoutAddressesOn)
{
    addMailname(7, 1, "joe", ", mail_group", ", 'true'");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("addMailGroup"), ElementsAre("addMailGroup d.test joe []"));
}

TEST_F(MailnamesCycleOnHost, PassesAMailnameOverWhoseRowLacksAColumn)
{
    spy.replace(mailnames, "SELECT 1 AS id, 'joe' AS mail_name, 'true' AS postbox");
    EXPECT_EQ(processed(recording()),
              rowWarning("Mail names cycle for d.test", "No field named mbox_quota in result set"));
    EXPECT_THAT(calls, ElementsAre("addMailname d.test joe", "setMailbox d.test joe 1"));
}

TEST_F(MailnamesCycleOnHost, SkipsAnAliasOrAddressRowWithoutItsColumn)
{
    addMailname(7, 1, "joe", ", mail_group", ", 'true'");
    spy.replace("SELECT alias FROM mail_aliases WHERE mn_id=7", "SELECT 'a' AS b");
    spy.replace("SELECT address FROM mail_redir WHERE mn_id=7", "SELECT 'a' AS b");
    EXPECT_EQ(
        processed(recording()),
        rowWarning("Mail Aliases cycle for joe", "No field named alias in result set") +
            rowWarning("Mail Forwards cycle for joe", "No field named address in result set"));
    EXPECT_THAT(callsOf("addMailGroup"), ElementsAre("addMailGroup d.test joe []"));
}

TEST_F(MailnamesCycleOnHost, PassesHostileNamesOnAsTheyAre)
{
    conn() << "INSERT INTO mail (id, dom_id, mail_name) VALUES (1, 1, '"
           << orvek::mysql::Query::value << "it's \"%s\" \\ \xc3\xbc`"
           << "')" << orvek::mysql::Query::exec;
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("addMailname"), ElementsAre("addMailname d.test it's \"%s\" \\ \xc3\xbc`"));
}

TEST_F(MailnamesCycleOnHost, HoldsFewResultsOverManyMailnames)
{
    constexpr int count = 2000;
    std::string values;
    for (int id = 1; id <= count; ++id)
        values += (id > 1 ? ", (" : "(") + std::to_string(id) + ", 1, 'name" + std::to_string(id) +
                  "', 'true')";
    run("INSERT INTO mail (id, dom_id, mail_name, mail_group) VALUES " + values);
    size_t most = 0;
    spy.before = [&](int) { most = std::max(most, spy.results.size()); };
    EXPECT_EQ(processed(recording()), "");
    EXPECT_EQ(callsOf("addMailGroup").size(), size_t{count});
    EXPECT_EQ(spy.statements.size(), 2U + 2U * count);
    EXPECT_EQ(most, 1U);
    EXPECT_EQ(spy.connects.size(), 0U);
}
