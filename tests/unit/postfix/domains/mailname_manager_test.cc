#include "postfix/domains/mailname_manager.h"

#include "support/managers_test.h"

using namespace orvek::mail::postfix;
using orvek::mail::OnRemoval;

namespace {

class MailnameManagerOnHost : public ManagersTest
{
protected:
    static bool exists(std::string const& path)
    {
        return std::filesystem::exists(std::string(mailnames) + '/' + path);
    }
};

} // namespace

TEST_F(MailnameManagerOnHost, AddsTheRecordsOfAMailnameToABatch)
{
    panelDomain("d.test", {"x.test"});
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    MailnameManager::createMailnameRecord(batch, "d.test", "a");
    EXPECT_EQ(contentOf(vmailbox_map), Content());
    batch.commit();
    EXPECT_EQ(contentOf(vmailbox_map), (Content{{"a@d.test", "d.test/a/Maildir/"}}));
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"a@d.test", "a@d.test"}, {"a@x.test", "a@d.test"}}));
    EXPECT_FALSE(exists("d.test/a"));
}

TEST_F(MailnameManagerOnHost, AddsTheAddressesOfAMailAliasToABatch)
{
    panelDomain("d.test", {"x.test", "y.test"});
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    MailnameManager::createMailAlias(batch, "d.test", "a", "b");
    EXPECT_EQ(contentOf(virtual_map), Content());
    batch.commit();
    EXPECT_EQ(
        contentOf(virtual_map),
        (Content{{"b@d.test", "a@d.test"}, {"b@x.test", "a@d.test"}, {"b@y.test", "a@d.test"}}));
}

TEST_F(MailnameManagerOnHost, RemovesAMailAliasWhateverMailnameIsNamed)
{
    panelDomain("d.test", {"x.test"});
    MailnameManager::createMailAlias("d.test", "a", "b");
    MailnameManager::removeMailAlias("d.test", "another", "b");
    EXPECT_EQ(contentOf(virtual_map), Content());
    MailnameManager::removeMailAlias("d.test", "a", "b");
}

TEST_F(MailnameManagerOnHost, RenamesARemovedHomeAsideForABackup)
{
    MailnameManager::createMailname("d.test", "a", 100);
    MailnameManager::removeMailname("d.test", "a", OnRemoval::backup);
    std::filesystem::directory_iterator const saved(std::string(mailnames) + "/d.test");
    EXPECT_EQ(saved->path().filename().string().rfind("a.OrvekSaved.", 0), 0U);
    EXPECT_EQ(contentOf(vmailbox_map), Content());
    EXPECT_EQ(contentOf(virtual_map), Content());
}

TEST_F(MailnameManagerOnHost, LeavesARemovedHomeForAnyOtherWish)
{
    MailnameManager::createMailname("d.test", "a", 100);
    MailnameManager::removeMailname("d.test", "a", OnRemoval::keep);
    EXPECT_TRUE(exists("d.test/a/Maildir"));
}

TEST_F(MailnameManagerOnHost, RenamesAnAliasDomainsAddressAsKeyAndElement)
{
    fill(virtual_map,
         {{"a@x.test", "a@d.test"}, {"l@e.test", "b@e.test, a@x.test"}, {"aa@x.test", "q@d.test"}});
    MailnameManager::renameMailnameOnDomainAlias("x.test", "a", "b");
    EXPECT_EQ(contentOf(virtual_map), (Content{{"b@x.test", "a@d.test"},
                                               {"l@e.test", "b@e.test, b@x.test"},
                                               {"aa@x.test", "q@d.test"}}));
}

TEST_F(MailnameManagerOnHost, RenamesAMailboxValueWithoutFinalSlashOnly)
{
    fill(vmailbox_map, {{"a@d.test", "d.test/a/Maildir"}, {"c@d.test", "d.test/a/Maildir/"}});
    std::filesystem::create_directories(std::string(mailnames) + "/d.test/a");
    MailnameManager::renameMailname("d.test", "a", "b");
    EXPECT_EQ(contentOf(vmailbox_map),
              (Content{{"b@d.test", "d.test/b/Maildir"}, {"c@d.test", "d.test/a/Maildir/"}}));
    EXPECT_TRUE(exists("d.test/b"));
}
