#include "mail/lib/accounts/mail_auth_init.h"

#include "mail/lib/accounts/mail_auth_users.h"
#include "support/auth_database_test.h"
#include "support/host_test.h"
#include "support/ordinary_user.h"
#include "support/rights.h"
#include "support/set_aside.h"

#include <cerrno>
#include <filesystem>
#include <memory>

#include <libgen.h>
#include <pwd.h>
#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

int dirname_error = 0;
int getpwnam_error = -1; // -1: no failure; 0: an unknown user, which leaves errno as it is

} // namespace

extern "C" {

char* __real_dirname(char* path);
passwd* __real_getpwnam(char const* name);

char* __wrap_dirname(char* path)
{
    if (dirname_error == 0)
        return __real_dirname(path);
    errno = dirname_error;
    return nullptr;
}

passwd* __wrap_getpwnam(char const* name)
{
    if (getpwnam_error < 0)
        return __real_getpwnam(name);
    if (getpwnam_error > 0)
        errno = getpwnam_error;
    return nullptr;
}

} // extern "C"

namespace {

class MailAuthInit : public AuthDatabaseTest
{
protected:
    void TearDown() override
    {
        dirname_error = 0;
        AuthDatabaseTest::TearDown();
    }

    // Uses another path for the database for the rest of the test.
    void setPath(std::string const& name)
    {
        other = name;
        mailAuthDBSetPath(other.c_str());
    }

    static void reportOnStreams()
    {
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
    }
    std::string other;
};

constexpr uid_t same_uid = static_cast<uid_t>(-1);
constexpr gid_t same_gid = static_cast<gid_t>(-1);

class MailAuthInitStyleOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        for (char const* const directory : {"/var/spool/postfix/orvek", "/var/lib/orvek/mail/auth"})
            own.push_back(std::make_unique<SetAside>(directory));
    }
    void TearDown() override
    {
        getpwnam_error = -1;
        mailAuthDBSetPath(first);
    }

    LogRecorder const recorder;

private:
    std::vector<std::unique_ptr<SetAside>> own;
    char const* const first = mailAuthDB;
};

} // namespace

TEST_F(MailAuthInit, CreatesAnEmptyDatabaseAndItsDirectories)
{
    setPath(directory / "a/b/c/passwd.db");
    EXPECT_EQ(mailAuthDBInit(), 0);
    EXPECT_THAT(rowsOf(other, "SELECT count(*) FROM sqlite_master WHERE name NOT LIKE 'sqlite%'"),
                ElementsAre("8"));
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthInit, DestroysTheDatabaseThatWasThere)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthDBInit(), 0);
    EXPECT_THAT(users(), IsEmpty());
    EXPECT_THAT(domains(), IsEmpty());
    writeFile(path, "no database at all");
    EXPECT_EQ(mailAuthDBInit(), 0);
    EXPECT_THAT(domains(), IsEmpty());
}

TEST_F(MailAuthInit, RunsTheScriptInOneCallWithWritersTimeout)
{
    EXPECT_EQ(mailAuthDBInit(), 0);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "exec", "close"));
}

TEST_F(MailAuthInit, ReportsAFileInTheWayOfTheDirectory)
{
    writeFile(directory / "file", "");
    setPath(directory / "file/below/passwd.db");
    EXPECT_EQ(mailAuthDBInit(), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(2, "recursive mkdir(" + (directory / "file/below") +
                                                   ") failed: Not a directory")));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(MailAuthInit, ReportsAPathThatIsADirectory)
{
    setPath(directory / "dir/passwd.db");
    std::filesystem::create_directories(other);
    EXPECT_EQ(mailAuthDBInit(), -1);
    EXPECT_THAT(reports(), ElementsAre(Pair(3, "Unable to open database " + other +
                                                   ": unable to open database file")));
}

TEST_F(MailAuthInit, ReportsAScriptThatFails)
{
    chmod(path.c_str(), 0444);
    chmod(directory.path().c_str(), 0555);
    ChildRun const run = asOrdinaryUser([] {
        reportOnStreams();
        return mailAuthDBInit() == -1 ? 0 : 1;
    });
    chmod(directory.path().c_str(), 0755);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to re-create Mail Authentication Database: table domains already "
                       "exists\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(MailAuthInit, ReportsAScriptThatFailsWithoutAText)
{
    spy.fault("exec", 1, SQLITE_NOMEM);
    EXPECT_EQ(mailAuthDBInit(), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(3, "Unable to re-create Mail Authentication Database")));
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "exec", "close"));
}

TEST_F(MailAuthInit, EndsOnTheSpotWhenTheWaitIsRefused)
{
    spy.fault("exec", 1, SQLITE_BUSY, 9);
    spy.fault("nanosleep", 1);
    EXPECT_EQ(mailAuthDBInit(), -1);
    EXPECT_THAT(spy.calls, ElementsAre("open_v2", "exec", "exec", "nanosleep"));
    EXPECT_THAT(reports(), IsEmpty());
    spy.closeAbandoned();
}

TEST_F(MailAuthInit, SaysThatThereIsNoMemoryForThePath)
{
    for (bool const access : {false, true}) {
        LogRecorder::reports().clear();
        AllocationFailure const failure(1);
        EXPECT_EQ(access ? mailAuthDBSetAccess(same_uid, same_gid, 0750, 0600) : mailAuthDBInit(),
                  -1);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_THAT(reports(), ElementsAre(Pair(2, "Memory allocation error")));
    }
}

TEST_F(MailAuthInit, ReportsADirectoryThatCannotBeNamed)
{
    dirname_error = ENAMETOOLONG;
    EXPECT_EQ(mailAuthDBInit(), -1);
    EXPECT_EQ(mailAuthDBSetAccess(same_uid, same_gid, 0750, 0600), -1);
    Report const report = {2, "dirname(" + path + ") failed: File name too long"};
    EXPECT_THAT(reports(), ElementsAre(report, report));
    EXPECT_THAT(spy.calls, IsEmpty());
}

TEST_F(MailAuthInit, GivesTheDirectoryAndTheFileTheirModes)
{
    EXPECT_EQ(mailAuthDBSetAccess(geteuid(), getegid(), 0751, 0460), 0);
    EXPECT_EQ(modeOf(directory.path()), 0751U);
    EXPECT_EQ(modeOf(path), 0460U);
    EXPECT_EQ(mailAuthDBSetAccess(same_uid, same_gid, 0700, 0600), 0);
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthInit, RefusesARelativePathAndTheRootDirectory)
{
    for (char const* const name :
         {"passwd.db", "dir/passwd.db", "/passwd.db", "//passwd.db", "///passwd.db"}) {
        LogRecorder::reports().clear();
        setPath(name);
        EXPECT_EQ(mailAuthDBSetAccess(same_uid, same_gid, 0755, 0600), -1);
        EXPECT_THAT(reports(), ElementsAre(Pair(2, "Invalid mail authentication DB path " +
                                                       std::string(name))));
    }
}

TEST_F(MailAuthInit, ReportsAnOwnerThatCannotBeSet)
{
    setPath(directory / "no/passwd.db");
    EXPECT_EQ(mailAuthDBSetAccess(12, same_gid, 0751, 0640), -1);
    EXPECT_EQ(errno, ENOENT);
    setPath(directory / "other.db");
    EXPECT_EQ(mailAuthDBSetAccess(geteuid(), same_gid, 0700, 0640), -1);
    EXPECT_THAT(reports(),
                ElementsAre(Pair(2, "chown(\"" + (directory / "no") +
                                        "\", 12, -1) failed: No such file or directory"),
                            Pair(2, "chown(\"" + other + "\", " + std::to_string(geteuid()) +
                                        ", -1) failed: No such file or directory")));
}

TEST_F(MailAuthInit, KeepsADirectorysModeWhenItsOwnerStays)
{
    chmod(directory.path().c_str(), 0777);
    setPath(directory / "own/passwd.db");
    ChildRun const run = asOrdinaryUser([this] {
        reportOnStreams();
        std::filesystem::create_directory(directory / "own");
        chmod((directory / "own").c_str(), 0700);
        return mailAuthDBSetAccess(0, same_gid, 0751, 0640) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              "chown(\"" + (directory / "own") + "\", 0, -1) failed: Operation not permitted\n");
    EXPECT_EQ(modeOf(directory / "own"), 0700U);
}

TEST_F(MailAuthInit, ReportsAModeOfTheDirectoryThatCannotBeSet)
{
    setPath("/usr/passwd.db");
    ChildRun const run = asOrdinaryUser([] {
        reportOnStreams();
        return mailAuthDBSetAccess(same_uid, same_gid, 0751, 0640) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "chmod(\"/usr\", 0751) failed: Operation not permitted\n");
}

TEST_F(MailAuthInit, ReportsTheFilesModeAsTheDirectorysMode)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make a file in a directory of somebody else";
    chmod(directory.path().c_str(), 0777);
    setPath(directory / "own/passwd.db");
    ASSERT_TRUE(std::filesystem::create_directory(directory / "own"));
    writeFile(other, "");
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(chown((directory / "own").c_str(), nobody, nobody), 0);
    ChildRun const run = asOrdinaryUser([] {
        reportOnStreams();
        return mailAuthDBSetAccess(same_uid, same_gid, 0751, 0640) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "chmod(\"" + other + "\", 0751) failed: Operation not permitted\n");
}

TEST_F(MailAuthInit, GivesNoRightsOverALink)
{
    std::string const target = directory / "target";
    writeFile(target, "");
    chmod(target.c_str(), 0600);
    setPath(directory / "own/passwd.db");
    std::filesystem::create_directory(directory / "own");
    std::filesystem::create_symlink(target, other);
    EXPECT_EQ(mailAuthDBSetAccess(same_uid, same_gid, 0751, 0666), -1);
    std::filesystem::remove(other);
    std::filesystem::create_hard_link(target, other);
    EXPECT_EQ(mailAuthDBSetAccess(same_uid, same_gid, 0751, 0666), -1);
    EXPECT_EQ(modeOf(target), 0600U);
}

TEST_F(MailAuthInit, TouchesNothingForAStyleWithoutADatabase)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    EXPECT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_INVALID_STYLE), -1);
    EXPECT_EQ(mailAuthDB, path.c_str());
    EXPECT_THAT(users(), ElementsAre("a.com|0|joe|pw|NULL|0"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthInitStyleOnHost, GivesThePostfixStyleToThePostfixUser)
{
    ASSERT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_POSTFIX_STYLE), 0);
    EXPECT_EQ(rightsOf("/var/spool/postfix/orvek"), "drwxrwx--- postfix:root");
    EXPECT_EQ(rightsOf("/var/spool/postfix/orvek/passwd.db"), "-r--rw---- postfix:root");
    EXPECT_STREQ(mailAuthDB, "/var/spool/postfix/orvek/passwd.db");
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

TEST_F(MailAuthInitStyleOnHost, GivesTheQmailStyleToRoot)
{
    ASSERT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_QMAIL_STYLE), 0);
    EXPECT_EQ(rightsOf("/var/lib/orvek/mail/auth"), "drwxr-x--- root:root");
    EXPECT_EQ(rightsOf("/var/lib/orvek/mail/auth/passwd.db"), "-rw------- root:root");
    EXPECT_STREQ(mailAuthDB, "/var/lib/orvek/mail/auth/passwd.db");
    EXPECT_THAT(LogRecorder::reports(), IsEmpty());
}

TEST_F(MailAuthInitStyleOnHost, SetsNoRightsWhenTheDatabaseCannotBeMade)
{
    for (MailAuthDBStyle const style : {MAIL_AUTH_DB_QMAIL_STYLE, MAIL_AUTH_DB_POSTFIX_STYLE}) {
        LogRecorder::reports().clear();
        mailAuthDBSelectStyle(style);
        std::string const file = mailAuthDB;
        std::string const directory = std::filesystem::path(file).parent_path();
        std::filesystem::create_directories(file);
        chmod(directory.c_str(), 0711);
        EXPECT_EQ(mailAuthDBInitStyle(style), -1);
        EXPECT_THAT(LogRecorder::reports(),
                    ElementsAre(Pair(3, "Unable to open database " + file +
                                            ": unable to open database file")));
        EXPECT_EQ(rightsOf(directory), "drwx--x--x root:root");
    }
}

TEST_F(MailAuthInitStyleOnHost, DestroysNothingWithoutTheUserPostfix)
{
    ASSERT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_POSTFIX_STYLE), 0);
    ASSERT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    getpwnam_error = ENOENT;
    EXPECT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_POSTFIX_STYLE), -1);
    EXPECT_THAT(LogRecorder::reports(),
                ElementsAre(Pair(2, "Unable to get user id for \"postfix\": No such file or "
                                    "directory")));
    EXPECT_THAT(rowsOf(mailAuthDB, "SELECT name FROM users"), ElementsAre("joe"));
}

TEST_F(MailAuthInitStyleOnHost, SaysNoOldErrorOfAMissingUserPostfix)
{
    getpwnam_error = 0;
    errno = ENOSPC;
    EXPECT_EQ(mailAuthDBInitStyle(MAIL_AUTH_DB_POSTFIX_STYLE), -1);
    EXPECT_THAT(LogRecorder::reports(),
                ElementsAre(Pair(2, "Unable to get user id for \"postfix\": Success")));
}
