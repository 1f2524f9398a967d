#include "mail/lib/accounts/mail_authenticate.h"

#include "support/auth_database_test.h"
#include "support/auth_user_data.h"
#include "support/child_run.h"
#include "support/syscall_faults.h"

#include <filesystem>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr uid_t somebody = 12345;
constexpr gid_t some_group = 54321;

class MailAuthWal : public AuthDatabaseTest
{
protected:
    mode_t modeOf(char const* suffix) const
    {
        struct stat info = {};
        EXPECT_EQ(stat((path + suffix).c_str(), &info), 0) << suffix;
        return info.st_mode & 07777;
    }

    std::pair<uid_t, gid_t> ownerOf(char const* suffix) const
    {
        struct stat info = {};
        EXPECT_EQ(stat((path + suffix).c_str(), &info), 0) << suffix;
        return {info.st_uid, info.st_gid};
    }

    // By its header.
    bool walMode() const { return readFile(path).substr(18, 2) == "\2\2"; }

    std::uintmax_t logSize() const { return std::filesystem::file_size(path + "-wal"); }

    // The users in a copy of the file alone.
    std::vector<std::string> usersInCopy() const
    {
        std::string const copy = directory / "copy.db";
        writeFile(copy, readFile(path));
        return rowsOf(copy, "SELECT name FROM users ORDER BY name");
    }
};

// A connection that reads on in the state that it has seen.
class Reader
{
public:
    explicit Reader(std::string const& path)
    {
        sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
        state = sqlite3_exec(db, "BEGIN; SELECT count(*) FROM users", nullptr, nullptr, nullptr);
    }
    ~Reader() { sqlite3_close(db); }
    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;

    int state = SQLITE_ERROR;

private:
    SqliteSpy::Inside const unseen{sqliteSpy()};
    sqlite3* db = nullptr;
};

} // namespace

TEST_F(MailAuthWal, SetsTheModeAtTheFirstChange)
{
    EXPECT_FALSE(walMode());
    EXPECT_EQ(mailAuthRemove("joe", "a.com"), 0);
    EXPECT_FALSE(walMode());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_TRUE(walMode());
    EXPECT_EQ(dataOf("joe", "a.com"), "joe|pw|0");
}

TEST_F(MailAuthWal, LeavesEverythingInTheFileAlone)
{
    for (char const* const name : {"ann", "joe"}) {
        EXPECT_EQ(mailAuthSet(name, "a.com", "pw", 0), 0);
        EXPECT_EQ(logSize(), 0u);
    }
    EXPECT_THAT(usersInCopy(), ElementsAre("ann", "joe"));
    EXPECT_TRUE(std::filesystem::exists(path + "-shm"));
}

TEST_F(MailAuthWal, EmptiesTheLogAfterATransaction)
{
    mailAuthSet("ann", "a.com", "pw", 0);
    {
        MailAuthTransaction const transaction;
        mailAuthSet("joe", "a.com", "pw", 0);
    }
    EXPECT_EQ(logSize(), 0u);
    EXPECT_THAT(usersInCopy(), ElementsAre("ann", "joe"));
}

TEST_F(MailAuthWal, LetsAReaderReadWhileATransactionIsOpen)
{
    mailAuthSet("ann", "a.com", "pw", 0);
    MailAuthTransaction transaction;
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_EQ(Reader(path).state, SQLITE_OK);
    EXPECT_EQ(transaction.commit(), 0);
}

TEST_F(MailAuthWal, ChangesADatabaseThatIsBeingRead)
{
    mailAuthSet("ann", "a.com", "pw", 0);
    std::optional<Reader> reader(path);
    ASSERT_EQ(reader->state, SQLITE_OK);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_GT(logSize(), 0u) << "the reader keeps it";
    reader.reset();
    EXPECT_EQ(mailAuthSet("zed", "a.com", "pw", 0), 0);
    EXPECT_EQ(logSize(), 0u);
    EXPECT_THAT(usersInCopy(), ElementsAre("ann", "joe", "zed"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(MailAuthWal, LetsReadersOfTheDatabaseWriteLogAndIndex)
{
    mode_t const before = umask(077);
    for (auto const& [database, log] : {std::pair<mode_t, mode_t>{0460, 0660},
                                        {0640, 0660},
                                        {0600, 0600},
                                        {0644, 0666},
                                        {0620, 0600}}) {
        ASSERT_EQ(chmod(path.c_str(), database), 0);
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
        EXPECT_EQ(modeOf(""), database);
        EXPECT_EQ(modeOf("-wal"), log);
        EXPECT_EQ(modeOf("-shm"), log);
        for (char const* const suffix : {"-wal", "-shm"})
            unlink((path + suffix).c_str());
    }
    umask(before);
}

TEST_F(MailAuthWal, GivesLogAndIndexToTheReadersOfTheDatabase)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(chown(path.c_str(), somebody, some_group), 0);
    ASSERT_EQ(chmod(path.c_str(), 0440), 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
        for (char const* const suffix : {"-wal", "-shm"}) {
            EXPECT_EQ(ownerOf(suffix), std::pair(somebody, some_group));
            EXPECT_EQ(modeOf(suffix), 0660u);
            // As a reader makes them.
            EXPECT_EQ(chown((path + suffix).c_str(), somebody, 0), 0);
            EXPECT_EQ(chmod((path + suffix).c_str(), 0440), 0);
        }
    }
}

TEST_F(MailAuthWal, UsesNoLogOrIndexOfAnotherOwner)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    for (uid_t const owner : {uid_t(0), somebody})
        for (char const* const suffix : {"-wal", "-shm"}) {
            mailAuthSet("joe", "a.com", "pw", 0);
            std::string const file = path + suffix;
            unlink(file.c_str());
            writeFile(file, "of somebody else");
            ASSERT_EQ(chown(path.c_str(), owner, 0), 0);
            ASSERT_EQ(chown(file.c_str(), somebody - owner, 0), 0);
            ASSERT_EQ(chmod(file.c_str(), 0640), 0);
            LogRecorder::reports().clear();
            EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), -1);
            EXPECT_EQ(readFile(file), "of somebody else");
            EXPECT_EQ(ownerOf(suffix), std::pair(somebody - owner, gid_t(0)));
            EXPECT_EQ(modeOf(suffix), 0640u);
            if (owner == 0) {
                EXPECT_EQ(reports().front(),
                          Report(LOG_ERR, file + " does not belong to the owner of the mail "
                                                 "authentication DB, it is not used"));
            }
            for (char const* const log : {"-wal", "-shm"})
                unlink((path + log).c_str());
        }
}

TEST_F(MailAuthWal, PlaysBackNoJournalOfAnotherOwner)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    std::string const journal = path + "-journal";
    writeFile(journal, "of somebody else");
    ASSERT_EQ(chown(journal.c_str(), somebody, 0), 0);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), -1);
    EXPECT_EQ(readFile(journal), "of somebody else");
    unlink(journal.c_str());
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
}

TEST_F(MailAuthWal, ChangesNoModeOfALogOfRoots)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root has such files";
    mailAuthSet("joe", "a.com", "pw", 0);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    for (char const* const suffix : {"-wal", "-shm"})
        ASSERT_EQ(chmod((path + suffix).c_str(), 0604), 0);
    EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), 0);
    for (char const* const suffix : {"-wal", "-shm"})
        EXPECT_EQ(modeOf(suffix), 0604u);
}

TEST_F(MailAuthWal, MakesLogAndIndexWithOrWithoutUnnamedFiles)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(chown(path.c_str(), somebody, some_group), 0);
    for (bool const unnamed : {true, false}) {
        for (char const* const suffix : {"-wal", "-shm"})
            unlink((path + suffix).c_str());
        writeFile(path + "-wal.new", "of a killed command");
        EXPECT_EQ(inChild([&] {
                      if (!unnamed)
                          failSystemCallWith(SYS_openat, 2, O_TMPFILE | O_RDWR | O_CLOEXEC,
                                             EOPNOTSUPP);
                      return mailAuthSet("joe", "a.com", "pw", 0) == 0 ? 0 : 1;
                  }).status,
                  0);
        for (char const* const suffix : {"-wal", "-shm"})
            EXPECT_EQ(ownerOf(suffix), std::pair(somebody, some_group)) << unnamed;
        EXPECT_EQ(std::filesystem::exists(path + "-wal.new"), unnamed);
        unlink((path + "-wal.new").c_str());
    }
}

TEST_F(MailAuthWal, LetsOnlyRootWriteTheDatabase)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    struct Given
    {
        uid_t owner;
        gid_t group;
        mode_t before;
        mode_t after;
    };
    for (Given const& given : {Given{12345, 54321, 0664, 0444}, Given{12345, 0, 0660, 0460},
                               Given{0, 54321, 0662, 0640}, Given{0, 0, 0664, 0664}}) {
        ASSERT_EQ(chown(path.c_str(), given.owner, given.group), 0);
        ASSERT_EQ(chmod(path.c_str(), given.before), 0);
        EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
        EXPECT_EQ(modeOf(""), given.after);
        EXPECT_EQ(modeOf("-shm"), 0660u | (given.before & 04 ? 06u : 0u));
        for (char const* const suffix : {"-wal", "-shm"})
            unlink((path + suffix).c_str());
    }
    EXPECT_EQ(dataOf("joe", "a.com"), "joe|pw|0");
}

TEST_F(MailAuthWal, LeavesADatabaseInTheOldModeWritable)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(chown(path.c_str(), 12345, 0), 0);
    ASSERT_EQ(chmod(path.c_str(), 0660), 0);
    spy.fault("exec", 1);
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
    EXPECT_FALSE(walMode());
    EXPECT_EQ(modeOf(""), 0660u);
}

TEST_F(MailAuthWal, ReportsOnceThatReadersCannotUseLogOrIndex)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(chown(path.c_str(), somebody, 0), 0);
    mailAuthSet("joe", "a.com", "pw", 0);
    for (char const* const suffix : {"-wal", "-shm"})
        ASSERT_EQ(chmod((path + suffix).c_str(), 0440), 0);
    EXPECT_EQ(inChild([&] {
                  failSystemCall(SYS_fchmod, EPERM);
                  if (mailAuthSet("ann", "a.com", "pw", 0) != 0 ||
                      mailAuthSet("zed", "a.com", "pw", 0) != 0)
                      return 1;
                  std::string const text =
                      "Unable to let the readers of the mail authentication DB use " + path;
                  std::string const why = ": Operation not permitted";
                  std::vector<Report> const expected = {{LOG_ERR, text + "-wal" + why},
                                                        {LOG_ERR, text + "-shm" + why}};
                  return reports() == expected ? 0 : 2;
              }).status,
              0);
}

TEST_F(MailAuthWal, LeavesNoLogThatReadersCannotUse)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
    ASSERT_EQ(chown(path.c_str(), somebody, 0), 0);
    EXPECT_EQ(inChild([&] {
                  failSystemCall(SYS_fchown, EPERM);
                  return mailAuthSet("joe", "a.com", "pw", 0) == -1 ? 0 : 1;
              }).status,
              0);
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
    EXPECT_EQ(mailAuthSet("joe", "a.com", "pw", 0), 0);
}

TEST_F(MailAuthWal, OpensNoFifoInPlaceOfLogOrIndex)
{
    for (char const* const suffix : {"-wal", "-shm"}) {
        mailAuthSet("joe", "a.com", "pw", 0);
        unlink((path + suffix).c_str());
        ASSERT_EQ(mkfifo((path + suffix).c_str(), 0600), 0);
        EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), -1) << suffix;
        unlink((path + suffix).c_str());
        EXPECT_EQ(mailAuthSet("ann", "a.com", "pw", 0), 0) << suffix;
    }
}

TEST_F(MailAuthWal, StartsANewDatabaseWithoutAnOldLog)
{
    mailAuthSet("joe", "a.com", "pw", 0);
    writeFile(path + "-wal", "old");
    EXPECT_EQ(mailAuthDBInit(), 0);
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
    EXPECT_THAT(users(), IsEmpty());
}
