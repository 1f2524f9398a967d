#include "postfix/maps/database_helper.h"

#include "postfix/maps/record_filters.h"
#include "support/child_run.h"
#include "support/map_test.h"
#include "support/sanitized.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ios>
#include <iostream>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

bool keepAll(std::string&)
{
    return true;
}

class MapRewriteOnHost : public MapTest
{
protected:
    void replace(std::string const& name)
    {
        DatabaseHelper::replaceRecords(name, two.begin(), two.end());
    }
    void filter(std::string const& name) { DatabaseHelper::filterRecords(name, keepAll); }

    // Makes the rebuild damage the indexed file half way, say so, and end like this.
    void standInBreaking(std::string const& rest)
    {
        standIn("case $1 in -s) exec $real \"$@\";; esac; echo cut > " + path +
                ".db; echo 'postmap: fatal: x' >&2; " + rest);
    }

    void expectBothFailAndKeep(std::string const& old, std::string const& message)
    {
        for (auto const run : {&MapRewriteOnHost::replace, &MapRewriteOnHost::filter}) {
            try {
                (this->*run)(map);
                ADD_FAILURE() << "nothing was raised";
            } catch (PostfixConfigurationError const& e) {
                EXPECT_EQ(e.what(), message);
            }
            EXPECT_EQ(content(), old);
            EXPECT_FALSE(std::filesystem::exists(path));
        }
    }

    // Returns the content of the map.
    std::string fillWithALot()
    {
        std::string text;
        for (int i = 10000; i < 20000; ++i)
            text += "user" + std::to_string(i) + "@d.test\t" + std::string(100, 'x') + "\n";
        fill(text);
        return text;
    }

    std::uintmax_t indexedSize() const { return std::filesystem::file_size(path + ".db"); }
    void limitDiskTo(std::uintmax_t size) { limitDisk(std::to_string(size / 1024) + "k"); }

    Records const two{{"b", "2"}, {"a", "1, one"}};
};

} // namespace

TEST_F(MapRewriteOnHost, ReplacesTheWholeContent)
{
    fill("old 1\na 0\n");
    replace(map);
    EXPECT_EQ(content(), "a\t1, one\nb\t2\n");
}

TEST_F(MapRewriteOnHost, EmptiesTheMapForAnEmptyRange)
{
    fill("old 1\n");
    DatabaseHelper::replaceRecords(map, two.end(), two.end());
    EXPECT_EQ(content(), "");
}

TEST_F(MapRewriteOnHost, MakesAMapThatIsNotThere)
{
    std::filesystem::remove(path + ".db");
    replace(map);
    EXPECT_EQ(content(), "a\t1, one\nb\t2\n");
}

TEST_F(MapRewriteOnHost, ReplacesByOneRunOverATextSource)
{
    standIn("cp " + path + " $dir/source; flock -n " + lockFileOf(path) +
            " true; echo $? > $dir/lock");
    replace(map);
    EXPECT_EQ(journal(), "-r " + map + "\n");
    EXPECT_EQ(readFile(tools / "source"), "b 2\na 1, one\n");
    EXPECT_EQ(readFile(tools / "lock"), "1\n");
}

TEST_F(MapRewriteOnHost, RebuildsWithTheStreamsOfTheTool)
{
    standIn("[ $1 = -s ] || stat -Lc %d:%i /proc/$$/fd/0 /proc/$$/fd/1 >> $dir/streams");
    writeFile(tools / "input", "");
    std::string const own = inChild([&] {
                                close(0);
                                open((tools / "input").c_str(), O_RDONLY);
                                replace(map);
                                filter(map);
                                for (int const fd : {0, 1}) {
                                    struct stat info = {};
                                    fstat(fd, &info);
                                    std::cout << info.st_dev << ":" << info.st_ino << std::endl;
                                }
                                return 0;
                            }).out;
    EXPECT_EQ(readFile(tools / "streams"), own + own);
}

TEST_F(MapRewriteOnHost, FiltersAMapOfOneRecord)
{
    fill("old@d.test 1\n");
    DatabaseHelper::filterRecords(map, [](std::string& line) {
        line = "new 2";
        return true;
    });
    EXPECT_EQ(content(), "new\t2\n");
    DatabaseHelper::filterRecords(map, [](std::string&) { return false; });
    EXPECT_EQ(content(), "");
    filter(map);
    EXPECT_EQ(content(), "");
}

TEST_F(MapRewriteOnHost, NormalisesRecordsThatTheFilterLeavesAsTheyAre)
{
    standIn("[ $1 != -s ] && exec cp " + path +
            " $dir/source; printf 'a@d.test\\t \\tb@d.test,c@d.test  d@d.test\\t\\nb  1\\n'");
    std::string const from = "x@d.test";
    DatabaseHelper::filterRecords(
        map, database::ElementsFilter<database::ReplaceElementFilterRef>({&from, &from}));
    EXPECT_EQ(readFile(tools / "source"), "a@d.test b@d.test, c@d.test, d@d.test\nb 1\n");
}

TEST_F(MapRewriteOnHost, SurvivesStagesThatSpewOnBothStreams)
{
    standIn("yes err | head -c 200000 >&2; [ $1 = -s ] || yes out | head -c 200000;"
            "exec $real \"$@\"");
    fill("a 1\n");
    testing::internal::CaptureStdout();
    filter(map);
    replace(map);
    EXPECT_EQ(testing::internal::GetCapturedStdout().size(), 400'000U);
    EXPECT_EQ(content(), "a\t1, one\nb\t2\n");
}

TEST_F(MapRewriteOnHost, RaisesAllThatARebuildSpewsBeforeItFails)
{
    standIn("[ $1 != -s ] || exec $real \"$@\"; head -c 200000 /dev/zero | tr '\\0' e >&2; exit 1");
    expectBothFailAndKeep("", std::string(200'000, 'e'));
}

TEST_F(MapRewriteOnHost, FiltersEachRecord)
{
    fill("a 1\nb 2\nc 3\n");
    DatabaseHelper::filterRecords(map, [](std::string& line) {
        if (line[0] == 'b')
            return false;
        line = line.substr(0, 1) + " new";
        return true;
    });
    EXPECT_EQ(content(), "a\tnew\nc\tnew\n");
}

TEST_F(MapRewriteOnHost, FiltersByADumpAndARebuildUnderTheLock)
{
    standIn(
        "flock -n " + lockFileOf(path) +
        " true; echo $? >> $dir/lock; [ $1 != -s ] || stat -Lc %t:%T /proc/$$/fd/0 > $dir/input;"
        "exec $real \"$@\"");
    filter(map);
    EXPECT_EQ(journal(), "-s " + map + "\n" + map + "\n");
    EXPECT_EQ(readFile(tools / "lock"), "1\n1\n");
    EXPECT_EQ(readFile(tools / "input"), "1:3\n"); // the null device
}

TEST_F(MapRewriteOnHost, FiltersAMapNamedByItsPathOnly)
{
    fill("a 1\nb 2\n");
    DatabaseHelper::filterRecords(path, [](std::string& line) { return line[0] == 'b'; });
    EXPECT_EQ(content(), "b\t2\n");
}

TEST_F(MapRewriteOnHost, KeepsARecordWhoseLineHasNoNewline)
{
    standIn("[ $1 != -s ] && exec $real \"$@\"; printf 'a 1\\nlast 2'");
    filter(map);
    EXPECT_EQ(content(), "a\t1\nlast\t2\n");
}

TEST_F(MapRewriteOnHost, DropsALineWithoutANewlineThatIsRefused)
{
    standIn("[ $1 != -s ] && exec $real \"$@\"; printf 'a 1\\nlast 2'");
    DatabaseHelper::filterRecords(map, [](std::string& line) { return line[0] == 'a'; });
    EXPECT_EQ(content(), "a\t1\n");
}

TEST_F(MapRewriteOnHost, FailsWithoutARebuildWhenTheDumpFails)
{
    fill("old 1\n");
    for (std::string const end : {"exit 1", "kill -9 $$"}) {
        standIn("[ $1 = -s ] || exec $real \"$@\"; echo 'new 2'; echo odd >&2; " + end);
        try {
            filter(map);
            ADD_FAILURE() << "nothing was raised";
        } catch (PostfixConfigurationError const& e) {
            EXPECT_STREQ(e.what(), "odd\n");
        }
        EXPECT_EQ(content(), "old\t1\n");
    }
    EXPECT_EQ(journal(), "-s " + map + "\n-s " + map + "\n");
}

TEST_F(MapRewriteOnHost, PutsTheOldMapBackWhenTheRebuildFails)
{
    fill("old 1\n");
    standInBreaking("exit 1");
    expectBothFailAndKeep("old\t1\n", "postmap: fatal: x\n");
}

TEST_F(MapRewriteOnHost, PutsTheOldMapBackWhenTheRebuildIsKilled)
{
    fill("old 1\n");
    standInBreaking("kill -9 $$");
    expectBothFailAndKeep("old\t1\n", "postmap: fatal: x\n");
}

TEST_F(MapRewriteOnHost, PutsTheOldMapBackWithItsOwnerAndMode)
{
    fill("old 1\n");
    run("chown 7:8 " + path + ".db && chmod 640 " + path + ".db");
    standInBreaking("exit 1");
    EXPECT_THROW(filter(map), PostfixConfigurationError);
    struct stat info = {};
    stat((path + ".db").c_str(), &info);
    EXPECT_EQ(info.st_uid, 7U);
    EXPECT_EQ(info.st_gid, 8U);
    EXPECT_EQ(modeOf(path + ".db"), 0640U);
}

TEST_F(MapRewriteOnHost, LeavesTheFileThatAFailedRebuildDidNotTouch)
{
    fill("old 1\n");
    struct stat before = {};
    stat((path + ".db").c_str(), &before);
    standIn("[ $1 = -s ] && exec $real \"$@\"; exit 1");
    expectBothFailAndKeep("old\t1\n", "unknown error");
    struct stat after = {};
    stat((path + ".db").c_str(), &after);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(MapRewriteOnHost, SurvivesADeathOfTheRebuildAtAnyMoment)
{
    std::string old;
    for (int i = 10000; i < 30000; ++i)
        old += "user" + std::to_string(i) + "@d.test\tuser" + std::to_string(i) + "@d.test\n";
    fill(old);
    standIn("[ $1 = -s ] && exec $real \"$@\"; $real \"$@\" & "
            "sleep 0.$(printf %04d $(wc -l < $dir/journal)); kill -9 $!; wait $!; exit $?");
    int failed = 0;
    for (int i = 0; i < 60; ++i) {
        try {
            filter(map);
        } catch (PostfixConfigurationError const&) {
            ++failed;
        }
        ASSERT_EQ(content(), old);
    }
    EXPECT_GT(failed, 10);
}

TEST_F(MapRewriteOnHost, RaisesTheStreamsErrorForAnUnopenableText)
{
    std::string const nowhere = "hash:" + (dir / "no/map");
    EXPECT_THROW(replace(nowhere), std::ios_base::failure);
    EXPECT_THROW(filter(nowhere), std::ios_base::failure);
}

TEST_F(MapRewriteOnHost, KeepsTheMapWhenTheTextFillsTheDisk)
{
    std::string const old = fillWithALot();
    Records many;
    for (int i = 0; i < 10000; ++i)
        many.emplace_back(std::to_string(i), std::string(100, 'y'));
    limitDiskTo(indexedSize() + 200'000);
    EXPECT_THROW(DatabaseHelper::replaceRecords(map, many.begin(), many.end()),
                 std::ios_base::failure);
    EXPECT_EQ(content(), old);
}

TEST_F(MapRewriteOnHost, KeepsTheMapWhenFilteredRecordsFillTheDisk)
{
    std::string const old = fillWithALot();
    limitDiskTo(2 * indexedSize() + 200'000);
    auto const swell = [](std::string& line) { return line.append(1000, 'z').size() > 1000; };
    EXPECT_THROW(DatabaseHelper::filterRecords(map, swell), std::ios_base::failure);
    EXPECT_EQ(content(), old);
}

TEST_F(MapRewriteOnHost, RaisesTheStreamsErrorOfAFailedClose)
{
    fill("old 1\n");
    standIn("exec $real \"$@\"");
    limitDisk("1m");
    run("! head -c 2M /dev/zero > " + (dir / "filler.db") + " 2>/dev/null");
    EXPECT_THROW(replace(map), std::ios_base::failure);
    EXPECT_EQ(journal(), "");
    EXPECT_EQ(content(), "old\t1\n");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(MapRewriteOnHost, KeepsTheMapWhenTheNewOneFillsTheDisk)
{
    std::string const old = fillWithALot();
    limitDiskTo(indexedSize() + old.size() + 200'000);
    EXPECT_THROW(filter(map), PostfixConfigurationError);
    EXPECT_EQ(content(), old);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(MapRewriteOnHost, LetsTheDumpEndWhenTheFilterRaises)
{
    std::string old;
    for (int i = 10000; i < 20000; ++i)
        old += std::to_string(i) + "\tx\n";
    fill(old);
    int calls = 0;
    EXPECT_THROW(DatabaseHelper::filterRecords(map,
                                               [&](std::string&) -> bool {
                                                   ++calls;
                                                   throw std::range_error("filter");
                                               }),
                 std::range_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(content(), old);
}

// The address sanitizer holds freed memory back for a while.
long leanKiB()
{
    return sanitized() ? 512L * 1024 : 4096;
}

TEST_F(MapRewriteOnHost, HoldsAMillionRecordsInConstantMemory)
{
    run("seq 1000001 2000000 | sed 's/.*/u&@d.test u&@d.test/' > " + path + " && " + real + " -r " +
        map + " && rm " + path);
    auto const child = inChild([&] {
        auto const peak = [] {
            rusage usage = {};
            getrusage(RUSAGE_SELF, &usage);
            return usage.ru_maxrss;
        };
        long const before = peak();
        int kept = 0;
        DatabaseHelper::filterRecords(map, [&](std::string& line) {
            ++kept;
            return line[7] == '5';
        });
        std::cout << kept << (peak() - before < leanKiB() ? " lean" : " fat");
        return 0;
    });
    EXPECT_EQ(child.out, "1000000 lean");
    EXPECT_EQ(child.err, "");
    std::string const kept = content();
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 100'000);
}
