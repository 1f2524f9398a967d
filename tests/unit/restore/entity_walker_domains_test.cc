#include "restore/entity_walker.h"

#include "walker_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace orvek::mail::restore;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char domains[] = "SELECT    d.id AS id, d.name AS name,   (d.status || s.status) AS "
                           "status,   p.value AS nonExisting FROM domains d, DomainServices s, "
                           "Parameters p    WHERE d.id=s.dom_id AND s.type='mail'      AND "
                           "p.id=s.parameters_id AND p.parameter='nonexist_mail'";

std::string catchallQuery(std::string const& name)
{
    return "SELECT p.value AS value  FROM Parameters p, DomainServices ds    WHERE p.id = "
           "ds.parameters_id      AND p.parameter='" +
           name + "'      AND ds.dom_id=1";
}

std::string mailnamesQuery(int domain)
{
    return "SELECT id, mail_name, postbox, mail_group, redirect, redir_addr, mbox_quota FROM mail  "
           "WHERE dom_id=" +
           std::to_string(domain);
}

class DomainCycleOnHost : public WalkerTest
{
protected:
    std::string processed(MailsrvEntitiesCallbacks callbacks)
    {
        CapturedStreams const streams;
        processDomainCycle(callbacks, conn());
        EXPECT_EQ(streams.out(), streams.err());
        progress = streams.log();
        return streams.err();
    }
};

} // namespace

TEST_F(DomainCycleOnHost, TakesAllStepsOfADomainInOrder)
{
    addDomain(1, "d.test");
    run("INSERT INTO domainaliases (dom_id, name, status, mail) VALUES (1, 'a.test', 0, 'true'), "
        "(1, 'b.test', 2, 'true'), (1, 'web.test', 0, 'false'), (2, 'other.test', 0, 'true')");
    addMailname(1, 1, "joe");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(calls,
                ElementsAre("addDomain d.test 1", "setDomainCatchall d.test reject <>",
                            "addDomainAlias d.test a.test 1", "addDomainAlias d.test b.test 0",
                            "addMailname d.test joe", "setMailbox d.test joe 0"));
    ASSERT_GE(spy.statements.size(), 3U);
    EXPECT_EQ(spy.statements[0], domains);
    EXPECT_EQ(spy.statements[1], catchallQuery("nonexist_mail"));
    EXPECT_EQ(spy.statements[2],
              "SELECT    name, status FROM domainaliases WHERE dom_id='1'   AND mail='true'");
}

TEST_F(DomainCycleOnHost, RunsTheQueriesForDomainsAndMailnamesWithoutCallbacks)
{
    addDomain(1, "d.test");
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    EXPECT_EQ(processed({}), "");
    EXPECT_THAT(spy.statements, ElementsAre(domains, mailnamesQuery(1)));
    EXPECT_EQ(progress, "  executing mailnames restoration cycle for d.test:\n");
}

TEST_F(DomainCycleOnHost, EnablesADomainWhenItAndItsServiceAreOn)
{
    addDomain(1, "0both.test", "reject", 0, 0);
    addDomain(2, "1domain.test", "reject", 16, 0);
    addDomain(3, "2service.test", "reject", 0, 4);
    addDomain(4, "3neither.test", "reject", 2, 2);
    processed(recording());
    EXPECT_THAT(callsOf("addDomain"),
                ElementsAre("addDomain 0both.test 1", "addDomain 1domain.test 0",
                            "addDomain 2service.test 0", "addDomain 3neither.test 0"));
}

TEST_F(DomainCycleOnHost, TakesDomainsWithAMailServiceAlone)
{
    addDomain(1, "mail.test");
    addDomain(2, "web.test");
    run("UPDATE DomainServices SET type = 'web' WHERE dom_id = 2");
    addDomain(3, "bare.test");
    run("DELETE FROM DomainServices WHERE dom_id = 3");
    processed(recording());
    EXPECT_THAT(callsOf("addDomain"), ElementsAre("addDomain mail.test 1"));
}

TEST_F(DomainCycleOnHost, PassesNamesOnInUnicode)
{
    addDomain(1, "xn--bcher-kva.test", "reject");
    addMailname(1, 1, "joe");
    processed(recording());
    EXPECT_THAT(calls, ElementsAre("addDomain b\xc3\xbc"
                                   "cher.test 1",
                                   "setDomainCatchall b\xc3\xbc"
                                   "cher.test reject <>",
                                   "addMailname b\xc3\xbc"
                                   "cher.test joe",
                                   "setMailbox b\xc3\xbc"
                                   "cher.test joe 0"));
}

TEST_F(DomainCycleOnHost, PassesADomainOverWhoseNameIsNoUnicode)
{
    addDomain(1, "first.test");
    addDomain(2, "bad.test");
    addDomain(3, "last.test");
    spy.replace(domains,
                "SELECT 1 AS id, 'first.test' AS name, 0 AS status, 'reject' AS nonExisting"
                " UNION ALL SELECT 2, _binary X'FF2E74657374', 0, 'reject'"
                " UNION ALL SELECT 3, 'last.test', 0, 'reject'");
    EXPECT_EQ(processed(recording()), rowWarning("top Domains cycle", "Iconv error"));
    EXPECT_THAT(callsOf("addDomain"),
                ElementsAre("addDomain first.test 1", "addDomain last.test 1"));
}

TEST_F(DomainCycleOnHost, BouncesWithTheDomainsMessage)
{
    addDomain(1, "d.test", "bounce");
    setCatchall(1, "bounce_mess", "No such 100% user");
    setCatchall(1, "catch_addr", "c@x.test");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setDomainCatchall"),
                ElementsAre("setDomainCatchall d.test bounce <No such 100% user>"));
    EXPECT_EQ(spy.statements[2], catchallQuery("bounce_mess"));
}

TEST_F(DomainCycleOnHost, BouncesWithAnEmptyTextWithoutAMessage)
{
    addDomain(1, "d.test", "bounce");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setDomainCatchall"), ElementsAre("setDomainCatchall d.test bounce <>"));
}

TEST_F(DomainCycleOnHost, CatchesByTheDomainsAddress)
{
    addDomain(1, "d.test", "catch");
    setCatchall(1, "bounce_mess", "no");
    setCatchall(1, "catch_addr", "c@x.test");
    EXPECT_EQ(processed(recording()), "");
    EXPECT_THAT(callsOf("setDomainCatchall"),
                ElementsAre("setDomainCatchall d.test catch <c@x.test>"));
    EXPECT_EQ(spy.statements[2], catchallQuery("catch_addr"));
}

TEST_F(DomainCycleOnHost, RejectsOtherwise)
{
    for (char const* const kind : {"reject", "", "Bounce", "catchall", "discard"}) {
        addDomain(1, "d.test", kind);
        EXPECT_EQ(processed(recording()), "");
        EXPECT_THAT(callsOf("setDomainCatchall"), ElementsAre("setDomainCatchall d.test reject <>"))
            << kind;
        calls.clear();
        run("DELETE FROM domains");
        run("DELETE FROM DomainServices");
    }
}

TEST_F(DomainCycleOnHost, WarnsOfDomainsThatCannotBeRead)
{
    WithoutTable const without(panel, "DomainServices");
    EXPECT_EQ(processed(recording()), queryWarning("top Domains cycle", "DomainServices"));
}

TEST_F(DomainCycleOnHost, WarnsOfAliasesThatCannotBeReadAndGoesOn)
{
    addDomain(1, "d.test");
    addMailname(1, 1, "joe");
    WithoutTable const without(panel, "domainaliases");
    EXPECT_EQ(processed(recording()),
              queryWarning("Domains Alias cycle for domain d.test", "domainaliases"));
    EXPECT_THAT(callsOf("addMailname"), ElementsAre("addMailname d.test joe"));
}

TEST_F(DomainCycleOnHost, PassesAnAliasOverWhoseStatusIsNoNumber)
{
    addDomain(1, "d.test");
    spy.replace("SELECT    name, status FROM domainaliases WHERE dom_id='1'   AND mail='true'",
                "SELECT 'a.test' AS name, 'on' AS status UNION ALL SELECT 'b.test', '0'");
    EXPECT_EQ(processed(recording()),
              rowWarning("Domains Alias cycle for domain d.test",
                         "bad lexical cast: source type value could not be interpreted as target"));
    EXPECT_THAT(callsOf("addDomainAlias"), ElementsAre("addDomainAlias d.test b.test 1"));
}

TEST_F(DomainCycleOnHost, PassesADomainOverWhoseRowLacksAColumn)
{
    addDomain(1, "d.test");
    char const* const columns[][2] = {
        {"id", "SELECT 'd.test' AS name, 0 AS status, 'x' AS nonExisting"},
        {"name", "SELECT 1 AS id, 0 AS status, 'x' AS nonExisting"},
        {"status", "SELECT 1 AS id, 'd.test' AS name, 'x' AS nonExisting"},
        {"nonExisting", "SELECT 1 AS id, 'd.test' AS name, 0 AS status"}};
    for (auto const& [column, statement] : columns) {
        spy.replace(domains, statement);
        EXPECT_EQ(processed(recording()),
                  rowWarning("top Domains cycle",
                             std::string("No field named ") + column + " in result set"));
    }
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(DomainCycleOnHost, TakesTheRestWhenACallbackRaises)
{
    addDomain(1, "d.test");
    addDomain(2, "e.test");
    run("INSERT INTO domainaliases (dom_id, name) VALUES (1, 'a.test'), (1, 'b.test')");
    processed(recording());
    std::vector<std::string> const undisturbed = calls;
    calls.clear();
    raising.insert(undisturbed.begin(), undisturbed.end());
    setenv("ORVEK_INSTALLER_DEBUG", "1", 1);
    EXPECT_EQ(processed(recording()), "");
    EXPECT_EQ(calls, undisturbed);
    EXPECT_EQ(progress, "  restoring basic records for d.test... failed (boom at addDomain d.test "
                        "1), ignored\n"
                        "  restoring catchall/reject settings for d.test... failed (boom at "
                        "setDomainCatchall d.test reject <>), ignored\n"
                        "  restoring domain aliases for d.test... failed (boom at addDomainAlias "
                        "d.test a.test 1), ignored failed (boom at addDomainAlias d.test b.test "
                        "1), ignored\n"
                        "  executing mailnames restoration cycle for d.test:\n"
                        "  restoring basic records for e.test... failed (boom at addDomain e.test "
                        "1), ignored\n"
                        "  restoring catchall/reject settings for e.test... failed (boom at "
                        "setDomainCatchall e.test reject <>), ignored\n"
                        "  restoring domain aliases for e.test... done\n"
                        "  executing mailnames restoration cycle for e.test:\n");
}

TEST_F(DomainCycleOnHost, GivesEachParameterOfADomainByItsName)
{
    addDomain(1, "d.test");
    setCatchall(1, "bounce_mess", "no");
    addDomain(2, "e.test");
    setCatchall(2, "bounce_mess", "other");
    EXPECT_EQ(getDomainCatchallParam("1", "d.test", "bounce_mess", conn()), "no");
    EXPECT_EQ(getDomainCatchallParam("2", "e.test", "bounce_mess", conn()), "other");
    EXPECT_EQ(getDomainCatchallParam("1", "d.test", "catch_addr", conn()), "");
    EXPECT_EQ(getDomainCatchallParam("3", "f.test", "bounce_mess", conn()), "");
}

TEST_F(DomainCycleOnHost, FindsAParameterByAHostileName)
{
    addDomain(1, "d.test");
    for (std::string const name : {"it's", "\"", "a\\", "100%", "b\xc3\xbc", "' OR '1'='1"}) {
        EXPECT_EQ(getDomainCatchallParam("1", "d.test", name, conn()), "") << name;
        conn() << "INSERT INTO Parameters VALUES (1, '" << orvek::mysql::Query::value
               << name.c_str() << "', 'found')" << orvek::mysql::Query::exec;
        EXPECT_EQ(getDomainCatchallParam("1", "d.test", name, conn()), "found") << name;
    }
}

TEST_F(DomainCycleOnHost, WarnsOfAParameterThatCannotBeRead)
{
    CapturedStreams const streams;
    {
        WithoutTable const without(panel, "Parameters");
        EXPECT_EQ(getDomainCatchallParam("1", "d.test", "bounce_mess", conn()), "");
    }
    spy.replace(catchallQuery("x"), "SELECT 'v' AS val UNION ALL SELECT 'w'");
    EXPECT_EQ(getDomainCatchallParam("1", "d.test", "x", conn()), "");
    EXPECT_EQ(streams.err(),
              queryWarning("Domain Catcall configuration for domain d.test", "Parameters") +
                  rowWarning("Domain Catcall configuration for domain d.test",
                             "No field named value in result set"));
}

TEST_F(DomainCycleOnHost, GoesOnToTheEndOnAKilledConnection)
{
    addDomain(1, "d.test");
    addDomain(2, "e.test");
    spy.before = [&](int number) {
        if (number == 2)
            panel.killConnections();
    };
    std::string const err = processed(recording());
    EXPECT_THAT(callsOf("addDomain"), ElementsAre("addDomain d.test 1", "addDomain e.test 1"));
    for (char const* const context :
         {"Domain Catcall configuration for domain d.test", "Domains Alias cycle for domain d.test",
          "Default Mailbox Quota for d.test", "Mail names cycle for d.test",
          "Mail names cycle for e.test"})
        EXPECT_THAT(err, testing::HasSubstr(std::string("Warning: MySQL Query error on ") +
                                            context + ": Mysql error "));
}
