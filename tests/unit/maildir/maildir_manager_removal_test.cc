// Renaming, backing up and removing directories.

#include "maildir/maildir_manager.h"

#include "lib/conf/autoprepend.h"
#include "support/child_run.h"
#include "support/deep_tree.h"
#include "support/fd_census.h"
#include "support/maildir_manager_test.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include <sys/stat.h>

using namespace maildir_manager_test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

using MaildirManagerRemovalOnHost = MaildirManagerTest;

} // namespace

// ---------------------------------------------------------------------------------- renaming

TEST_F(MaildirManagerRemovalOnHost, RenamesAHome)
{
    manager().createMailnameHome("example.com", "info");
    writeFile(home + "/Maildir/new/letter", "text");
    manager().renameMailnameHome("example.com", "info", "office");
    EXPECT_THAT(namesIn(domain), ElementsAre("office"));
    EXPECT_EQ(readFile(domain + "/office/Maildir/new/letter"), "text");
}

TEST_F(MaildirManagerRemovalOnHost, RenamesADomainRoot)
{
    makeDirectory(home);
    manager().renameDomainRoot("example.com", "example.net");
    EXPECT_THAT(namesIn(root), ElementsAre("example.net"));
    EXPECT_THAT(namesIn(root + "/example.net"), ElementsAre("info"));
}

TEST_F(MaildirManagerRemovalOnHost, MergesNoDirectories)
{
    makeDirectory(home + "/Maildir");
    makeDirectory(domain + "/office/Maildir");
    EXPECT_EQ(libraryErrorOf([] { manager().renameMailnameHome("example.com", "info", "office"); }),
              "boost::filesystem::rename: Directory not empty: \"" + home + "\", \"" + domain +
                  "/office\"");
    makeDirectory(root + "/example.net/info");
    EXPECT_NE(libraryErrorOf([] { manager().renameDomainRoot("example.com", "example.net"); }), "");
    EXPECT_THAT(namesIn(domain), UnorderedElementsAre("info", "office"));
}

TEST_F(MaildirManagerRemovalOnHost, RaisesTheLibrarysErrorForAMissingSource)
{
    EXPECT_EQ(libraryErrorOf([] { manager().renameDomainRoot("example.com", "example.net"); }),
              "boost::filesystem::rename: No such file or directory: \"" + domain + "\", \"" +
                  root + "/example.net\"");
    EXPECT_NE(libraryErrorOf([] { manager().renameMailnameHome("example.com", "a", "b"); }), "");
}

// ------------------------------------------------------------------------------- backing up

TEST_F(MaildirManagerRemovalOnHost, BacksUpRootsAndHomesInPlace)
{
    makeDirectory(home);
    std::string const homesInode = inodeOf(home);
    std::string const domainsInode = inodeOf(domain);
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), ElementsAre("info.OrvekSaved." + homesInode));
    manager().backupDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com.OrvekSaved." + domainsInode));
}

TEST_F(MaildirManagerRemovalOnHost, BacksUpNothingOfWhatDoesNotExist)
{
    manager().backupDomainRoot("example.com");
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(root), IsEmpty());
    writeFile(domain, "a file in the way");
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com"));
}

TEST_F(MaildirManagerRemovalOnHost, LeavesWhatCannotBeLookedAtForABackup)
{
    std::filesystem::create_symlink("example.com", domain);
    std::string const loop = ": Too many levels of symbolic links: \"";
    EXPECT_EQ(fsErrorOf([] { manager().backupMailnameHome("example.com", "info"); }),
              "rename" + loop + home + "\"");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com"));
}

TEST_F(MaildirManagerRemovalOnHost, BacksUpTheLinkAtADomainRoot)
{
    std::filesystem::create_symlink("example.com", domain);
    manager().backupDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), ElementsAre(::testing::StartsWith("example.com.OrvekSaved.")));
}

TEST_F(MaildirManagerRemovalOnHost, ReachesNoHomeThroughADomainThatIsALink)
{
    TempDir const elsewhere;
    makeDirectory(elsewhere / "info");
    std::filesystem::create_symlink(elsewhere.path(), domain);
    std::string const loop = "Too many levels of symbolic links: \"";
    EXPECT_EQ(libraryErrorOf([] { manager().removeMailnameHome("example.com", "info"); }),
              "boost::filesystem::remove_all: " + loop + home + "\"");
    EXPECT_EQ(libraryErrorOf([] { manager().renameMailnameHome("example.com", "info", "b"); }),
              "boost::filesystem::rename: " + loop + home + "\", \"" + domain + "/b\"");
    EXPECT_THAT(namesIn(elsewhere.path()), ElementsAre("info"));
}

TEST_F(MaildirManagerRemovalOnHost, RemovesATreeDeeperThanItsDescriptors)
{
    makeDirectory(home);
    auto const before = openDescriptors();
    make_deep_tree(home, 2000);
    manager().removeMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), IsEmpty());
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MaildirManagerRemovalOnHost, OpensNoFifoWhenItRemoves)
{
    makeDirectory(home);
    ASSERT_EQ(mkfifo((home + "/.qmail").c_str(), 0666), 0);
    ASSERT_EQ(mkfifo((home + "/Maildir").c_str(), 0666), 0);
    manager().removeMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

// --------------------------------------------------------------------------------- removing

TEST_F(MaildirManagerRemovalOnHost, RemovesAHomeWholeAndNothingElse)
{
    manager().createMailnameHome("example.com", "info");
    manager().createMailnameHome("example.com", "office");
    writeFile(home + "/Maildir/new/letter", "text");
    makeDirectory(home + "/a/b/c/d/e");
    auto const before = openDescriptors();
    manager().removeMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), ElementsAre("office"));
    manager().removeMailnameHome("example.com", "info");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MaildirManagerRemovalOnHost, RemovesADomainRootWholeAndNothingElse)
{
    manager().createMailnameHome("example.com", "info");
    makeDirectory(root + "/example.net");
    makeDirectory(domain + ".OrvekSaved.1");
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), UnorderedElementsAre("example.net", "example.com.OrvekSaved.1"));
    manager().removeDomainRoot("example.com");
}

TEST_F(MaildirManagerRemovalOnHost, FollowsNoLinkWhenItRemoves)
{
    TempDir const elsewhere;
    writeFile(elsewhere / "file", "kept");
    makeDirectory(home);
    std::filesystem::create_symlink(elsewhere.path(), home + "/to-directory");
    std::filesystem::create_symlink(elsewhere / "file", home + "/to-file");
    manager().removeMailnameHome("example.com", "info");
    std::filesystem::create_symlink(elsewhere.path(), home);
    manager().removeMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), IsEmpty());
    std::filesystem::create_symlink(elsewhere.path(), domain + "/link");
    manager().removeDomainRoot("example.com");
    std::filesystem::create_symlink(elsewhere.path(), domain);
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), IsEmpty());
    EXPECT_EQ(readFile(elsewhere / "file"), "kept");
}

TEST_F(MaildirManagerRemovalOnHost, RemovesALinkThatCannotBeLookedAt)
{
    std::filesystem::create_symlink("example.com", domain);
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), IsEmpty());
}

TEST_F(MaildirManagerRemovalOnHost, LeavesTheRestOfARootUnderItsSavedName)
{
    makeDirectory(home);
    std::string const saved = domain + ".OrvekSaved." + inodeOf(domain);
    ASSERT_EQ(system(("mount -t tmpfs tmpfs " + home).c_str()), 0);
    EXPECT_EQ(libraryErrorOf([] { manager().removeDomainRoot("example.com"); }),
              "boost::filesystem::remove_all: Device or resource busy: \"" + saved + "\"");
    EXPECT_FALSE(std::filesystem::exists(domain));
    EXPECT_TRUE(std::filesystem::exists(saved + "/info"));
    EXPECT_EQ(system(("umount " + saved + "/info").c_str()), 0);
}

TEST_F(MaildirManagerRemovalOnHost, RemovesADomainRootWhoseSavedNameIsTaken)
{
    makeDirectory(home);
    std::string const saved = domain + ".OrvekSaved." + inodeOf(domain);
    makeDirectory(saved + "/older");
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), ElementsAre(std::filesystem::path(saved).filename().string()));
    EXPECT_THAT(namesIn(saved), ElementsAre("older"));
}

TEST_F(MaildirManagerRemovalOnHost, LeavesADomainRootThatCannotBeRenamed)
{
    makeDirectory(home);
    std::string const saved = domain + ".OrvekSaved." + inodeOf(domain);
    makeDirectory(saved + "/older");
    std::string const error =
        "boost::filesystem::rename: Directory not empty: \"" + domain + "\", \"" + saved + "\"";
    auto const run = inChild([&] {
        failSystemCall(SYS_renameat2, EIO);
        return libraryErrorOf([] { manager().removeDomainRoot("example.com"); }) == error ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(namesIn(domain), ElementsAre("info"));
    EXPECT_THAT(namesIn(saved), ElementsAre("older"));
}

TEST_F(MaildirManagerRemovalOnHost, RemovesNothingWhereAFileStandsInTheWay)
{
    writeFile(domain, "kept");
    manager().removeMailnameHome("example.com", "info");
    EXPECT_EQ(readFile(domain), "kept");
}

TEST_F(MaildirManagerRemovalOnHost, RaisesTheLibrarysErrorForAnUnremovableHome)
{
    makeDirectory(home);
    ASSERT_EQ(system(("mount -t tmpfs tmpfs " + home).c_str()), 0);
    EXPECT_EQ(libraryErrorOf([] { manager().removeMailnameHome("example.com", "info"); }),
              "boost::filesystem::remove_all: Device or resource busy: \"" + home + "\"");
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(home));
}

TEST_F(MaildirManagerRemovalOnHost, TakesNoUnopenedRootForAMissingOne)
{
    std::filesystem::remove_all(root);
    std::filesystem::create_symlink("mailnames", root);
    // A configuration that is missing is looked for again at each question.
    auto const run = inChild([] {
        // Still reachable, so that they are no leaks.
        static auto const* const readBefore = std::exchange(theOrvConfHash, nullptr);
        static auto const* const rootBefore =
            std::exchange(theOrvConfArray[_ORVEK_MAILNAMES_D_INDEX], nullptr);
        static_cast<void>(readBefore);
        static_cast<void>(rootBefore);
        std::filesystem::rename("/etc/orv/orv.conf", "/etc/orv/aside");
        std::string const error = libraryErrorOf([] { manager().removeDomainRoot("example.com"); });
        std::filesystem::rename("/etc/orv/aside", "/etc/orv/orv.conf");
        return error.find("Too many levels") != std::string::npos ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    std::filesystem::remove(root);
}

TEST_F(MaildirManagerRemovalOnHost, TouchesNothingForANameThatLeadsElsewhere)
{
    makeDirectory(home);
    for (char const* const name : {"", ".", "..", "example.com/info"}) {
        EXPECT_NE(fsErrorOf([&] { manager().createDomainRoot(name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().createMailnameHome("example.com", name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().removeDomainRoot(name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().removeMailnameHome("example.com", name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().backupDomainRoot(name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().renameDomainRoot("example.com", name); }), "");
        EXPECT_NE(fsErrorOf([&] { manager().renameMailnameHome("example.com", name, "b"); }), "");
    }
    EXPECT_EQ(rightsBelow(root).size(), 2U);
}
