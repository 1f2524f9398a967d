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
        GivenPlace const place(path.c_str(), giver);
        return place.found() && std::strcmp(place.name(), "file") == 0 &&
               fs::read_symlink("/proc/self/fd/" + std::to_string(place.dir())) == directory;
    }

    int errorOf(std::string const& path)
    {
        errno = 0;
        return GivenPlace(path.c_str(), giver).found() ? 0 : errno;
    }

    // Whether a giver may hand over a file of the owner at the path.
    bool gives(uid_t from, std::string const& path, uid_t owner)
    {
        struct stat info = {};
        info.st_uid = owner;
        GivenPlace const place(path.c_str(), from);
        EXPECT_TRUE(place.found());
        errno = 0;
        bool const given = place.gives(info);
        EXPECT_EQ(errno, given ? 0 : EPERM);
        return given;
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

TEST_F(GivenPathOnHost, LeadsOverAStrangersLinkToHisFilesOnly)
{
    std::string const path = linkOf(stranger, "sub", "strangers") + "/file";
    EXPECT_TRUE(leadsTo(this->path("sub"), path));
    EXPECT_TRUE(gives(0, path, stranger));
    EXPECT_FALSE(gives(0, path, 0));
    EXPECT_FALSE(gives(0, path, giver));
    EXPECT_FALSE(gives(giver, path, stranger));
    EXPECT_FALSE(gives(0, linkOf(0, "strangers", "through") + "/file", 0));
    EXPECT_FALSE(gives(0, this->path("strangers/../sub/file"), 0));
}

TEST_F(GivenPathOnHost, FollowsNoLinksOfTwoStrangers)
{
    linkOf(stranger, "sub", "strangers");
    EXPECT_EQ(errorOf(linkOf(stranger + 100, "strangers", "anothers") + "/file"), ELOOP);
}

TEST_F(GivenPathOnHost, TakesAnybodysFilesFromRootAndOwnOnesFromOthers)
{
    EXPECT_TRUE(gives(0, path("sub/file"), stranger));
    EXPECT_TRUE(gives(giver, path("sub/file"), giver));
    EXPECT_FALSE(gives(giver, path("sub/file"), 0));
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
