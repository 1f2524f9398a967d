#include "maildir/maildir_manager.h"

#include "maildir/maildirpp_manager.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/rights.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

using orvek::mail::FSError;
using orvek::mail::MaildirManager;
using orvek::mail::MaildirPPManager;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

// The calls of one function that fail, counted from 1, and how; the others are made.
struct Fault
{
    int first = 0;
    int last = -1;
    int error = 0;
    int calls = 0;

    bool fails()
    {
        ++calls;
        if (calls < first || calls > last)
            return false;
        errno = error;
        return true;
    }
};

Fault chown_fault;
Fault chmod_fault;
bool without_popuser = false;

} // namespace

extern "C" {

int __real_chown(char const* name, uid_t uid, gid_t gid);
int __real_chmod(char const* name, mode_t mode);
passwd* __real_getpwnam(char const* name);

int __wrap_chown(char const* name, uid_t uid, gid_t gid)
{
    return chown_fault.fails() ? -1 : __real_chown(name, uid, gid);
}

int __wrap_chmod(char const* name, mode_t mode)
{
    return chmod_fault.fails() ? -1 : __real_chmod(name, mode);
}

passwd* __wrap_getpwnam(char const* name)
{
    return without_popuser ? nullptr : __real_getpwnam(name);
}

} // extern "C"

namespace {

std::string const root = "/var/qmail/mailnames";

// Owned as popuser's: "drwx------ popuser:popuser".
std::string popusers(std::string const& kindAndMode)
{
    return kindAndMode + " popuser:popuser";
}

void makeDirectory(std::string const& path)
{
    std::filesystem::create_directories(path);
}

mode_t currentMask()
{
    mode_t const mask = umask(0);
    umask(mask);
    return mask;
}

// The names in a directory.
std::vector<std::string> namesIn(std::string const& directory)
{
    std::vector<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename());
    return names;
}

// What the error that code raises says; empty when it raises none.
template<typename Error>
std::string errorOf(std::function<void()> const& code)
{
    try {
        code();
    } catch (Error const& e) {
        EXPECT_EQ(typeid(e), typeid(Error));
        return e.what();
    }
    return "";
}

std::string fsErrorOf(std::function<void()> const& code)
{
    return errorOf<FSError>(code);
}

std::string libraryErrorOf(std::function<void()> const& code)
{
    return errorOf<boost::filesystem::filesystem_error>(code);
}

std::string inodeOf(std::string const& path)
{
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    return std::to_string(info.st_ino);
}

class Manager : public MaildirManager
{
public:
    Manager() = default;
    int userId() const { return uid; }
    int groupId() const { return gid; }
};

class MaildirManagerOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        mask = umask(0027);
        chown_fault = {};
        chmod_fault = {};
        std::filesystem::remove_all(root);
        makeDirectory(root);
        ready = true;
    }
    void TearDown() override
    {
        if (!ready)
            return;
        EXPECT_EQ(currentMask(), mode_t{0027}) << "the umask did not come back";
        umask(mask);
        chown_fault = {};
        chmod_fault = {};
        std::filesystem::remove_all(root);
        makeDirectory(root);
    }

    // Not the one instance, which must not exist yet where its making is looked at.
    static Manager const& manager()
    {
        static Manager const instance;
        return instance;
    }

    std::string const domain = root + "/example.com";
    std::string const home = domain + "/info";

private:
    mode_t mask = 0;
    bool ready = false;
};

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
}

// ---------------------------------------------------------------------------------- creating

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

TEST_F(MaildirManagerOnHost, RaisesTheLibrarysErrorWhenAFileStandsInADomainRootsPlace)
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
    chmod_fault = {1, 1, EROFS};
    EXPECT_EQ(fsErrorOf([] { manager().createDomainRoot("example.com"); }),
              "chmod: Read-only file system: \"" + domain + "\"");
    EXPECT_EQ(rightsOf(domain), popusers("drwx------"));
}

TEST_F(MaildirManagerOnHost, TriesOwnerAndModeAgainAfterASignal)
{
    chown_fault = {1, 3, EINTR};
    chmod_fault = {1, 2, EINTR};
    manager().createDomainRoot("example.com");
    EXPECT_EQ(chown_fault.calls, 4);
    EXPECT_EQ(chmod_fault.calls, 3);
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

TEST_F(MaildirManagerOnHost, MakesAMissingDomainRootOfAHomePrivateToRoot)
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

TEST_F(MaildirManagerOnHost, LeavesNoHomeInWhichADirectoryCannotBeMade)
{
    makeDirectory(home + "/Maildir");
    writeFile(home + "/Maildir/.Spam", "a file in its place");
    errno = 0;
    EXPECT_EQ(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "boost::filesystem::create_directory: File exists: \"" + home + "/Maildir/.Spam\"");
    EXPECT_FALSE(std::filesystem::exists(home));
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, LeavesNoHomeInWhichADirectoryCannotBeGivenAway)
{
    chown_fault = {6, 6, EPERM}; // the home's own is the first
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chown: Operation not permitted: \"" + home + "/Maildir/.Spam\"");
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, LeavesNoHomeInWhichTheLastModeCannotBeSetAndKeepsErrno)
{
    chmod_fault = {10, 10, EROFS};
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chmod: Read-only file system: \"" + home + "/@attachments\"");
    EXPECT_EQ(errno, EROFS);
    EXPECT_THAT(namesIn(domain), IsEmpty());
}

TEST_F(MaildirManagerOnHost, RemovesNothingOutsideAHomeThatFails)
{
    TempDir const elsewhere;
    writeFile(elsewhere / "file", "kept");
    makeDirectory(home);
    std::filesystem::create_symlink(elsewhere.path(), home + "/link");
    writeFile(home + "/@attachments", "");
    EXPECT_NE(libraryErrorOf([] { manager().createMailnameHome("example.com", "info"); }), "");
    EXPECT_FALSE(std::filesystem::exists(home));
    EXPECT_EQ(readFile(elsewhere / "file"), "kept");
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
    chmod_fault = {1, 1, EROFS};
    EXPECT_EQ(fsErrorOf([] { manager().createMailnameHome("example.com", "info"); }),
              "chmod: Read-only file system: \"" + home + "\"");
    EXPECT_EQ(rightsOf(home), popusers("drwx------"));
    EXPECT_THAT(namesIn(home), IsEmpty());
}

// ---------------------------------------------------------------------------------- renaming

TEST_F(MaildirManagerOnHost, RenamesAHome)
{
    manager().createMailnameHome("example.com", "info");
    writeFile(home + "/Maildir/new/letter", "text");
    manager().renameMailnameHome("example.com", "info", "office");
    EXPECT_THAT(namesIn(domain), ElementsAre("office"));
    EXPECT_EQ(readFile(domain + "/office/Maildir/new/letter"), "text");
}

TEST_F(MaildirManagerOnHost, RenamesADomainRoot)
{
    makeDirectory(home);
    manager().renameDomainRoot("example.com", "example.net");
    EXPECT_THAT(namesIn(root), ElementsAre("example.net"));
    EXPECT_THAT(namesIn(root + "/example.net"), ElementsAre("info"));
}

TEST_F(MaildirManagerOnHost, MergesNoDirectories)
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

TEST_F(MaildirManagerOnHost, RaisesTheLibrarysErrorForAMissingSource)
{
    EXPECT_EQ(libraryErrorOf([] { manager().renameDomainRoot("example.com", "example.net"); }),
              "boost::filesystem::rename: No such file or directory: \"" + domain + "\", \"" +
                  root + "/example.net\"");
    EXPECT_NE(libraryErrorOf([] { manager().renameMailnameHome("example.com", "a", "b"); }), "");
}

// ------------------------------------------------------------------------------- backing up

TEST_F(MaildirManagerOnHost, BacksUpADomainRootAndAHomeNextToWhereTheyStood)
{
    makeDirectory(home);
    std::string const homesInode = inodeOf(home);
    std::string const domainsInode = inodeOf(domain);
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(domain), ElementsAre("info.OrvekSaved." + homesInode));
    manager().backupDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com.OrvekSaved." + domainsInode));
}

TEST_F(MaildirManagerOnHost, BacksUpNothingOfWhatDoesNotExist)
{
    manager().backupDomainRoot("example.com");
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(root), IsEmpty());
    writeFile(domain, "a file in the way");
    manager().backupMailnameHome("example.com", "info");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com"));
}

TEST_F(MaildirManagerOnHost, LeavesWhatCannotBeLookedAtForABackup)
{
    std::filesystem::create_symlink("example.com", domain);
    std::string const loop = ": Too many levels of symbolic links: \"";
    EXPECT_EQ(fsErrorOf([] { manager().backupDomainRoot("example.com"); }),
              "rename" + loop + domain + "\"");
    EXPECT_EQ(fsErrorOf([] { manager().backupMailnameHome("example.com", "info"); }),
              "rename" + loop + home + "\"");
    EXPECT_THAT(namesIn(root), ElementsAre("example.com"));
}

// --------------------------------------------------------------------------------- removing

TEST_F(MaildirManagerOnHost, RemovesAHomeWholeAndNothingElse)
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

TEST_F(MaildirManagerOnHost, RemovesADomainRootWholeAndNothingElse)
{
    manager().createMailnameHome("example.com", "info");
    makeDirectory(root + "/example.net");
    makeDirectory(domain + ".OrvekSaved.1");
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), UnorderedElementsAre("example.net", "example.com.OrvekSaved.1"));
    manager().removeDomainRoot("example.com");
}

TEST_F(MaildirManagerOnHost, FollowsNoLinkWhenItRemoves)
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

TEST_F(MaildirManagerOnHost, RemovesALinkThatCannotBeLookedAt)
{
    std::filesystem::create_symlink("example.com", domain);
    manager().removeDomainRoot("example.com");
    EXPECT_THAT(namesIn(root), IsEmpty());
}

TEST_F(MaildirManagerOnHost, LeavesWhatCannotBeRemovedOfADomainRootUnderItsSavedName)
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

TEST_F(MaildirManagerOnHost, RemovesNothingWhereAFileStandsInTheWay)
{
    writeFile(domain, "kept");
    manager().removeMailnameHome("example.com", "info");
    EXPECT_EQ(readFile(domain), "kept");
}

TEST_F(MaildirManagerOnHost, RaisesTheLibrarysErrorForAHomeThatCannotBeRemoved)
{
    makeDirectory(home);
    ASSERT_EQ(system(("mount -t tmpfs tmpfs " + home).c_str()), 0);
    EXPECT_EQ(libraryErrorOf([] { manager().removeMailnameHome("example.com", "info"); }),
              "boost::filesystem::remove_all: Device or resource busy: \"" + home + "\"");
    EXPECT_EQ(system(("umount " + home).c_str()), 0);
    EXPECT_TRUE(std::filesystem::exists(home));
}

TEST_F(MaildirManagerOnHost, TouchesNothingForANameThatLeadsElsewhere)
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
