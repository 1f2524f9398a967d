#include "lib/beneath/given_path.h"

#include "strangers_tree.h"

#include "support/fd_census.h"

#include <cstring>
#include <set>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr uid_t stranger = 4321;
constexpr uid_t giver = 4322;

class GivenPathOnHost : public StrangersTree
{
protected:
    // Whether the directory of path is opened, and is this one.
    bool leadsTo(std::string const& directory, std::string const& path)
    {
        char const* name = nullptr;
        OpenDescriptor const opened = open_given_parent(path.c_str(), giver, name);
        return opened.get() >= 0 && std::strcmp(name, "file") == 0 &&
               fs::read_symlink("/proc/self/fd/" + std::to_string(opened.get())) == directory;
    }

    int errorOf(std::string const& path)
    {
        char const* name = nullptr;
        errno = 0;
        return open_given_parent(path.c_str(), giver, name).get() < 0 ? errno : 0;
    }

    // A link beneath the tree that this user owns.
    std::string linkOf(uid_t owner, std::string const& target, std::string const& name)
    {
        fs::create_symlink(target, path(name));
        EXPECT_EQ(lchown(path(name).c_str(), owner, owner), 0);
        return path(name);
    }

    void TearDown() override { EXPECT_EQ(openDescriptors(), before); }

private:
    std::set<int> const before = openDescriptors();
};

} // namespace

TEST_F(GivenPathOnHost, OpensTheDirectoryOfAPathWithoutLinks)
{
    EXPECT_TRUE(leadsTo(path("sub"), path("sub/file")));
    EXPECT_TRUE(leadsTo(path("sub"), path("sub//deep/.././file")));
    EXPECT_TRUE(leadsTo("/", "/file"));
    EXPECT_TRUE(leadsTo(fs::current_path().string(), "file"));
}

TEST_F(GivenPathOnHost, FollowsLinksOfRootAndOfTheGiver)
{
    EXPECT_TRUE(leadsTo(path("sub/deep"), linkOf(0, "sub", "roots") + "/deep/file"));
    EXPECT_TRUE(leadsTo(path("sub"), linkOf(giver, path("sub"), "givers") + "/file"));
    EXPECT_TRUE(leadsTo(path("sub"), linkOf(0, "givers", "through") + "/file"));
}

TEST_F(GivenPathOnHost, FollowsNoLinkOfAStranger)
{
    EXPECT_EQ(errorOf(linkOf(stranger, "sub", "strangers") + "/file"), ELOOP);
    EXPECT_EQ(errorOf(linkOf(0, "strangers", "through") + "/file"), ELOOP);
    EXPECT_EQ(errorOf(path("strangers/../sub/file")), ELOOP);
}

TEST_F(GivenPathOnHost, EndsAtLinksThatLeadInACircle)
{
    EXPECT_EQ(errorOf(linkOf(0, "one", "one") + "/file"), ELOOP);
}

TEST_F(GivenPathOnHost, SaysWhyADirectoryCannotBeReached)
{
    EXPECT_EQ(errorOf(path("none/file")), ENOENT);
    EXPECT_EQ(errorOf(path("sub/file/more")), ENOTDIR);
    for (char const* const nameless : {"", "/", "/tmp/", "/tmp/..", "."})
        EXPECT_EQ(errorOf(nameless), EINVAL) << nameless;
}
