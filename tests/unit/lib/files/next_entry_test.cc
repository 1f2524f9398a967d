#include "lib/files/next_entry.h"

#include "support/call_faults.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

namespace {

class NextEntry : public ::testing::Test
{
protected:
    NextEntry()
    {
        for (auto const* const name : {"one", "two", "..three"})
            writeFile(directory / name, "");
        stream = OpenDir(opendir(directory.path().c_str()));
    }

    TempDir directory;
    OpenDir stream;
    char const* name = nullptr;
};

} // namespace

TEST_F(NextEntry, GivesEachNameButDotAndDotDot)
{
    std::set<std::string> names;
    while (next_entry(stream, &name) == 1)
        names.insert(name);
    EXPECT_EQ(names, (std::set<std::string>{"one", "two", "..three"}));
}

TEST_F(NextEntry, KeepsErrnoOnTheWayAndAtTheEnd)
{
    errno = EXDEV;
    while (next_entry(stream, &name) == 1)
        EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(next_entry(stream, &name), 0);
    EXPECT_EQ(errno, EXDEV);
}

TEST_F(NextEntry, TellsAFailureFromTheEnd)
{
    CallFailure const failing("readdir", EIO, 4);
    int more = 0;
    while ((more = next_entry(stream, &name)) == 1)
        EXPECT_NE(name, nullptr);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(more, -1);
}
