#include "lib/beneath/made_directory.h"

#include "strangers_tree.h"

#include "support/fd_census.h"

#include <unistd.h>

namespace fs = std::filesystem;

using MadeDirectory = StrangersTree;
using MadeDirectoryEachWay = EachWay;
INSTANTIATE_EACH_WAY(MadeDirectoryEachWay);

namespace {

int make(int root, char const* path, Making* making = nullptr)
{
    return make_directory_beneath(root, path, mode_only(0750), making).get();
}

} // namespace

TEST_P(MadeDirectoryEachWay, HasTheModeToldWhateverTheUmask)
{
    fs::permissions(path("sub"), fs::perms::set_gid, fs::perm_options::add);
    for (mode_t const mask : {0U, 022U, 0777U}) {
        mode_t const before = umask(mask);
        std::string const name = "sub/new" + std::to_string(mask);
        Making making = Making::there;
        EXPECT_GE(make(root.get(), name.c_str(), &making), 0);
        umask(before);
        EXPECT_EQ(making, Making::anew);
        EXPECT_EQ(modeOf(path(name)), 0750U);
    }
    EXPECT_EQ(errno, 0);
}

TEST_P(MadeDirectoryEachWay, IsLeftAsItIsWhenItWasThere)
{
    Making making = Making::anew;
    fs::permissions(path("sub/deep"), fs::perms::owner_all);
    EXPECT_GE(make(root.get(), "sub/deep", &making), 0);
    EXPECT_EQ(making, Making::there);
    EXPECT_EQ(modeOf(path("sub/deep")), 0700U);
    EXPECT_EQ(errno, 0);
}

TEST_P(MadeDirectoryEachWay, IsNotMadeThroughALinkNorInItsPlace)
{
    fs::create_directory_symlink(outside, path("way"));
    fs::create_directory_symlink(outside + "/new", path("dangling"));
    EXPECT_BARRED(make(root.get(), "way"), ELOOP);
    EXPECT_BARRED(make(root.get(), "way/new"), ELOOP);
    EXPECT_BARRED(make(root.get(), "dangling"), ELOOP);
    EXPECT_BARRED(make(root.get(), "sub/file"), ENOTDIR);
    EXPECT_BARRED(make(root.get(), "../new"), EINVAL);
    expectOutsideUntouched();
}

TEST_F(MadeDirectory, GivesNothingToALinkThatTakesItsPlace)
{
    BeforeCall const swap("syscall", 1, [&] { swapForLink("new"); });
    EXPECT_BARRED(make(root.get(), "new"), ELOOP);
    EXPECT_NE(modeOf(outside), 0750U);
}

TEST_F(MadeDirectory, TellsThatItWasMadeWhenRightsFail)
{
    Making making = Making::there;
    CallFailure const failing("fchmod", EIO);
    EXPECT_BARRED(make(root.get(), "new", &making), EIO);
    EXPECT_EQ(making, Making::anew);
    EXPECT_TRUE(fs::exists(path("new")));
}

TEST_P(MadeDirectoryEachWay, IsMadeWithThoseAboveIt)
{
    auto const before = openDescriptors();
    auto const makeAll = [&](char const* name) {
        return make_directories_beneath(root.get(), name, mode_only(0711)).get();
    };
    mode_t const mask = umask(0777);
    EXPECT_GE(makeAll("sub/new/one/two"), 0);
    umask(mask);
    EXPECT_EQ(modeOf(path("sub/new")), 0711U);
    EXPECT_EQ(modeOf(path("sub/new/one/two")), 0711U);
    EXPECT_NE(modeOf(path("sub")), 0711U);
    EXPECT_GE(makeAll("sub/new/one/two"), 0);
    fs::create_directory_symlink(outside, path("sub/way"));
    EXPECT_BARRED(makeAll("sub/way/new"), ELOOP);
    EXPECT_BARRED(makeAll("sub//new"), EINVAL);
    EXPECT_BARRED(makeAll("sub/new/"), EINVAL);
    EXPECT_BARRED(makeAll("../outside/new"), EINVAL);
    expectOutsideUntouched();
    EXPECT_EQ(openDescriptors(), before);
}
