#include "lib/beneath/listing.h"

#include "strangers_tree.h"

#include "support/fd_census.h"

#include <map>

#include <sys/stat.h>

namespace fs = std::filesystem;

using Listing = StrangersTree;

namespace {

std::map<std::string, mode_t> listed(int dir)
{
    std::map<std::string, mode_t> found;
    EXPECT_EQ(list_directory(dir, any_number,
                             [&](ListedEntry const& entry) {
                                 found[entry.name] = entry.kind;
                                 return 0;
                             }),
              0);
    return found;
}

int all(ListedEntry const&)
{
    return 0;
}

} // namespace

TEST_F(Listing, TellsEachNameAndItsKindWithoutFollowing)
{
    fs::create_directory_symlink(outside, path("way"));
    writeFile(path("file"), "");
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    std::map<std::string, mode_t> const all = {
        {"fifo", S_IFIFO}, {"file", S_IFREG}, {"sub", S_IFDIR}, {"way", S_IFLNK}};
    EXPECT_EQ(listed(root.get()), all);
    EXPECT_EQ(listed(root.get()), all);
    UnknownTypes const unknown;
    EXPECT_EQ(listed(root.get()), all);
    EXPECT_EQ(errno, 0);
}

TEST_F(Listing, PassesOverWhatVanishes)
{
    UnknownTypes const unknown;
    CallFailure const vanishing("fstatat", ENOENT);
    EXPECT_TRUE(listed(root.get()).empty());
}

TEST_F(Listing, EndsAtMoreEntriesThanTold)
{
    for (int i = 0; i < 9; ++i)
        writeFile(path(std::to_string(i)), "");
    EXPECT_EQ(list_directory(root.get(), 10, all), 0);
    EXPECT_BARRED(list_directory(root.get(), 9, all), EFBIG);
    EXPECT_BARRED(list_directory(root.get(), 0, all), EFBIG);
}

TEST_F(Listing, EndsWithTheVisitsResult)
{
    EXPECT_EQ(list_directory(root.get(), any_number, [](ListedEntry const&) { return 7; }), 7);
}

TEST_F(Listing, TellsADirectoryThatCannotBeRead)
{
    auto const before = openDescriptors();
    EXPECT_BARRED(list_directory(-1, any_number, all), EBADF);
    {
        CallFailure const failing("readdir", EIO, 2);
        EXPECT_BARRED(list_directory(root.get(), any_number, all), EIO);
    }
    UnknownTypes const unknown;
    CallFailure const failing("fstatat", EIO);
    EXPECT_BARRED(list_directory(root.get(), any_number, all), EIO);
    EXPECT_EQ(openDescriptors(), before);
}
