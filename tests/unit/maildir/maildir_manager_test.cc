#include "maildir/maildir_manager.h"

#include "maildir/maildirpp_manager.h"
#include "support/child_run.h"
#include "support/maildir_manager_test.h"
#include "support/mailnames_root.h"
#include "support/rights.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>

#include <pwd.h>
#include <sys/stat.h>

using namespace maildir_manager_test;
using orvek::mail::MaildirManager;
using orvek::mail::MaildirPPManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

using MaildirManagerOnHost = MaildirManagerTest;

} // namespace

// ----------------------------------------------------------------------- the instance, paths

TEST(MaildirManager, RefusesToExistWithoutItsUser)
{
    without_popuser = true;
    std::string const error = errorOf<orvek::SystemError>([] { Manager const instance; });
    without_popuser = false;
    EXPECT_EQ(error, "user popusernot found: Success");
}

TEST(MaildirManager, FormsPathsFromNames)
{
    EXPECT_EQ(MaildirManager::getDomainRelativeRoot("example.com"), "example.com");
    EXPECT_EQ(MaildirManager::getMailnameRelativeHome("example.com", "info"), "example.com/info");
    EXPECT_EQ(MaildirManager::getMailnameRelativeHome("%s", " a b"), "%s/ a b");
}

TEST(MaildirManager, RefusesNamesThatLeadElsewhere)
{
    for (char const* const name : {"", ".", "..", "/", "a/b", "../x"}) {
        std::string const expected =
            "not a name of a mail directory: Invalid argument: \"" + std::string(name) + "\"";
        auto const withoutName = [&](std::string const& text) {
            return *name == '\0' ? text.substr(0, text.find(": \"")) : text;
        };
        EXPECT_EQ(fsErrorOf([&] { MaildirManager::getDomainRelativeRoot(name); }),
                  withoutName(expected));
        EXPECT_EQ(fsErrorOf([&] { MaildirManager::getMailnameHome("d", name); }),
                  withoutName(expected));
        EXPECT_EQ(fsErrorOf([&] { MaildirManager::getMailnameRelativeHome(name, "m"); }),
                  withoutName(expected));
    }
}

TEST_F(MaildirManagerOnHost, IsOneInstanceForBothClasses)
{
    auto const run = inChild([] {
        MaildirManager const* const first = &MaildirManager::getInstance();
        return first == &MaildirPPManager::getInstance() && first == &MaildirManager::getInstance()
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(MaildirManagerOnHost, LooksForItsUserAgainAfterAFirstFailure)
{
    auto const run = inChild([] {
        without_popuser = true;
        try {
            MaildirManager::getInstance();
            return 1;
        } catch (orvek::SystemError const&) {
        }
        without_popuser = false;
        MaildirManager::getInstance().createDomainRoot("example.com");
        return 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err + run.out, "");
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
}

TEST_F(MaildirManagerOnHost, LooksForItsUserAtEachCall)
{
    auto const run = inChild([] {
        MaildirManager::getInstance();
        without_popuser = true;
        try {
            MaildirManager::getInstance();
        } catch (orvek::SystemError const&) {
            return 0;
        }
        return 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(MaildirManagerOnHost, HasTheUsersIds)
{
    passwd const* const user = getpwnam("popuser");
    ASSERT_NE(user, nullptr);
    Manager const instance;
    EXPECT_EQ(static_cast<uid_t>(instance.userId()), user->pw_uid);
    EXPECT_EQ(static_cast<gid_t>(instance.groupId()), user->pw_gid);
}

TEST_F(MaildirManagerOnHost, PutsHomesBelowTheConfiguredRoot)
{
    EXPECT_EQ(MaildirManager::getMailnameHome("example.com", "info"), home);
    MailnamesRoot const other("/srv/mail");
    EXPECT_EQ(MaildirManager::getMailnameHome("example.com", "info"), "/srv/mail/example.com/info");
    manager().createDomainRoot("example.com");
    manager().createMailnameHome("example.com", "info");
    EXPECT_EQ(rightsOf("/srv/mail/example.com"), popusers("drwxr-x---"));
    EXPECT_EQ(rightsOf("/srv/mail/example.com/info/@attachments"), popusers("drwx------"));
    EXPECT_THAT(namesIn(root), IsEmpty());
}

// ---------------------------------------------------------------------------------- creating

TEST_F(MaildirManagerOnHost, MakesAMissingRootHoweverItsPathEnds)
{
    for (char const* const end : {"/", "//"}) {
        MailnamesRoot const spelled(std::string("/srv/new/mail") + end);
        std::filesystem::remove_all("/srv/new");
        manager().createDomainRoot("example.com");
        EXPECT_EQ(rightsOf("/srv/new/mail/example.com"), popusers("drwxr-x---")) << end;
        EXPECT_THAT(namesIn("/srv/new/mail"), ElementsAre("example.com"));
    }
}

TEST_F(MaildirManagerOnHost, CreatesADomainRootForItsUserWhateverTheUmask)
{
    umask(0777);
    manager().createDomainRoot("example.com");
    EXPECT_EQ(currentMask(), mode_t{0777});
    umask(0027);
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, MakesMissingParentsOfADomainRootPrivateToRoot)
{
    std::filesystem::remove_all(root);
    umask(0);
    manager().createDomainRoot("example.com");
    umask(0027);
    EXPECT_EQ(rightsOf(root), "drwx------ root:root");
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
}

TEST_F(MaildirManagerOnHost, CorrectsOwnerAndModeOfADomainRootThatExists)
{
    makeDirectory(domain);
    chmod(domain.c_str(), 0777);
    writeFile(domain + "/file", "kept");
    manager().createDomainRoot("example.com");
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
    EXPECT_EQ(readFile(domain + "/file"), "kept");
    EXPECT_EQ(rightsOf(domain + "/file"), "-rw-r----- root:root");
}

TEST_F(MaildirManagerOnHost, RaisesTheLibrarysErrorForAFileAtARoot)
{
    writeFile(domain, "file");
    EXPECT_THAT(libraryErrorOf([] { manager().createDomainRoot("example.com"); }),
                ::testing::StartsWith("boost::filesystem::create_director"));
    EXPECT_EQ(readFile(domain), "file");
}

TEST_F(MaildirManagerOnHost, LeavesADomainRootThatCannotBeGivenAway)
{
    chown_fault = {1, 1, EPERM};
    EXPECT_EQ(fsErrorOf([] { manager().createDomainRoot("example.com"); }),
              "chown: Operation not permitted: \"" + domain + "\"");
    EXPECT_EQ(rightsOf(domain), "drwx------ root:root");
}

TEST_F(MaildirManagerOnHost, LeavesADomainRootWhoseModeCannotBeSet)
{
    chmod_fault = {2, 2, EROFS}; // the first chmod gives a new directory root's mode
    EXPECT_EQ(fsErrorOf([] { manager().createDomainRoot("example.com"); }),
              "chmod: Read-only file system: \"" + domain + "\"");
    EXPECT_EQ(rightsOf(domain), popusers("drwx------"));
}

TEST_F(MaildirManagerOnHost, TriesOwnerAndModeAgainAfterASignal)
{
    chown_fault = {1, 3, EINTR};
    chmod_fault = {2, 3, EINTR};
    manager().createDomainRoot("example.com");
    EXPECT_EQ(chown_fault.calls, 4);
    EXPECT_EQ(chmod_fault.calls, 4);
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
}

TEST_F(MaildirManagerOnHost, CreatesAHomeWithItsNineDirectoriesWhateverTheUmask)
{
    manager().createDomainRoot("example.com");
    for (mode_t const mask : {mode_t{0}, mode_t{0777}}) {
        umask(mask);
        manager().createMailnameHome("example.com", "info");
        EXPECT_EQ(currentMask(), mask);
        umask(0027);
        std::string const expected = popusers("drwx------");
        EXPECT_EQ(rightsOf(home), expected);
        EXPECT_EQ(rightsBelow(home), (std::map<std::string, std::string>{
                                         {"Maildir", expected},
                                         {"Maildir/tmp", expected},
                                         {"Maildir/new", expected},
                                         {"Maildir/cur", expected},
                                         {"Maildir/.Spam", expected},
                                         {"Maildir/.Spam/tmp", expected},
                                         {"Maildir/.Spam/new", expected},
                                         {"Maildir/.Spam/cur", expected},
                                         {"@attachments", expected},
                                     }));
        std::filesystem::remove_all(home);
    }
    EXPECT_EQ(rightsOf(domain), popusers("drwxr-x---"));
}

TEST_F(MaildirManagerOnHost, MakesAMissingDomainRootPrivateToRoot)
{
    manager().createMailnameHome("example.com", "info");
    EXPECT_EQ(rightsOf(domain), "drwx------ root:root");
    EXPECT_EQ(rightsOf(home), popusers("drwx------"));
}

TEST_F(MaildirManagerOnHost, CompletesAHomeThatExistsAndKeepsItsMail)
{
    makeDirectory(home + "/Maildir/new");
    chmod((home + "/Maildir/new").c_str(), 0777);
    writeFile(home + "/Maildir/new/letter", "text");
    manager().createMailnameHome("example.com", "info");
    EXPECT_EQ(readFile(home + "/Maildir/new/letter"), "text");
    EXPECT_EQ(rightsOf(home + "/Maildir/new"), popusers("drwx------"));
    EXPECT_EQ(rightsOf(home + "/Maildir/.Spam/cur"), popusers("drwx------"));
}

TEST_F(MaildirManagerOnHost, RemovesOnlyItsOwnDirectoriesFromAnExistingHome)
{
    makeDirectory(home + "/Maildir/new");
    writeFile(home + "/Maildir/new/letter", "text");
    writeFile(home + "/Maildir/.Spam", "a file in its place");
    errno = 0;
    EXPECT_EQ(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "boost::filesystem::create_directory: File exists: \"" + home + "/Maildir/.Spam\"");
    EXPECT_THAT(namesIn(home), ElementsAre("Maildir"));
    EXPECT_THAT(namesIn(home + "/Maildir"), UnorderedElementsAre("new", ".Spam"));
    EXPECT_EQ(readFile(home + "/Maildir/new/letter"), "text");
}

TEST_F(MaildirManagerOnHost, LeavesWhatOthersPutIntoANewHomeThatFails)
{
    // The mail user adds a letter before the step fails.
    chown_fault = {10, 10, EPERM};
    chown_fault.before = [this] { writeFile(home + "/Maildir/new/letter", "text"); };
    EXPECT_NE(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }), "");
    EXPECT_EQ(readFile(home + "/Maildir/new/letter"), "text");
    EXPECT_THAT(namesIn(home + "/Maildir"), ElementsAre("new"));
}

TEST_F(MaildirManagerOnHost, LeavesNoHomeWhenADirectorysOwnerFails)
{
    chown_fault = {6, 6, EPERM}; // the first one is for the home itself
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chown: Operation not permitted: \"" + home + "/Maildir/.Spam\"");
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, LeavesNoHomeWhenTheLastModeFails)
{
    chmod_fault = {21, 21, EROFS}; // once for the domain, twice for the home and each directory
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chmod: Read-only file system: \"" + home + "/@attachments\"");
    EXPECT_EQ(errno, EROFS);
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, FollowsNoLinkWhenItMakesOrGivesAway)
{
    TempDir const elsewhere;
    std::string const before = rightsOf(elsewhere.path());
    std::string const loop = "Too many levels of symbolic links: \"";
    makeDirectory(home + "/Maildir");
    for (std::string const name : {"@attachments", "Maildir/.Spam", "Maildir/tmp", "Maildir"}) {
        std::filesystem::remove_all(home + "/" + name);
        std::filesystem::create_symlink(elsewhere.path(), home + "/" + name);
        EXPECT_EQ(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
                  "boost::filesystem::create_directory: " + loop + home + "/" + name + "\"");
    }
    for (std::string const& name : {home, domain}) {
        std::filesystem::remove_all(name);
        std::filesystem::create_symlink(elsewhere.path(), name);
        EXPECT_EQ(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
                  "boost::filesystem::create_directories: " + loop + home + "\"");
    }
    EXPECT_EQ(libraryErrorOf([] { manager().createDomainRoot("example.com"); }),
              "boost::filesystem::create_directories: " + loop + domain + "\"");
    EXPECT_THAT(namesIn(elsewhere.path()), IsEmpty());
    EXPECT_EQ(rightsOf(elsewhere.path()), before);
}

TEST_F(MaildirManagerOnHost, GivesAwayNothingThatTakesADirectorysPlaceMeanwhile)
{
    TempDir const elsewhere;
    std::string const before = rightsOf(elsewhere.path());
    for (int number = 1; number <= 10; ++number) {
        chown_fault = {number, number, 0};
        chown_fault.before = [&] {
            if (rename(home.c_str(), (domain + "/moved").c_str()) == 0)
                std::filesystem::create_symlink(elsewhere.path(), home);
        };
        static_cast<void>(
            libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }));
        EXPECT_EQ(rightsOf(elsewhere.path()), before) << number;
        EXPECT_THAT(namesIn(elsewhere.path()), IsEmpty()) << number;
        std::filesystem::remove_all(domain);
    }
}

TEST_F(MaildirManagerOnHost, FollowsALinkOfTheConfigurationToTheRoot)
{
    TempDir const elsewhere;
    std::filesystem::create_symlink(elsewhere.path(), "/srv/linked");
    MailnamesRoot const other("/srv/linked/mail");
    manager().createMailnameHome("example.com", "info");
    EXPECT_EQ(rightsOf(elsewhere / "mail/example.com/info"), popusers("drwx------"));
    std::filesystem::remove("/srv/linked");
}

TEST_F(MaildirManagerOnHost, RaisesTheFirstErrorWhenRemovalFailsToo)
{
    makeDirectory(home);
    ASSERT_EQ(system(("mount -t tmpfs tmpfs " + home).c_str()), 0);
    chmod_fault = {19, 19, EROFS};
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chmod: Read-only file system: \"" + home + "/@attachments\"");
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
}

TEST_F(MaildirManagerOnHost, LeavesAFileThatStandsInAHomesPlace)
{
    makeDirectory(domain);
    writeFile(home, "file");
    EXPECT_THAT(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
                ::testing::StartsWith("boost::filesystem::create_director"));
    EXPECT_EQ(readFile(home), "file");
}

TEST_F(MaildirManagerOnHost, LeavesAHomeThatCannotItselfBeGivenAway)
{
    makeDirectory(home + "/Maildir/new");
    writeFile(home + "/Maildir/new/letter", "text");
    chown_fault = {1, 1, EPERM};
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chown: Operation not permitted: \"" + home + "\"");
    EXPECT_EQ(readFile(home + "/Maildir/new/letter"), "text");
}

TEST_F(MaildirManagerOnHost, LeavesAHomeWhoseOwnModeCannotBeSet)
{
    chmod_fault = {3, 3, EROFS};
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chmod: Read-only file system: \"" + home + "\"");
    EXPECT_EQ(rightsOf(home), popusers("drwx------"));
    EXPECT_THAT(namesIn(home), IsEmpty());
}
