#include "lib/host/orvek_ugid.h"

#include "support/child_run.h"

#include <gtest/gtest.h>

#include <cstring>

#include <grp.h>
#include <pwd.h>

namespace {

constexpr char unknown[] = "no-such-name";
constexpr unsigned int unknown_id = 4294967293U;

// The second line of a report made with this errno.
std::string secondLine(int error)
{
    return error == 0 ? ""
                      : "System error " + std::to_string(error) + ": " + strerror(error) + "\n";
}

// errno after a lookup that finds nothing.
template<typename Lookup>
int errorOf(Lookup lookup)
{
    errno = 0;
    EXPECT_EQ(lookup(), nullptr);
    return errno;
}

int userError()
{
    return errorOf([] { return getpwnam(unknown); });
}

// A user of every system whose uid and gid differ.
passwd syncUser()
{
    passwd const* const user = getpwnam("sync");
    EXPECT_NE(user, nullptr);
    EXPECT_NE(user->pw_uid, user->pw_gid);
    return *user;
}

} // namespace

TEST(OrvekGetpw, FillsEachOutputThatIsNotNull)
{
    passwd const user = syncUser();
    std::string const home = user.pw_dir;
    uid_t uid = 77777;
    gid_t gid = 77777;
    char const* dir = nullptr;
    EXPECT_EQ(orvek_getpw("sync", &uid, &gid, &dir), 0);
    EXPECT_EQ(uid, user.pw_uid);
    EXPECT_EQ(gid, user.pw_gid);
    EXPECT_EQ(dir, home);
    EXPECT_EQ(orvek_getpw("sync", nullptr, nullptr, nullptr), 0);
}

TEST(OrvekGetpw, ReportsAnUnknownUserAndFillsNothing)
{
    auto const run = inChild([] {
        uid_t uid = 77777;
        gid_t gid = 77777;
        char const* dir = nullptr;
        return orvek_getpw(unknown, &uid, &gid, &dir) == -1 && uid == 77777 && gid == 77777 && !dir
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to getpwnam for user no-such-name\n" + secondLine(userError()));
    EXPECT_EQ(run.out, run.err);
}

TEST(OrvekGetpw, DoesNotReportAnErrorOfAnEarlierCall)
{
    auto const run = printedBy([] {
        errno = EXDEV;
        orvek_getpw(unknown, nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(run.err.find(strerror(EXDEV)), std::string::npos);
}

TEST(OrvekUgid, GivesUidForCommandZeroAndGidForOthers)
{
    passwd const user = syncUser();
    EXPECT_EQ(orvek_ugid("sync", 0), user.pw_uid);
    EXPECT_EQ(orvek_ugid("sync", 1), user.pw_gid);
    EXPECT_EQ(orvek_ugid("sync", -1), user.pw_gid);
}

TEST(OrvekUgid, GivesZeroForAnUnknownUserAfterTheReport)
{
    auto const run =
        inChild([] { return static_cast<int>(orvek_ugid(unknown, 0) + orvek_ugid(unknown, 1)); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.find("Unable to getpwnam for user no-such-name\n"), 0U);
    EXPECT_EQ(run.out, run.err);
}

TEST(IsNumber, IsTrueForDigitsAndForAnEmptyString)
{
    EXPECT_TRUE(is_number("0123456789"));
    EXPECT_TRUE(is_number(""));
    EXPECT_FALSE(is_number("-1"));
    EXPECT_FALSE(is_number("1 "));
    EXPECT_FALSE(is_number("a1"));
}

TEST(GetGidByName, GivesTheGid)
{
    EXPECT_EQ(get_gid_by_name("daemon"), getgrnam("daemon")->gr_gid);
}

TEST(GetGidByName, ReportsAnUnknownGroup)
{
    int const error = errorOf([] { return getgrnam(unknown); });
    auto const run = inChild([] { return static_cast<int>(get_gid_by_name(unknown)); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              std::string("getgrnam(no-such-name): ") + strerror(error) + "\n" + secondLine(error));
    EXPECT_EQ(run.out, run.err);
}

TEST(GetGidById, GivesTheGidOfAGroupThatExists)
{
    gid_t const gid = getgrnam("daemon")->gr_gid;
    EXPECT_EQ(get_gid_by_id(gid), gid);
}

TEST(GetGidById, ReportsAnUnknownGroup)
{
    int const error = errorOf([] { return getgrgid(unknown_id); });
    auto const run = inChild([] { return static_cast<int>(get_gid_by_id(unknown_id)); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, std::string("getgrgid(-3): ") + strerror(error) + "\n" + secondLine(error));
    EXPECT_EQ(run.out, run.err);
}

TEST(GetGroupId, TakesDigitsAsNumberAndAllElseAsName)
{
    gid_t const gid = getgrnam("daemon")->gr_gid;
    EXPECT_EQ(get_group_id("daemon"), gid);
    EXPECT_EQ(get_group_id(std::to_string(gid).c_str()), gid);
    EXPECT_EQ(get_group_id(""), 0U);
}

TEST(GetGroupId, RefusesANumberAboveTheLastGid)
{
    auto const run = inChild([] { return static_cast<int>(get_group_id("4294967297")); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.find("getgrgid(-1): "), 0U);
}

TEST(GetUserId, GivesTheUid)
{
    EXPECT_EQ(get_user_id("sync"), syncUser().pw_uid);
}

TEST(GetUserId, ReportsAnUnknownUser)
{
    int const error = userError();
    auto const run = inChild([] { return static_cast<int>(get_user_id(unknown)); });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, std::string("Unable to find uid for user no-such-name: ") + strerror(error) +
                           "\n" + secondLine(error));
    EXPECT_EQ(run.out, run.err);
}

TEST(GetUserName, GivesTheNameInAStaticBuffer)
{
    char const* const name = get_user_name(syncUser().pw_uid);
    EXPECT_STREQ(name, "sync");
    EXPECT_EQ(get_user_name(0), name);
    EXPECT_STREQ(name, "root");
}

TEST(GetUserName, GivesTheNumberOfAnUnknownUser)
{
    EXPECT_STREQ(get_user_name(unknown_id), "4294967293");
}
