#include "postfix/maps/batch_database_helper.h"
#include "postfix/server/settings_manager.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/stand_in.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>

#include <sys/wait.h>

using namespace orvek::mail::postfix;

namespace {

constexpr char map[] = "hash:/var/spool/postfix/orvek/blacklists";
constexpr char indexed[] = "/var/spool/postfix/orvek/blacklists.db";

// The senders whose letters are refused, in the real map.
class BlackDomainsOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        postmap.prepare();
        std::filesystem::copy_file(indexed, saved);
        descriptors = openDescriptors();
    }

    void TearDown() override
    {
        postmap.remove();
        std::filesystem::copy_file(saved, indexed,
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    }

    void fill(std::string const& record) const
    {
        shellRun("echo '" + record + "' | " + postmap.real + " -r -i " + map);
    }

    std::string content() const
    {
        std::string text;
        FILE* const dump = popen((postmap.real + " -s " + map + " | LC_ALL=C sort").c_str(), "r");
        for (int c = getc(dump); c != EOF; c = getc(dump))
            text += static_cast<char>(c);
        pclose(dump);
        return text;
    }

    // The error that removing the domain raises.
    static std::string refusal(std::string const& domain)
    {
        try {
            SettingsManager::removeBlackDomain(domain);
        } catch (PostfixDatabaseError const& e) {
            return e.what();
        }
        return "nothing raised";
    }

    StandIn postmap{"/usr/sbin/postmap"};

private:
    std::string const saved = postmap.dir / "saved.db";
    std::set<int> descriptors;
};

} // namespace

TEST_F(BlackDomainsOnHost, AreAddedAtOnceByOneRun)
{
    postmap.run("exec $real \"$@\"");
    SettingsManager::addBlackDomain("spam.test");
    EXPECT_EQ(content(), "spam.test\tREJECT\n");
    EXPECT_EQ(postmap.journal(), std::string("-r -i ") + map + "\n");
}

TEST_F(BlackDomainsOnHost, MayReplaceAnotherRecordWhenAddedAgain)
{
    fill("spam.test OK");
    SettingsManager::addBlackDomain("spam.test");
    SettingsManager::addBlackDomain("spam.test");
    SettingsManager::addBlackDomain("other.test");
    EXPECT_EQ(content(), "other.test\tREJECT\nspam.test\tREJECT\n");
}

TEST_F(BlackDomainsOnHost, WaitInABatchForItsCommit)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_commit);
    SettingsManager::addBlackDomain(batch, "spam.test");
    SettingsManager::addBlackDomain(batch, "other.test");
    EXPECT_EQ(content(), "");
    postmap.run("exec $real \"$@\"");
    batch.commit();
    EXPECT_EQ(content(), "other.test\tREJECT\nspam.test\tREJECT\n");
    EXPECT_EQ(postmap.journal(), std::string("-r -i ") + map + "\n");
}

TEST_F(BlackDomainsOnHost, AreAddedDirectlyByABatchThatWritesAtOnce)
{
    BatchDatabaseHelper batch(BatchContent::added, BatchTiming::at_once);
    SettingsManager::addBlackDomain(batch, "spam.test");
    EXPECT_EQ(content(), "spam.test\tREJECT\n");
}

TEST_F(BlackDomainsOnHost, RaiseWhatPostmapSaysWhenOneCannotBeAdded)
{
    postmap.run("echo 'postmap: fatal: no' >&2; exit 1");
    try {
        SettingsManager::addBlackDomain("spam.test");
        FAIL() << "nothing raised";
    } catch (PostfixConfigurationError const& e) {
        EXPECT_STREQ(e.what(), "postmap: fatal: no\n");
    }
}

TEST_F(BlackDomainsOnHost, AreRemovedByTheirKey)
{
    fill("spam.test REJECT");
    fill("other.test REJECT");
    postmap.run("exec $real \"$@\"");
    SettingsManager::removeBlackDomain("spam.test");
    EXPECT_EQ(content(), "other.test\tREJECT\n");
    EXPECT_EQ(postmap.journal(),
              std::string("-q spam.test ") + map + "\n-d spam.test " + map + "\n");
}

TEST_F(BlackDomainsOnHost, MayBeRemovedWithoutBeingThere)
{
    fill("other.test REJECT");
    SettingsManager::removeBlackDomain("spam.test");
    SettingsManager::removeBlackDomain("-");
    EXPECT_EQ(content(), "other.test\tREJECT\n");
}

TEST_F(BlackDomainsOnHost, KeepARecordWithAnotherValue)
{
    for (std::string const value : {"OK", "REJECT by hand", "reject", "XREJECT"}) {
        fill("spam.test " + value);
        SettingsManager::removeBlackDomain("spam.test");
        EXPECT_EQ(content(), "spam.test\t" + value + "\n");
    }
}

TEST_F(BlackDomainsOnHost, AreNotRemovedWhileTheMapCannotBeRead)
{
    fill("spam.test REJECT");
    postmap.run(
        "[ $1 = -q ] || exec $real \"$@\"\necho REJECT; echo 'postmap: fatal: no' >&2; exit 1");
    EXPECT_EQ(refusal("spam.test"), "postmap: fatal: no\n");
    postmap.run("[ $1 = -q ] || exec $real \"$@\"\nkill -9 $$");
    EXPECT_EQ(refusal("spam.test"), "");
    EXPECT_EQ(content(), "spam.test\tREJECT\n");
}

TEST_F(BlackDomainsOnHost, RaiseWhatPostmapSaysWhenOneCannotBeRemoved)
{
    fill("spam.test REJECT");
    postmap.run("[ $1 = -d ] || exec $real \"$@\"\necho 'postmap: fatal: no' >&2; exit 1");
    EXPECT_EQ(refusal("spam.test"), "postmap: fatal: no\n");
    postmap.run("[ $1 = -d ] || exec $real \"$@\"\necho 'a word' >&2; kill -9 $$");
    EXPECT_EQ(refusal("spam.test"), "a word\n");
}
