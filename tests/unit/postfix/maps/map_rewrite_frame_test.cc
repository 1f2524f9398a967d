#include "postfix/maps/database_helper.h"

#include "support/map_test.h"
#include "support/other_process.h"
#include "util/errors.h"
#include "util/mk_lock.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

class MapRewriteFrameOnHost : public MapTest
{
protected:
    Records const one{{"a", "1"}};
    std::function<void()> const rewrites[2] = {
        [this] { DatabaseHelper::replaceRecords(map, one.begin(), one.end()); },
        [this] { DatabaseHelper::filterRecords(map, [](std::string&) { return true; }); },
    };
};

} // namespace

TEST_F(MapRewriteFrameOnHost, WaitsForTheLockBeforeItTouchesTheTextSource)
{
    for (auto const& rewrite : rewrites) {
        writeFile(path, "of whoever holds the lock");
        std::optional<orvek::MKLock> lock(path);
        OtherProcess other([&] {
            alarm(300);
            lock.reset(); // the child's copy of the descriptor, which would keep the lock
            rewrite();
            return true;
        });
        EXPECT_FALSE(other.hasEndedWithin(200));
        EXPECT_EQ(readFile(path), "of whoever holds the lock");
        lock.reset();
        EXPECT_EQ(other.status(), 0);
        EXPECT_EQ(content(), "a\t1\n");
    }
}

TEST_F(MapRewriteFrameOnHost, FreesTheLockAfterAFailure)
{
    standIn("exit 1");
    for (auto const& rewrite : rewrites) {
        EXPECT_THROW(rewrite(), PostfixConfigurationError);
        EXPECT_NO_THROW(
            orvek::MKLock(path, orvek::MKLock::hashed_name, orvek::MKLock::do_not_wait));
    }
}

TEST_F(MapRewriteFrameOnHost, LeavesTheModesOfTheFilesToTheUmask)
{
    standIn("[ $1 = -s ] || stat -c %a " + path + " >> $dir/modes; exec $real \"$@\"");
    mode_t const before = umask(027);
    for (auto const& rewrite : rewrites) {
        std::filesystem::remove(path + ".db");
        fill("");
        rewrite();
        EXPECT_EQ(modeOf(path + ".db"), 0640U);
    }
    umask(before);
    EXPECT_EQ(readFile(tools / "modes"), "640\n640\n");
}

TEST_F(MapRewriteFrameOnHost, RaisesTheRebuildsWordsWithoutTheDumps)
{
    standIn("[ $1 = -s ] && echo 'said by the dump' >&2 && exec $real \"$@\";"
            "echo 'said by the rebuild' >&2; exit 1");
    fill("a 1\n");
    try {
        rewrites[1]();
        ADD_FAILURE() << "nothing was raised";
    } catch (PostfixConfigurationError const& e) {
        EXPECT_STREQ(e.what(), "said by the rebuild\n");
    }
}
