#include "postfix/domains/domain_manager.h"

#include "build_paths.h"
#include "support/child_run.h"
#include "support/managers_test.h"
#include "support/stand_in.h"
#include "util/errors.h"

#include <stdexcept>

using namespace orvek::mail::postfix;
using orvek::mail::OnRemoval;

namespace {

constexpr char bounce[] = "|/usr/lib64/orvek-9.0/bouncemessage";

class DomainManagerOnHost : public ManagersTest
{
protected:
    static Content standard(std::string const& domain)
    {
        Content records;
        for (auto const name :
             {"postmaster", "mailer-daemon", "root", "anonymous", "drweb", "kluser"})
            records[std::string(name) + '@' + domain] =
                std::string(name) + "@localhost.localdomain";
        return records;
    }

    static Content both(Content content, Content const& more)
    {
        content.insert(more.begin(), more.end());
        return content;
    }

    static bool exists(std::string const& path)
    {
        return std::filesystem::exists(std::string(mailnames) + '/' + path);
    }
};

} // namespace

TEST_F(DomainManagerOnHost, CreatesADisabledDomainWithOnlyItsAddresses)
{
    DomainManager::createDomain("d.test", true);
    EXPECT_TRUE(exists("d.test"));
    EXPECT_EQ(contentOf(virtual_map), standard("d.test"));
    EXPECT_EQ(contentOf(virtual_domains_map), Content());
}

TEST_F(DomainManagerOnHost, CreatesADisabledDomainWithAQuota)
{
    panelDomain("d.test", {});
    DomainManager::createDomain("d.test", 100, true);
    EXPECT_EQ(contentOf(virtual_map), standard("d.test"));
    EXPECT_EQ(contentOf(virtual_domains_map), Content());
}

TEST_F(DomainManagerOnHost, CreatesAnEnabledDomain)
{
    DomainManager::createDomain("d.test", false);
    EXPECT_EQ(contentOf(virtual_map), standard("d.test"));
    EXPECT_EQ(contentOf(virtual_domains_map), (Content{{"d.test", "d.test/"}}));
}

TEST_F(DomainManagerOnHost, RefusesTheServersOwnDomainsInEveryRole)
{
    std::string const own = "localhost.localdomain";
    AtOnce batch;
    EXPECT_THROW(DomainManager::createDomain(own, false), PostfixDatabaseError);
    EXPECT_THROW(DomainManager::createDomain(own, 1, true), PostfixDatabaseError);
    EXPECT_THROW(DomainManager::enableDomain(own), PostfixDatabaseError);
    EXPECT_THROW(DomainManager::renameDomain("d.test", own), PostfixDatabaseError);
    EXPECT_THROW(DomainManager::createDomainAlias("d.test", own), PostfixDatabaseError);
    EXPECT_THROW(DomainManager::renameDomainAlias("d.test", own), PostfixDatabaseError);
    EXPECT_FALSE(exists(own));
    EXPECT_EQ(contentOf(virtual_map), Content());
    EXPECT_EQ(contentOf(virtual_domains_map), Content());
}

TEST_F(DomainManagerOnHost, RemovesTheAliasThatANewDomainWas)
{
    fill(virtual_map, {{"d.test", "1"}, {"a@d.test", "a@e.test"}, {"a@e.test", "a@e.test"}});
    DomainManager::createDomain("d.test", true);
    EXPECT_EQ(contentOf(virtual_map), both(standard("d.test"), {{"a@e.test", "a@e.test"}}));
}

TEST_F(DomainManagerOnHost, AddsTheRecordsOfADomainToABatch)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::createDomainRecord(batch, "d.test", false);
    EXPECT_EQ(contentOf(virtual_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(virtual_map), standard("d.test"));
    EXPECT_EQ(contentOf(virtual_domains_map), (Content{{"d.test", "d.test/"}}));
    EXPECT_FALSE(exists("d.test"));
}

TEST_F(DomainManagerOnHost, EnablesADomainInABatch)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::enableDomain(batch, "d.test");
    EXPECT_EQ(contentOf(virtual_domains_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(virtual_domains_map), (Content{{"d.test", "d.test/"}}));
}

TEST_F(DomainManagerOnHost, RemovesTheStandardAddressesInABatch)
{
    DomainManager::createStandardDomainAddresses("d.test");
    DomainManager::createStandardDomainAddresses("e.test");
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::removeStandardDomainAddresses(batch, "d.test");
    EXPECT_EQ(contentOf(virtual_map), both(standard("d.test"), standard("e.test")));
    batch.commit();
    EXPECT_EQ(contentOf(virtual_map), standard("e.test"));
}

TEST_F(DomainManagerOnHost, RenamesARemovedDomainsDirectoryAsideForABackup)
{
    DomainManager::createDomain("d.test", false);
    DomainManager::removeDomain("d.test", OnRemoval::backup);
    EXPECT_FALSE(exists("d.test"));
    std::filesystem::directory_iterator const saved(mailnames);
    EXPECT_EQ(saved->path().filename().string().rfind("d.test.OrvekSaved.", 0), 0U);
    EXPECT_EQ(contentOf(virtual_domains_map), Content());
}

TEST_F(DomainManagerOnHost, LeavesARemovedDomainsDirectoryForAnyOtherWish)
{
    DomainManager::createDomain("d.test", false);
    DomainManager::removeDomain("d.test", OnRemoval::keep);
    EXPECT_TRUE(exists("d.test"));
    EXPECT_EQ(contentOf(virtual_map), Content());
}

TEST_F(DomainManagerOnHost, RemovesTheDirectoryOfARemovedDomain)
{
    DomainManager::createDomain("d.test", false);
    DatabaseHelper::addRecord(virtual_map, "a@s.d.test", "a@s.d.test");
    DomainManager::removeDomain("d.test", OnRemoval::remove);
    EXPECT_TRUE(std::filesystem::is_empty(mailnames));
    EXPECT_EQ(contentOf(virtual_map), (Content{{"a@s.d.test", "a@s.d.test"}}));
}

TEST_F(DomainManagerOnHost, RemovesTheDomainsKeysAndElementsFromBothMaps)
{
    fill(virtual_map, {{"a@d.test", "a@d.test"},
                       {"l@e.test", "a@d.test, b@e.test"},
                       {"m@e.test", "a@d.test"},
                       {"a@s.d.test", "a@s.d.test"}});
    fill(vmailbox_map, {{"a@d.test", "d.test/a/Maildir/"}, {"b@e.test", "e.test/b/Maildir/"}});
    DomainManager::removeDomainReferences("d.test", false);
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"l@e.test", "b@e.test"}, {"a@s.d.test", "a@s.d.test"}}));
    EXPECT_EQ(contentOf(vmailbox_map), (Content{{"b@e.test", "e.test/b/Maildir/"}}));
    DomainManager::removeDomainReferences("d.test", true);
    EXPECT_EQ(contentOf(virtual_map), (Content{{"l@e.test", "b@e.test"}}));
}

TEST_F(DomainManagerOnHost, WritesACatchAllForDomainAndAliasDomains)
{
    panelDomain("d.test", {"x.test", "y.test"});
    DomainManager::createCatchall("d.test", "a@e.test");
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"@d.test", "a@e.test"}, {"@x.test", "a@e.test"}, {"@y.test", "a@e.test"}}));
    DomainManager::removeCatchall("d.test");
    EXPECT_EQ(contentOf(virtual_map), Content());
}

TEST_F(DomainManagerOnHost, WritesAndRemovesACatchAllInABatch)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::createCatchall(batch, "d.test", "a@e.test");
    EXPECT_EQ(contentOf(virtual_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(virtual_map), (Content{{"@d.test", "a@e.test"}}));
    DomainManager::removeCatchall(batch, "d.test");
    EXPECT_EQ(contentOf(virtual_map), (Content{{"@d.test", "a@e.test"}}));
    batch.commit();
    EXPECT_EQ(contentOf(virtual_map), Content());
}

TEST_F(DomainManagerOnHost, WritesABounceForTheDomainAndEachAliasDomain)
{
    panelDomain("d.test", {"x.test"});
    DomainManager::setBounce("d.test", "no");
    EXPECT_EQ(contentOf(aliases_map),
              (Content{{"_orvek_bounce_d.test", std::string("\"") + bounce + " no\""},
                       {"_orvek_bounce_x.test", std::string("\"") + bounce + " no\""}}));
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"@d.test", "_orvek_bounce_d.test@localhost.localdomain"},
                       {"@x.test", "_orvek_bounce_x.test@localhost.localdomain"}}));
}

TEST_F(DomainManagerOnHost, WritesABounceInABatch)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::setBounce(batch, "d.test", "");
    EXPECT_EQ(contentOf(aliases_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(aliases_map),
              (Content{{"_orvek_bounce_d.test", std::string("\"") + bounce + '"'}}));
}

TEST_F(DomainManagerOnHost, QuotesABounceMessageForTwoShellsOnOneLine)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_once);
    DomainManager::setBounceFor(batch, {"d.test"}, "it's\ngone");
    EXPECT_EQ(contentOf(aliases_map)["_orvek_bounce_d.test"],
              std::string("\"") + bounce + R"( it\\\'s\\\ gone")");
}

TEST_F(DomainManagerOnHost, LeavesThePipeOfABounceThatEnds)
{
    DomainManager::setBounce("d.test", "no");
    DomainManager::removeCatchall("d.test");
    EXPECT_EQ(contentOf(virtual_map), Content());
    EXPECT_EQ(contentOf(aliases_map).size(), 1U);
}

TEST_F(DomainManagerOnHost, GivesAnAliasDomainTheAddressesOfAllNames)
{
    panelDomain("d.test", {});
    panelMailname("a", {"a1", "a2"});
    panelMailname("b", {});
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    DomainManager::createDomainAlias(batch, "d.test", "x.test");
    EXPECT_EQ(contentOf(virtual_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(virtual_map), both(standard("x.test"), {{"x.test", "1"},
                                                                {"a@x.test", "a@d.test"},
                                                                {"a1@x.test", "a@d.test"},
                                                                {"a2@x.test", "a@d.test"},
                                                                {"b@x.test", "b@d.test"}}));
}

TEST_F(DomainManagerOnHost, RaisesWithoutTheMailnamesForAnAliasDomain)
{
    run(HOST_SERVICE " stop mariadb");
    ChildRun const printed = inChild([] {
        try {
            DomainManager::createDomainAlias("d.test", "x.test");
        } catch (PostfixDatabaseError const&) {
            return 7;
        }
        return 0;
    });
    EXPECT_EQ(printed.status, 7);
    EXPECT_EQ(contentOf(virtual_map), standard("x.test"));
}

TEST_F(DomainManagerOnHost, RenamesAndRemovesAnAliasDomain)
{
    fill(virtual_map, {{"x.test", "1"},
                       {"a@x.test", "a@d.test"},
                       {"a@d.test", "a@d.test"},
                       {"a@s.x.test", "b@s.x.test"}});
    DomainManager::renameDomainAlias("x.test", "y.test");
    EXPECT_EQ(contentOf(virtual_map), (Content{{"y.test", "1"},
                                               {"a@y.test", "a@d.test"},
                                               {"a@d.test", "a@d.test"},
                                               {"a@s.x.test", "b@s.x.test"}}));
    DomainManager::removeDomainAlias("y.test");
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"a@d.test", "a@d.test"}, {"a@s.x.test", "b@s.x.test"}}));
}

namespace {

class RenamedDomainOnHost : public DomainManagerOnHost
{
protected:
    void SetUp() override
    {
        DomainManagerOnHost::SetUp();
        if (HasFatalFailure())
            return;
        fill(virtual_domains_map, domains);
        fill(virtual_map, addresses);
        fill(vmailbox_map, mailboxes);
        std::filesystem::create_directory(std::string(mailnames) + "/old.test");
    }

    void expectOld()
    {
        EXPECT_EQ(contentOf(virtual_domains_map), domains);
        EXPECT_EQ(contentOf(virtual_map), addresses);
        EXPECT_EQ(contentOf(vmailbox_map), mailboxes);
        EXPECT_TRUE(exists("old.test"));
    }

    // Renames while the nth run of postmap fails. Returns the error.
    static std::string renamedWithoutRun(int number)
    {
        StandIn postmap("/usr/sbin/postmap");
        postmap.prepare();
        postmap.run("[ $(wc -l <$dir/journal) != " + std::to_string(number) +
                    " ] && exec $real \"$@\"\necho 'postmap: fatal: no' >&2; exit 1");
        try {
            DomainManager::renameDomain("old.test", "new.test");
        } catch (PostfixConfigurationError const& e) {
            return e.what();
        }
        return "nothing";
    }

    // Makes the rename of the directory fail.
    static void occupyTarget()
    {
        std::filesystem::create_directories(std::string(mailnames) + "/new.test/a");
    }

    Content const domains = {{"old.test", "old.test/"}, {"e.test", "e.test/"}};
    Content const addresses = {{"a@old.test", "a@old.test"},
                               {"b@e.test", "b@e.test, a@old.test"},
                               {"a@s.old.test", "a@s.old.test"}};
    Content const mailboxes = {{"a@old.test", "old.test/a/Maildir/"},
                               {"a@s.old.test", "s.old.test/a/Maildir/"}};
};

} // namespace

TEST_F(RenamedDomainOnHost, KeepsTheValueOfItsRecordAmongTheEnabledDomains)
{
    DomainManager::renameDomain("old.test", "new.test");
    EXPECT_EQ(contentOf(virtual_domains_map),
              (Content{{"new.test", "old.test/"}, {"e.test", "e.test/"}}));
    EXPECT_EQ(contentOf(virtual_map), (Content{{"a@new.test", "a@new.test"},
                                               {"b@e.test", "b@e.test, a@new.test"},
                                               {"a@s.old.test", "a@s.old.test"}}));
    EXPECT_EQ(contentOf(vmailbox_map), (Content{{"a@new.test", "new.test/a/Maildir/"},
                                                {"a@s.old.test", "s.old.test/a/Maildir/"}}));
    EXPECT_TRUE(exists("new.test"));
    EXPECT_FALSE(exists("old.test"));
}

TEST_F(RenamedDomainOnHost, IsTheOldOneWhenItsDirectoryCannotBeRenamed)
{
    occupyTarget();
    EXPECT_THROW(DomainManager::renameDomain("old.test", "new.test"), std::runtime_error);
    expectOld();
}

// Each map takes two runs: one lists it and one rebuilds it.
TEST_F(RenamedDomainOnHost, StaysTheOldOneWhenAMapCannotBeRewritten)
{
    for (int const number : {1, 2, 3, 4, 5, 6}) {
        SCOPED_TRACE(number);
        EXPECT_EQ(renamedWithoutRun(number).rfind("postmap: fatal: no", 0), 0U);
        expectOld();
        EXPECT_FALSE(exists("new.test"));
    }
}

TEST_F(RenamedDomainOnHost, ReportsEachMapNotRestoredAndRaisesTheFirstError)
{
    occupyTarget();
    // Two runs for each of the three maps succeed. All later runs fail.
    run("install -m 755 /dev/stdin /tmp/postmap.stand-in <<'END'\n"
        "#!/bin/bash\n"
        "echo >>/tmp/postmap.runs\n"
        "[ $(wc -l </tmp/postmap.runs) -le 6 ] && exec /tmp/postmap.real \"$@\"\n"
        "echo 'postmap: fatal: no' >&2; exit 1\n"
        "END\n"
        "cp /usr/sbin/postmap /tmp/postmap.real; rm -f /tmp/postmap.runs\n"
        "mount --bind /tmp/postmap.stand-in /usr/sbin/postmap");
    ChildRun const printed = inChild([] {
        try {
            DomainManager::renameDomain("old.test", "new.test");
        } catch (boost::filesystem::filesystem_error const&) {
            return 7;
        }
        return 0;
    });
    run("umount /usr/sbin/postmap; rm /tmp/postmap.*");
    EXPECT_EQ(printed.status, 7);
    std::string const critical =
        "CRITICAL ERROR: Unable to properly restore Postfix Virtual Domains Database used by "
        "Orvek.\nMail system may be not usable at the moment and it cannot be repaired "
        "automatically.\nConstact Tessarine support to resolve this issue.\n";
    EXPECT_EQ(printed.err, critical + critical + critical);
}
