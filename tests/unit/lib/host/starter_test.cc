#include "lib/host/starter.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

#include <grp.h>
#include <unistd.h>

namespace {

constexpr uid_t stranger = 4711;

bool isRootAlone()
{
    uid_t users[3] = {};
    gid_t groups[3] = {};
    if (getresuid(users, users + 1, users + 2) != 0 ||
        getresgid(groups, groups + 1, groups + 2) != 0)
        return false;
    for (int i = 0; i < 3; ++i)
        if (users[i] != 0 || groups[i] != 0)
            return false;
    return true;
}

} // namespace

class Starter : public testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only root can become another user";
    }
};

TEST_F(Starter, IsNoUserOfTheProgramAnyMore)
{
    auto const run = inChild([] {
        if (setgroups(1, &stranger) != 0 || setresgid(stranger, stranger, stranger) != 0 ||
            setresuid(stranger, 0, 0) != 0)
            return 2;
        become_root();
        return isRootAlone() && getgroups(0, nullptr) == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(Starter, IsRemembered)
{
    auto const run = inChild([] {
        if (setresuid(stranger, 0, 0) != 0)
            return 2;
        become_root();
        return starters_uid() == stranger ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(Starter, GivesNoGroupToRootsProgram)
{
    auto const run = inChild([] {
        if (setresgid(stranger, stranger, stranger) != 0)
            return 2;
        become_root();
        return isRootAlone() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(Starter, StaysTheUserOfAProgramThatIsNotRoots)
{
    auto const run = inChild([] {
        if (setresuid(stranger, stranger, stranger) != 0)
            return 2;
        become_root();
        return getuid() == stranger && geteuid() == stranger && starters_uid() == stranger ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(Starter, IsTheRealUserWithoutAsking)
{
    EXPECT_EQ(starters_uid(), getuid());
}
