#include "strangers_tree.h"

#include "support/fd_census.h"

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

using PlaceEachWay = EachWay;
using PlaceBeneath = StrangersTree;
INSTANTIATE_EACH_WAY(PlaceEachWay);

namespace {

int opened(int root, char const* path)
{
    return open_directory_beneath(root, path).get();
}

bool isOpenOn(int fd, std::string const& path)
{
    return fs::read_symlink("/proc/self/fd/" + std::to_string(fd)) == path;
}

} // namespace

TEST_P(PlaceEachWay, OpensADirectoryHoweverDeepItLies)
{
    EXPECT_TRUE(isOpenOn(open_directory_beneath(root.get(), "sub").get(), path("sub")));
    EXPECT_TRUE(isOpenOn(open_directory_beneath(root.get(), "sub/deep").get(), path("sub/deep")));
    EXPECT_EQ(errno, 0);
}

TEST_P(PlaceEachWay, FollowsNoLinkAtAnyComponent)
{
    fs::create_directory_symlink(outside, path("link"));
    fs::create_directory_symlink("..", path("sub/up"));
    fs::create_directory_symlink("deep", path("sub/inner"));
    for (char const* const name :
         {"link", "link/sub", "sub/up", "sub/up/sub", "sub/inner", "link/sub/deep"})
        EXPECT_BARRED(opened(root.get(), name), ELOOP);
}

TEST_P(PlaceEachWay, TakesNoNameThatLeadsElsewhere)
{
    for (char const* const name : {"", ".", "..", "/", "/etc", "sub/", "sub//deep", "./sub",
                                   "../root", "sub/..", "sub/../sub", "sub/."})
        EXPECT_BARRED(opened(root.get(), name), EINVAL);
}

TEST_P(PlaceEachWay, OpensNothingButADirectory)
{
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    for (char const* const name : {"sub/file", "sub/file/more", "fifo", "fifo/more"})
        EXPECT_BARRED(opened(root.get(), name), ENOTDIR);
    EXPECT_BARRED(opened(root.get(), "sub/none/deep"), ENOENT);
}

TEST_P(PlaceEachWay, RefusesAPathThatIsTooLong)
{
    std::string name = "sub";
    while (name.size() < 5000)
        name += "/sub";
    EXPECT_BARRED(opened(root.get(), name.c_str()), ENAMETOOLONG);
    EXPECT_BARRED(opened(root.get(), std::string(300, 'x').c_str()), ENAMETOOLONG);
}

TEST_P(PlaceEachWay, LeavesNoDescriptorOpen)
{
    auto const before = openDescriptors();
    for (char const* const name : {"sub/deep", "sub/none/deep", "sub/file/more", "", "sub"}) {
        EXPECT_TRUE(opened(root.get(), name) != 0);
        EXPECT_TRUE(Place(root.get(), name).dir() != 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_P(PlaceEachWay, ClosesItsDescriptorsInChildren)
{
    OpenDescriptor const opened = open_directory_beneath(root.get(), "sub/deep");
    EXPECT_EQ(fcntl(opened.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(root.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(PlaceBeneath, IsNotLedAwayByALinkBetweenTwoSteps)
{
    NoNewCalls const old(ENOSYS);
    BeforeCall const swap("openat", 2, [&] { swapForLink("sub/deep"); });
    EXPECT_BARRED(opened(root.get(), "sub/deep"), ELOOP);
}

TEST_F(PlaceBeneath, StaysInADirectoryThatIsMovedMeanwhile)
{
    NoNewCalls const old(ENOSYS);
    BeforeCall const move("openat", 2, [&] { swapForLink("sub"); });
    EXPECT_TRUE(
        isOpenOn(open_directory_beneath(root.get(), "sub/deep").get(), path("sub.away/deep")));
}

TEST_F(PlaceBeneath, DoesNotWalkByStepsAfterATrueFailure)
{
    CallFailure const failing("syscall", EMFILE);
    EXPECT_BARRED(opened(root.get(), "sub"), EMFILE);
}

TEST_P(PlaceEachWay, NamesTheDirectoryAndTheLastComponent)
{
    Place const near(root.get(), "none");
    EXPECT_TRUE(near.found());
    EXPECT_EQ(near.dir(), root.get());
    EXPECT_STREQ(near.name(), "none");
    Place const far(root.get(), "sub/deep/none");
    EXPECT_TRUE(isOpenOn(far.dir(), path("sub/deep")));
    EXPECT_STREQ(far.name(), "none");
    EXPECT_EQ(errno, 0);
}

TEST_P(PlaceEachWay, IsNotFoundWhereTheWayIsBarred)
{
    fs::create_directory_symlink(outside, path("link"));
    EXPECT_BARRED(Place(root.get(), "link/file").dir(), ELOOP);
    EXPECT_BARRED(Place(root.get(), "../outside").dir(), EINVAL);
    EXPECT_BARRED(Place(root.get(), "").dir(), EINVAL);
    EXPECT_BARRED(Place(root.get(), "none/file").dir(), ENOENT);
}

TEST_F(PlaceBeneath, FollowsTheAdministratorsLinkAtARoot)
{
    fs::create_directory_symlink(dir / "root", dir / "link");
    EXPECT_TRUE(isOpenOn(open_root((dir / "link").c_str()).get(), dir / "root"));
    EXPECT_BARRED(open_root(path("sub/file").c_str()).get(), ENOTDIR);
}

TEST_F(PlaceBeneath, OpensTheDirectoryAPathLiesIn)
{
    char const* name = nullptr;
    std::string const file = path("sub/any");
    EXPECT_TRUE(isOpenOn(open_parent(file.c_str(), name).get(), path("sub")));
    EXPECT_STREQ(name, "any");
    EXPECT_TRUE(isOpenOn(open_parent("any", name).get(), fs::current_path()));
    EXPECT_STREQ(name, "any");
    EXPECT_TRUE(isOpenOn(open_parent("/any", name).get(), "/"));
    for (char const* const bad : {"", "/", "a/", "a/..", "."})
        EXPECT_BARRED(open_parent(bad, name).get(), EINVAL);
    EXPECT_BARRED(open_parent((std::string(5000, 'x') + "/y").c_str(), name).get(), ENAMETOOLONG);
}
