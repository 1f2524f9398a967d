#include "postfix/maps/database_helper.h"

#include "postfix/maps/record_filters.h"
#include "support/map_test.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

using namespace orvek::mail::postfix;

namespace {

class DatabaseHelperOnHost : public MapTest
{
protected:
    // The text of the exception that code raises, whose type must be E.
    template<class E, class Code>
    std::string raisedBy(Code const& code)
    {
        try {
            code();
        } catch (E const& e) {
            return e.what();
        }
        return "nothing was raised";
    }

    // Makes each run of postmap note its first word, and 1 when somebody holds the lock.
    void noteLockOfTheMap()
    {
        standIn("flock -n " + lockFileOf(path) +
                " true; echo $1 $? >> $dir/lock; exec $real \"$@\"");
    }

    Records const two{{"b", "2"}, {"a", "1, one"}};
    std::list<std::string> const keys{"a", "nowhere", "b"};
    std::function<void()> const operations[5] = {
        [this] { DatabaseHelper::addRecord(map, "a", "1"); },
        [this] { DatabaseHelper::removeRecord(map, "a"); },
        [this] { DatabaseHelper::removeRecords(map, keys.begin(), keys.end()); },
        [this] { DatabaseHelper::replaceRecords(map, two.begin(), two.end()); },
        [this] { DatabaseHelper::filterRecords(map, [](std::string&) { return true; }); },
    };
};

} // namespace

TEST_F(DatabaseHelperOnHost, AddsRecords)
{
    DatabaseHelper::addRecords(map, two.begin(), two.end());
    EXPECT_EQ(content(), "a\t1, one\nb\t2\n");
}

TEST_F(DatabaseHelperOnHost, AddsFromAnyForwardIterators)
{
    std::vector<std::pair<std::string, std::string>> const records(two.begin(), two.end());
    DatabaseHelper::addRecords(map, records.begin(), records.end());
    EXPECT_EQ(content(), "a\t1, one\nb\t2\n");
}

TEST_F(DatabaseHelperOnHost, OverwritesAKeyThatIsThere)
{
    fill("a old\nc kept\n");
    DatabaseHelper::addRecord(map, "a", "new");
    EXPECT_EQ(content(), "a\tnew\nc\tkept\n");
}

TEST_F(DatabaseHelperOnHost, FeedsOneLineARecordToOneRun)
{
    standIn("cat > $dir/input");
    DatabaseHelper::addRecords(map, two.begin(), two.end());
    EXPECT_EQ(journal(), "-r -i " + map + "\n");
    EXPECT_EQ(readFile(tools / "input"), "b 2\na 1, one\n");
}

TEST_F(DatabaseHelperOnHost, StartsNothingToAddOrRemoveNothing)
{
    standIn("");
    DatabaseHelper::addRecords(map, two.end(), two.end());
    DatabaseHelper::removeRecords(map, keys.end(), keys.end());
    EXPECT_EQ(journal(), "");
}

TEST_F(DatabaseHelperOnHost, RaisesWhatPostmapSaysWhenAddingFails)
{
    standIn("cat > /dev/null; echo 'postmap: odd' >&2; exit 1");
    EXPECT_EQ(raisedBy<PostfixConfigurationError>(
                  [&] { DatabaseHelper::addRecords(map, two.begin(), two.end()); }),
              "postmap: odd\n");
}

TEST_F(DatabaseHelperOnHost, CallsAFailureInSilenceAnUnknownError)
{
    standIn("exit 1");
    EXPECT_EQ(
        raisedBy<PostfixConfigurationError>([&] { DatabaseHelper::addRecord(map, "a", "1"); }),
        "unknown error");
}

TEST_F(DatabaseHelperOnHost, TakesASignalForAFailureOfAdding)
{
    standIn("kill -9 $$");
    EXPECT_EQ(
        raisedBy<PostfixConfigurationError>([&] { DatabaseHelper::addRecord(map, "a", "1"); }),
        "unknown error");
}

TEST_F(DatabaseHelperOnHost, TakesAWarningOfASuccessForNone)
{
    standIn("cat > /dev/null; echo 'postmap: fatal: not really' >&2");
    EXPECT_NO_THROW(DatabaseHelper::addRecord(map, "a", "1"));
    EXPECT_NO_THROW(DatabaseHelper::removeRecord(map, "a"));
}

TEST_F(DatabaseHelperOnHost, RaisesWhatKeepsPostmapFromStarting)
{
    standIn("");
    std::filesystem::permissions(tools / "stand-in", std::filesystem::perms::owner_read);
    fill("old 1\n");
    EXPECT_EQ(raisedBy<orvek::SystemError>([&] { DatabaseHelper::addRecord(map, "a", "1"); }),
              "execv: Permission denied");
    EXPECT_THROW(DatabaseHelper::removeRecord(map, "a"), orvek::SystemError);
    EXPECT_THROW(DatabaseHelper::replaceRecords(map, two.begin(), two.end()), orvek::SystemError);
    EXPECT_THROW(DatabaseHelper::filterRecords(map, [](std::string&) { return true; }),
                 orvek::SystemError);
    EXPECT_EQ(content(), "old\t1\n");
}

TEST_F(DatabaseHelperOnHost, RemovesARecord)
{
    fill("a 1\nb 2\n");
    DatabaseHelper::removeRecord(map, "a");
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(DatabaseHelperOnHost, RemovesKeysOfWhichOneIsAbsent)
{
    fill("a 1\nb 2\nc 3\n");
    DatabaseHelper::removeRecords(map, keys.begin(), keys.end());
    EXPECT_EQ(content(), "c\t3\n");
}

TEST_F(DatabaseHelperOnHost, RemovesAnAbsentKeyWithSuccess)
{
    std::list<std::string> const absent{"x", "y"};
    DatabaseHelper::removeRecord(map, "nowhere");
    DatabaseHelper::removeRecords(map, absent.begin(), absent.end());
    EXPECT_EQ(content(), "");
}

TEST_F(DatabaseHelperOnHost, RemovesKeysByOneRun)
{
    standIn("cat > $dir/input");
    DatabaseHelper::removeRecords(map, keys.begin(), keys.end());
    EXPECT_EQ(journal(), "-d - " + map + "\n");
    EXPECT_EQ(readFile(tools / "input"), "a\nnowhere\nb\n");
}

TEST_F(DatabaseHelperOnHost, RemovesOneKeyWithoutAnInput)
{
    standIn("stat -Lc %t:%T /proc/$$/fd/0 > $dir/input");
    DatabaseHelper::removeRecord(map, "a_key");
    EXPECT_EQ(journal(), "-d a_key " + map + "\n");
    EXPECT_EQ(readFile(tools / "input"), "1:3\n"); // the null device
}

TEST_F(DatabaseHelperOnHost, RefusesABadKeyOrValueBeforePostmapSeesAny)
{
    standIn("exit 0");
    Records const bad_key{{"a", "1"}, {"ceo@v.test x", "2"}};
    Records const bad_value{{"a", "1"}, {"b", "2\nceo@v.test x"}};
    std::list<std::string> const bad_keys{"a", "#b"};
    for (Records const& records : {bad_key, bad_value}) {
        EXPECT_THROW(DatabaseHelper::addRecords(map, records.begin(), records.end()),
                     PostfixDatabaseError);
        EXPECT_THROW(DatabaseHelper::replaceRecords(map, records.begin(), records.end()),
                     PostfixDatabaseError);
    }
    EXPECT_THROW(DatabaseHelper::removeRecords(map, bad_keys.begin(), bad_keys.end()),
                 PostfixDatabaseError);
    EXPECT_THROW(DatabaseHelper::removeRecord(map, ""), PostfixDatabaseError);
    EXPECT_THROW(DatabaseHelper::removeRecord(map, std::make_pair("a\tb", "1")),
                 PostfixDatabaseError);
    EXPECT_EQ(journal(), "");
}

TEST_F(DatabaseHelperOnHost, KeepsTheMapWhenAFilterMakesABadKey)
{
    fill("a@d.test 1\n");
    std::string const from = "a@d.test";
    std::string const to = "#a b@d.test";
    using database::ReplaceElementFilterRef;
    EXPECT_THROW(DatabaseHelper::filterRecords(
                     map, database::ElementsFilter<ReplaceElementFilterRef>({&from, &to})),
                 PostfixDatabaseError);
    EXPECT_EQ(content(), "a@d.test\t1\n");
}

TEST_F(DatabaseHelperOnHost, RaisesWhatPostmapSaysWhenRemovingFails)
{
    std::string const text =
        "postmap: fatal: open database " + dir.path() + "/none.db: No such file or directory\n";
    EXPECT_EQ(raisedBy<PostfixDatabaseError>(
                  [&] { DatabaseHelper::removeRecord("hash:" + (dir / "none"), "a"); }),
              text);
    EXPECT_EQ(raisedBy<PostfixDatabaseError>([&] {
                  DatabaseHelper::removeRecords("hash:" + (dir / "none"), keys.begin(), keys.end());
              }),
              text);
}

TEST_F(DatabaseHelperOnHost, AcceptsARemovalThatFailsWithAWarning)
{
    standIn("echo 'postmap: warning: fatal: x' >&2; echo 'fatal: bad' >&2; exit 1");
    EXPECT_NO_THROW(DatabaseHelper::removeRecord(map, "a"));
    EXPECT_NO_THROW(DatabaseHelper::removeRecords(map, keys.begin(), keys.end()));
}

TEST_F(DatabaseHelperOnHost, TakesASignalForAFailureOfRemoving)
{
    for (std::string const text : {"", "postmap: warning: harmless\n"}) {
        standIn("printf '" + text + "' >&2; kill -15 $$");
        EXPECT_EQ(raisedBy<PostfixDatabaseError>([&] { DatabaseHelper::removeRecord(map, "a"); }),
                  text);
        EXPECT_EQ(raisedBy<PostfixDatabaseError>(
                      [&] { DatabaseHelper::removeRecords(map, keys.begin(), keys.end()); }),
                  text);
    }
}

TEST_F(DatabaseHelperOnHost, LearnsOfAnAbsentKeyOnlyByTheExitStatus)
{
    for (std::string const command : {" -d absent ", " -d - "})
        run("said=$(echo absent | " + real + command + map +
            " 2>&1); [ $? = 1 ] && [ -z \"$said\" ]");
}

TEST_F(DatabaseHelperOnHost, RaisesPostmapsWordsForAnyOtherFailedRemoval)
{
    standIn("echo 'postmap: error: bad' >&2; exit 75");
    EXPECT_EQ(raisedBy<PostfixDatabaseError>([&] { DatabaseHelper::removeRecord(map, "a"); }),
              "postmap: error: bad\n");
}

TEST_F(DatabaseHelperOnHost, RaisesThatPostmapIsMissing)
{
    fill("old 1\n");
    std::filesystem::rename("/usr/sbin/postmap", "/usr/sbin/postmap.away");
    std::string const missing = "execv: No such file or directory";
    for (auto const& operation : operations)
        EXPECT_EQ(raisedBy<orvek::SystemError>(operation), missing);
    std::filesystem::rename("/usr/sbin/postmap.away", "/usr/sbin/postmap");
    EXPECT_EQ(content(), "old\t1\n");
}

TEST_F(DatabaseHelperOnHost, LetsOneChangeOfTheMapHappenAtATime)
{
    noteLockOfTheMap();
    for (auto const& operation : operations)
        operation();
    EXPECT_EQ(readFile(tools / "lock"), "-r 1\n-d 1\n-d 1\n-r 1\n-s 1\n" + map + " 1\n");
}

TEST_F(DatabaseHelperOnHost, LooksAtAndRemovesARecordUnderOneLock)
{
    fill("a 1\n");
    noteLockOfTheMap();
    DatabaseHelper::removeRecord(map, std::pair<std::string, std::string>("a", "1"));
    EXPECT_EQ(readFile(tools / "lock"), "-q 1\n-d 1\n");
    EXPECT_EQ(content(), "");
}

TEST_F(DatabaseHelperOnHost, StopsFeedingAPostmapThatNeverReads)
{
    std::vector<std::pair<std::string, std::string>> const many(100'000, {"key@domain.test", "x"});
    standIn("sleep 0.05");
    EXPECT_NO_THROW(DatabaseHelper::addRecords(map, many.begin(), many.end()));
    standIn("sleep 0.05; echo 'postmap: fatal: x' >&2; exit 1");
    EXPECT_EQ(raisedBy<PostfixConfigurationError>(
                  [&] { DatabaseHelper::addRecords(map, many.begin(), many.end()); }),
              "postmap: fatal: x\n");
}

TEST_F(DatabaseHelperOnHost, SurvivesAPostmapThatOnlyFloodsBothStreams)
{
    std::vector<std::string> const many(100'000, "key@domain.test");
    standIn("exec 0<&-; yes out | head -c 200000; yes err | head -c 200000 >&2");
    testing::internal::CaptureStdout();
    EXPECT_NO_THROW(DatabaseHelper::removeRecords(map, many.begin(), many.end()));
    EXPECT_EQ(testing::internal::GetCapturedStdout().size(), 200'000U);
}
