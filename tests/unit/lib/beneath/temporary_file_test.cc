#include "lib/beneath/temporary_file.h"

#include "strangers_tree.h"

#include "lib/beneath/rights.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <set>

#include <unistd.h>

namespace fs = std::filesystem;

using TemporaryBeneath = StrangersTree;
using TemporaryEachWay = EachWay;
INSTANTIATE_EACH_WAY(TemporaryEachWay);

namespace {

std::set<std::string> names(std::string const& directory)
{
    std::set<std::string> found;
    for (auto const& entry : fs::directory_iterator(directory))
        found.insert(entry.path().filename());
    return found;
}

} // namespace

TEST_P(TemporaryEachWay, TakesTheTargetsPlaceWithItsRights)
{
    mode_t const before = umask(0777);
    TemporaryFile file(root.get(), "sub/file", 0600);
    umask(before);
    ASSERT_GE(file.get(), 0);
    EXPECT_EQ(write(file.get(), "new", 3), 3);
    EXPECT_EQ(set_rights(file.get(), mode_only(0604)), 0);
    EXPECT_EQ(readFile(path("sub/file")), "text");
    EXPECT_EQ(file.replace(), 0);
    EXPECT_EQ(readFile(path("sub/file")), "new");
    EXPECT_EQ(modeOf(path("sub/file")), 0604U);
    EXPECT_EQ(names(path("sub")), (std::set<std::string>{"deep", "file"}));
}

TEST_F(TemporaryBeneath, IsRemovedUnlessItIsKept)
{
    EXPECT_GE(TemporaryFile(root.get(), "sub/file", 0600).get(), 0);
    EXPECT_GE(TemporaryFile(root.get(), "sub/file", ".tmp", 0600).get(), 0);
    EXPECT_EQ(names(path("sub")), (std::set<std::string>{"deep", "file"}));
    TemporaryFile(root.get(), "sub/file", ".tmp", 0600).keep();
    EXPECT_EQ(names(path("sub")), (std::set<std::string>{"deep", "file", "file.tmp"}));
}

TEST_F(TemporaryBeneath, HasANameThatNobodyForesees)
{
    TemporaryFile const one(root.get(), "sub/file", 0600);
    TemporaryFile const other(root.get(), "sub/file", 0600);
    EXPECT_STRNE(one.name(), other.name());
    EXPECT_EQ(std::string(one.name()).size(), std::string("file.XXXXXX").size());
    EXPECT_TRUE(fs::exists(path("sub/") + one.name()));
}

TEST_F(TemporaryBeneath, PartsTheNameByTheSeparatorTold)
{
    auto const bare = TemporaryFile::with_separator(root.get(), "sub/file", "", 0600);
    EXPECT_THAT(bare.name(), ::testing::MatchesRegex("file[a-zA-Z0-9]{6}"));
    EXPECT_TRUE(fs::exists(path("sub/") + bare.name()));
}

TEST_F(TemporaryBeneath, RemovesTheFileThatItsCallerMakes)
{
    {
        auto const file = TemporaryFile::of_caller(root.get(), "sub/made");
        EXPECT_LT(file.get(), 0);
        writeFile(path("sub/made"), "text");
    }
    EXPECT_EQ(names(path("sub")), (std::set<std::string>{"deep", "file"}));
}

TEST_F(TemporaryBeneath, OwnsTheFileWhoseDescriptorIsGivenAway)
{
    {
        TemporaryFile file(root.get(), "sub/file", 0600);
        OpenDescriptor const given(file.release());
        EXPECT_EQ(write(given.get(), "new", 3), 3);
        EXPECT_EQ(names(path("sub")).size(), 3U);
    }
    EXPECT_EQ(names(path("sub")), (std::set<std::string>{"deep", "file"}));
}

TEST_F(TemporaryBeneath, TellsWhyItCannotBeRemoved)
{
    TemporaryFile file(root.get(), "sub/file", 0600);
    fs::remove(path("sub/") + file.name());
    errno = EPROTO;
    EXPECT_EQ(file.remove(), ENOENT);
    EXPECT_EQ(file.remove(), 0);
    EXPECT_EQ(errno, EPROTO);
}

TEST_F(TemporaryBeneath, TriesAnotherNameWhereOneIsTaken)
{
    CallFailure const taken("openat", EEXIST, 2); // the first opens the way
    EXPECT_GE(TemporaryFile(root.get(), "file", 0600).get(), 0);
}

TEST_F(TemporaryBeneath, PutsAsideWhatHasTheNameTold)
{
    fs::create_symlink(outside + "/file", path("sub/file.tmp"));
    {
        TemporaryFile const file(root.get(), "sub/file", ".tmp", 0600);
        ASSERT_GE(file.get(), 0);
        EXPECT_FALSE(fs::is_symlink(path("sub/file.tmp")));
    }
    ASSERT_EQ(mkfifo(path("sub/file.tmp").c_str(), 0600), 0);
    EXPECT_GE(TemporaryFile(root.get(), "sub/file", ".tmp", 0600).get(), 0);
    fs::create_hard_link(outside + "/file", path("sub/file.tmp"));
    EXPECT_GE(TemporaryFile(root.get(), "sub/file", ".tmp", 0600).get(), 0);
    expectOutsideUntouched();
    fs::create_directory(path("sub/file.tmp"));
    EXPECT_BARRED(TemporaryFile(root.get(), "sub/file", ".tmp", 0600).get(), EISDIR);
}

TEST_F(TemporaryBeneath, ReplacesALinkAndNotWhatItLeadsTo)
{
    fs::create_symlink(outside + "/file", path("link"));
    TemporaryFile file(root.get(), "link", 0600);
    EXPECT_EQ(file.replace(), 0);
    EXPECT_FALSE(fs::is_symlink(path("link")));
    expectOutsideUntouched();
}

TEST_F(TemporaryBeneath, IsWrittenByAStream)
{
    TemporaryFile file(root.get(), "new", 0600);
    OpenFile stream = file.write_stream();
    ASSERT_TRUE(stream);
    EXPECT_GE(fputs("line\n", stream.get()), 0);
    EXPECT_EQ(fclose(stream.release()), 0);
    EXPECT_EQ(file.replace(), 0);
    EXPECT_EQ(readFile(path("new")), "line\n");
}

TEST_F(TemporaryBeneath, TellsAFileThatCannotBeWrittenOut)
{
    TemporaryFile file(root.get(), "sub/file", 0600);
    {
        CallFailure const failing("close", ENOSPC);
        EXPECT_BARRED(file.replace(), ENOSPC);
    }
    EXPECT_EQ(readFile(path("sub/file")), "text");
}

TEST_P(TemporaryEachWay, IsNotMadeWhereTheWayIsBarred)
{
    fs::create_directory_symlink(outside, path("way"));
    EXPECT_BARRED(TemporaryFile(root.get(), "way/file", 0600).get(), ELOOP);
    EXPECT_BARRED(TemporaryFile(root.get(), "way/file", ".tmp", 0600).get(), ELOOP);
    EXPECT_BARRED(TemporaryFile(root.get(), "none/file", ".tmp", 0600).get(), ENOENT);
    EXPECT_BARRED(TemporaryFile(root.get(), "../file", 0600).get(), EINVAL);
    expectOutsideUntouched();
}
