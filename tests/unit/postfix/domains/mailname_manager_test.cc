#include "postfix/domains/mailname_manager.h"

#include "support/managers_test.h"
#include "util/errors.h"

#include <array>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

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

namespace {

class RenamedMailnameOnHost : public MailnameManagerOnHost
{
protected:
    // The three things of a mailname.
    static void populate(std::string const& mailbox, std::string const& address,
                         std::string const& home)
    {
        fill(vmailbox_map, {{mailbox + "@d.test", "d.test/a/Maildir/"}});
        fill(virtual_map, {{address + "@d.test", address + "@d.test"}});
        std::filesystem::create_directories(std::string(mailnames) + "/d.test/" + home);
    }

    static void expectRenamed()
    {
        EXPECT_EQ(contentOf(vmailbox_map), (Content{{"b@d.test", "d.test/a/Maildir/"}}));
        EXPECT_EQ(contentOf(virtual_map), (Content{{"b@d.test", "b@d.test"}}));
        EXPECT_TRUE(exists("d.test/b"));
        EXPECT_FALSE(exists("d.test/a"));
    }

    // What a refusal says.
    static std::string refusal(std::string const& from, std::string const& to)
    {
        try {
            MailnameManager::renameMailname("d.test", from, to);
        } catch (orvek::mail::postfix::PostfixDatabaseError const& e) {
            return e.what();
        }
        return "none";
    }
};

} // namespace

TEST_F(RenamedMailnameOnHost, IsCompletedFromWhereverItWasInterrupted)
{
    for (auto const& [mailbox, address, home] :
         {std::array{"b", "a", "a"}, std::array{"b", "b", "a"}, std::array{"b", "b", "b"},
          std::array{"a", "b", "a"}}) { // the last one by a failed undo
        SCOPED_TRACE(std::string(mailbox) + address + home);
        std::filesystem::remove_all(std::string(mailnames) + "/d.test");
        populate(mailbox, address, home);
        MailnameManager::renameMailname("d.test", "a", "b");
        expectRenamed();
    }
}

TEST_F(RenamedMailnameOnHost, TakesNoNameThatSomebodyHas)
{
    populate("a", "a", "a");
    std::filesystem::create_directory(std::string(mailnames) + "/d.test/b");
    EXPECT_EQ(refusal("a", "b"), "b@d.test exists already, a@d.test is not renamed");
    std::filesystem::remove(std::string(mailnames) + "/d.test/b");
    fill(virtual_map, {{"a@d.test", "a@d.test"}, {"b@d.test", "c@d.test"}});
    EXPECT_EQ(refusal("a", "b"), "b@d.test exists already, a@d.test is not renamed");
    EXPECT_EQ(contentOf(vmailbox_map), (Content{{"a@d.test", "d.test/a/Maildir/"}}));
    EXPECT_TRUE(exists("d.test/a"));
}

TEST_F(RenamedMailnameOnHost, IsRenamedUnderItsAliasDomainsToo)
{
    populate("a", "a", "a");
    fill(virtual_map, {{"a@d.test", "a@d.test"},
                       {"a@x.test", "a@d.test"},
                       {"a@z.test", "a@d.test"},
                       {"l@e.test", "a@y.test, b@e.test, a@x.test"}});
    MailnameManager::renameMailname("d.test", "a", "b", {"x.test", "y.test"});
    EXPECT_EQ(contentOf(virtual_map), (Content{{"b@d.test", "b@d.test"},
                                               {"b@x.test", "b@d.test"},
                                               {"a@z.test", "b@d.test"},
                                               {"l@e.test", "b@y.test, b@e.test, b@x.test"}}));
}

TEST_F(RenamedMailnameOnHost, TakesNoAddressThatSomebodyHasUnderAnAliasDomain)
{
    populate("a", "a", "a");
    Content const records = {
        {"a@d.test", "a@d.test"}, {"a@x.test", "a@d.test"}, {"b@x.test", "c@d.test"}};
    fill(virtual_map, records);
    EXPECT_THROW(MailnameManager::renameMailname("d.test", "a", "b", {"w.test", "x.test"}),
                 PostfixDatabaseError);
    EXPECT_EQ(contentOf(virtual_map), records);
    EXPECT_TRUE(exists("d.test/a"));
}

TEST_F(RenamedMailnameOnHost, IsCompletedWhileItsNoteIsThere)
{
    populate("a", "a", "a");
    EXPECT_EQ(refusal("c", "a"), "a@d.test exists already, c@d.test is not renamed");
    MailnameManager::renameMailname("d.test", "a", "c", {}, [] { return true; });
    EXPECT_THROW(MailnameManager::renameMailname(
                     "d.test", "c", "a", {}, []() -> bool { throw std::runtime_error("died"); }),
                 std::runtime_error);
    fill(virtual_map, {{"a@d.test", "a@d.test"}, {"c@x.test", "a@d.test"}});

    MailnameManager::renameMailname("d.test", "c", "a", {"x.test"}, [] { return false; });
    EXPECT_EQ(contentOf(virtual_map),
              (Content{{"a@d.test", "a@d.test"}, {"a@x.test", "a@d.test"}}));
    MailnameManager::renameMailname("d.test", "c", "a", {}, [] { return true; });
    EXPECT_EQ(refusal("c", "a"), "a@d.test exists already, c@d.test is not renamed");
}

TEST_F(RenamedMailnameOnHost, LeavesNoNoteAfterItWasTakenBack)
{
    populate("a", "a", "a");
    fill(vmailbox_map, {{"a@d.test", "elsewhere/"}});
    std::filesystem::remove(std::string(mailnames) + "/d.test/a");
    EXPECT_ANY_THROW(MailnameManager::renameMailname("d.test", "a", "b"));
    populate("b", "b", "b");
    fill(vmailbox_map, {{"b@d.test", "elsewhere/"}});
    EXPECT_EQ(refusal("a", "b"), "b@d.test exists already, a@d.test is not renamed");
}

TEST_F(RenamedMailnameOnHost, LosesItsNoteToANewMailname)
{
    panelDomain("d.test", {});
    panelMailname("b", {});
    for (auto const& [give, mailbox] : std::vector<std::pair<std::function<void()>, std::string>>{
             {[] { MailnameManager::createMailname("d.test", "b"); }, "a mailname"},
             {[] { MailnameManager::createMailname("d.test", "b", 100); }, "with a quota"},
             {[] { MailnameManager::createMailAlias("d.test", "z", "b"); }, "a mail alias"}}) {
        SCOPED_TRACE(mailbox);
        std::filesystem::remove_all(std::string(mailnames) + "/d.test");
        populate("a", "a", "a");
        MailnameManager::renameMailname("d.test", "a", "b", {}, [] { return false; });
        give();
        populate("b", "b", "b");
        fill(vmailbox_map, {{"b@d.test", "d.test/b/Maildir/"}});
        EXPECT_EQ(refusal("a", "b"), "b@d.test exists already, a@d.test is not renamed");
    }
}

TEST_F(RenamedMailnameOnHost, MayDifferInTheCaseOfItsLettersAlone)
{
    populate("a", "a", "a");
    MailnameManager::renameMailname("d.test", "a", "A");
    EXPECT_TRUE(exists("d.test/A"));
    EXPECT_FALSE(exists("d.test/a"));
}
