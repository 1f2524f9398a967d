#include "lib/files/libfile.h"

#include "support/child_run.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

class GetStringFromFile : public ::testing::Test
{
protected:
    static constexpr size_t size = 311;

    // The line that a buffer of size bytes gets from a file with this text.
    std::string got(std::string const& text)
    {
        writeFile(path, text);
        char buff[size];
        memset(buff, '?', sizeof buff);
        EXPECT_EQ(get_string_from_file(buff, sizeof buff, path.c_str()), 0);
        return buff;
    }

    int get()
    {
        char buff[size];
        return get_string_from_file(buff, sizeof buff, path.c_str());
    }

    TempDir dir;
    std::string const path = dir / "file";
};

} // namespace

TEST_F(GetStringFromFile, ReadsTheFirstLine)
{
    EXPECT_EQ(got("first\nsecond\n"), "first");
    EXPECT_EQ(got("only"), "only");
}

TEST_F(GetStringFromFile, TrimsTheLine)
{
    EXPECT_EQ(got(" \t a b \r\n"), "a b");
    EXPECT_EQ(got("  \nsecond\n"), "");
}

TEST_F(GetStringFromFile, ZeroesTheBufferForAnEmptyFile)
{
    writeFile(path, "");
    std::string buff(8, '?');
    EXPECT_EQ(get_string_from_file(buff.data(), buff.size(), path.c_str()), 0);
    EXPECT_EQ(buff, std::string(8, '\0'));
}

TEST_F(GetStringFromFile, Accepts310CharactersInABufferOf311Bytes)
{
    std::string const longest(310, 'a');
    EXPECT_EQ(got("  " + longest + "  \n"), longest);
}

TEST_F(GetStringFromFile, Refuses311CharactersInABufferOf311Bytes)
{
    writeFile(path, std::string(311, 'a') + "\n");
    auto const run = inChild([&] { return get() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "The buffer too short\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(GetStringFromFile, ReportsAFileThatCannotBeOpened)
{
    auto const run = inChild([&] { return get() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + path + ": No such file or directory\n", ENOENT));
}

TEST_F(GetStringFromFile, ReportsADirectoryAsAFileThatCannotBeOpened)
{
    std::filesystem::create_directory(path);
    auto const run = inChild([&] { return get() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("Unable to open file " + path + ": Is a directory\n", EISDIR));
}

TEST_F(GetStringFromFile, RefusesAFileThatIsHuge)
{
    writeFile(path, "first\n");
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40), 0);
    auto const run = inChild([&] { return get() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("Unable to open file " + path + ": File too large\n", EFBIG));
}
