#include "mail/lib/accounts/account_files.h"

#include "mail/lib/accounts/mail_auth_connection.h"
#include "mail/lib/accounts/mail_authenticate.h"
#include "support/auth_database_test.h"
#include "support/fast_clock.h"

#include <cstdint>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr char not_opened[] = ": unable to open database file";

std::string bigEndian(std::uint32_t number)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift);
    return bytes;
}

// The journal of a killed writer. Rolling it back restores the first page and deletes the file that
// it names.
std::string hotJournal(std::string const& database, std::string const& named)
{
    constexpr char magic[] = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
    std::uint32_t const page_size =
        static_cast<unsigned char>(database[16]) * 256u + static_cast<unsigned char>(database[17]);
    constexpr std::uint32_t nonce = 1;
    std::uint32_t page_sum = nonce;
    for (int i = static_cast<int>(page_size) - 200; i > 0; i -= 200)
        page_sum += static_cast<unsigned char>(database[static_cast<std::size_t>(i)]);
    std::uint32_t name_sum = 0;
    for (char const letter : named)
        name_sum += static_cast<std::uint32_t>(letter);

    std::string journal = magic + bigEndian(1) + bigEndian(nonce) +
                          bigEndian(static_cast<std::uint32_t>(database.size()) / page_size) +
                          bigEndian(512) + bigEndian(page_size);
    journal.resize(512);
    journal += bigEndian(1) + database.substr(0, page_size) + bigEndian(page_sum);
    journal += bigEndian(0x40000000 / page_size + 1) + named +
               bigEndian(static_cast<std::uint32_t>(named.size())) + bigEndian(name_sum) + magic;
    return journal;
}

class AccountFilesTest : public AuthDatabaseTest
{
protected:
    // The last report of a change that must fail.
    std::string refusal()
    {
        EXPECT_EQ(mailAuthSet("joe", "d.test", "secret", 0), -1);
        return reports().empty() ? "" : reports().back().second;
    }

    std::string const other = directory / "other";
    std::string const journal = path + "-journal";
};

} // namespace

TEST_F(AccountFilesTest, FollowNoLinkAtTheDatabase)
{
    std::filesystem::rename(path, other);
    std::filesystem::create_symlink(other, path);
    std::string const before = readFile(other);
    EXPECT_EQ(refusal(), "Unable to open database " + path + not_opened);
    EXPECT_EQ(readFile(other), before);
}

TEST_F(AccountFilesTest, CreateNothingAtTheEndOfALink)
{
    unlink(path.c_str());
    std::filesystem::create_symlink(other, path);
    EXPECT_EQ(refusal(), "Unable to open database " + path + not_opened);
    EXPECT_FALSE(std::filesystem::exists(other));
}

TEST_F(AccountFilesTest, ReadNoDatabaseOverALink)
{
    ASSERT_EQ(mailAuthSet("joe", "d.test", "secret", 0), 0);
    std::filesystem::rename(path, other);
    std::filesystem::create_symlink(other, path);
    passwd_type_t user = {};
    EXPECT_EQ(get_user_data(&user, "joe", "d.test"), -1);
    EXPECT_EQ(user.passwd, nullptr);
}

TEST_F(AccountFilesTest, FollowLinksInThePathOfTheDirectory)
{
    std::string const link = directory / "link";
    std::filesystem::create_directory_symlink(directory.path(), link);
    std::string const over_link = link + "/passwd.db";
    mailAuthDBSetPath(over_link.c_str());
    EXPECT_EQ(mailAuthSet("joe", "d.test", "secret", 0), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(AccountFilesTest, OpenNoFifoInPlaceOfTheDatabase)
{
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(refusal(), "Unable to open database " + path + not_opened);
    passwd_type_t user = {};
    EXPECT_EQ(get_user_data(&user, "joe", "d.test"), -1);
}

TEST_F(AccountFilesTest, OpenNoDatabaseWithASecondName)
{
    std::filesystem::create_hard_link(path, other);
    EXPECT_EQ(refusal(), "Unable to open database " + path + not_opened);
}

TEST_F(AccountFilesTest, WaitForNoFifoInPlaceOfTheJournal)
{
    ASSERT_EQ(mkfifo(journal.c_str(), 0600), 0);
    EXPECT_THAT(refusal(), StartsWith("No such domain"));
    EXPECT_THAT(reports().front().second, ::testing::HasSubstr("unable to open database file"));
}

TEST_F(AccountFilesTest, WriteNoJournalOverALink)
{
    writeFile(other, "precious");
    std::filesystem::create_symlink(other, journal);
    EXPECT_THAT(refusal(), Not(IsEmpty()));
    EXPECT_EQ(readFile(other), "precious");
}

TEST_F(AccountFilesTest, WriteNoJournalIntoAFileWithASecondName)
{
    writeFile(other, "precious");
    std::filesystem::create_hard_link(other, journal);
    EXPECT_THAT(refusal(), Not(IsEmpty()));
    EXPECT_EQ(readFile(other), "precious");
}

TEST_F(AccountFilesTest, DeleteNoFileThatAJournalNames)
{
    writeFile(other, "precious");
    writeFile(journal, hotJournal(readFile(path), other));
    EXPECT_EQ(mailAuthSet("joe", "d.test", "secret", 0), 0);
    EXPECT_EQ(readFile(other), "precious");
    EXPECT_FALSE(std::filesystem::exists(journal));
}

TEST_F(AccountFilesTest, WriteNoLogOrIndexOverALink)
{
    for (char const* const suffix : {"-wal", "-shm"}) {
        ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
        writeFile(other, "precious");
        std::filesystem::create_symlink(other, path + suffix);
        EXPECT_THAT(refusal(), Not(IsEmpty())) << suffix;
        EXPECT_EQ(readFile(other), "precious") << suffix;
        unlink((path + suffix).c_str());
    }
}

TEST_F(AccountFilesTest, GiveAwayNoFileAtTheIndexOfALog)
{
    ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
    writeFile(other, "precious");
    std::filesystem::create_hard_link(other, path + "-shm");
    EXPECT_THAT(refusal(), Not(IsEmpty()));
    EXPECT_EQ(readFile(other), "precious");
}

TEST_F(AccountFilesTest, ReadADatabaseWithALog)
{
    ASSERT_THAT(sql("PRAGMA journal_mode=WAL"), ElementsAre("wal"));
    EXPECT_EQ(mailAuthSet("joe", "d.test", "secret", 0), 0);
    EXPECT_THAT(sql("SELECT name FROM users"), ElementsAre("joe"));
}

TEST_F(AccountFilesTest, RollBackTheJournalOfAKilledWriter)
{
    std::string const before = readFile(path);
    std::string const named = hotJournal(before, "x");
    std::size_t const name_size = 4 + 1 + 4 + 4 + 8;
    writeFile(journal, named.substr(0, named.size() - name_size));
    writeFile(path, std::string(before).replace(100, 8, 8, 'x'));
    EXPECT_EQ(mailAuthSet("joe", "d.test", "secret", 0), 0);
    EXPECT_THAT(sql("SELECT name FROM users"), ElementsAre("joe"));
}

TEST_F(AccountFilesTest, ReadNoView)
{
    sql("DROP TABLE users");
    sql("CREATE VIEW users AS WITH RECURSIVE n(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM n) "
        "SELECT 'joe' AS name, 'x' AS userPassword, NULL AS cmusaslsecretPLAIN, 0 AS status, 1 AS "
        "dom_id FROM n WHERE id < 0");
    sql("INSERT INTO domains (name) VALUES ('d.test')");
    passwd_type_t user = {};
    EXPECT_EQ(get_user_data(&user, "joe", "d.test"), -1);
    EXPECT_THAT(reports().back().second, StartsWith("Unable to prepare SQL statement"));
}

TEST_F(AccountFilesTest, GiveUpATriggerThatNeverEnds)
{
    sql("CREATE TRIGGER endless BEFORE INSERT ON domains BEGIN UPDATE domains SET status = (WITH "
        "RECURSIVE n(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM n) SELECT id FROM n WHERE id < "
        "0); END");
    sql("INSERT INTO domains (name) VALUES ('d.test')");
    EXPECT_EQ(mailAuthSet("joe", "e.test", "secret", 0), -1);
}

TEST_F(AccountFilesTest, GiveUpATriggerWhoseStepsAreDear)
{
    sql("CREATE TRIGGER dear BEFORE INSERT ON domains BEGIN UPDATE domains SET status = (WITH "
        "RECURSIVE n(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM n WHERE id < 20000) SELECT "
        "max(id) FROM n); END");
    sql("INSERT INTO domains (name) VALUES ('d.test')");
    {
        FastClock const fast;
        EXPECT_EQ(mailAuthSet("joe", "e.test", "secret", 0), -1);
    }
    EXPECT_EQ(mailAuthSet("joe", "e.test", "secret", 0), 0);
}

TEST_F(AccountFilesTest, LetTemporaryFilesBeCreated)
{
    AccountFiles const files(path.c_str());
    SqliteSpy::Inside const unseen(sqliteSpy());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(files.path(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db,
                           "PRAGMA temp_store=FILE; PRAGMA cache_size=1; CREATE TEMP TABLE t(x); "
                           "INSERT INTO t SELECT zeroblob(100000); INSERT INTO t SELECT x FROM t; "
                           "INSERT INTO t SELECT x FROM t",
                           nullptr, nullptr, nullptr),
              SQLITE_OK)
        << sqlite3_errmsg(db);
    sqlite3_close(db);
}

TEST_F(AccountFilesTest, CreateADatabaseOnlyForItsOwner)
{
    unlink(path.c_str());
    mode_t const before = umask(0);
    EXPECT_THAT(refusal(), ::testing::HasSubstr("No such domain"));
    umask(before);
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);
}

TEST_F(AccountFilesTest, GiveAJournalTheModeOfItsDatabase)
{
    ASSERT_EQ(chmod(path.c_str(), 0460), 0);
    mode_t const before = umask(0);
    MailAuthConnection db;
    ASSERT_EQ(db.openForWriting(), 0);
    char* error = nullptr;
    ASSERT_EQ(db.execute("BEGIN; INSERT INTO domains (name) VALUES ('d.test')", &error), SQLITE_OK);
    struct stat info = {};
    ASSERT_EQ(stat(journal.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0460u);
    EXPECT_EQ(db.finish(), 0);
    umask(before);
}

TEST_F(AccountFilesTest, LeaveOtherDatabasesAloneAfterwards)
{
    {
        AccountFiles const first(path.c_str());
        AccountFiles const second(other.c_str());
        EXPECT_TRUE(AccountFiles::contain(path + "-wal"));
        EXPECT_TRUE(AccountFiles::contain(other));
        EXPECT_FALSE(AccountFiles::contain(path + "-journal2"));
    }
    EXPECT_FALSE(AccountFiles::guard());
    std::filesystem::create_symlink(path, other);
    EXPECT_THAT(rowsOf(other, "SELECT count(*) FROM domains"), ElementsAre("0"));
}
