#include "util/autoclean_ofstream.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <sys/resource.h>

using orvek::AutocleanOFStream;

TEST(AutocleanOFStream, WritesAFileAndRemovesItAtItsEnd)
{
    TempDir const dir;
    auto const before = openDescriptors();
    {
        AutocleanOFStream out(dir / "text");
        EXPECT_EQ(out.path(), dir / "text");
        out << "line\n" << std::flush;
        EXPECT_EQ(readFile(dir / "text"), "line\n");
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "text"));
    EXPECT_EQ(openDescriptors(), before);
}

TEST(AutocleanOFStream, RemovesAFileThatHasBeenClosed)
{
    TempDir const dir;
    {
        AutocleanOFStream out(dir / "text");
        out.close();
        EXPECT_TRUE(std::filesystem::exists(dir / "text"));
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "text"));
}

TEST(AutocleanOFStream, EmptiesAFileThatIsThere)
{
    TempDir const dir;
    writeFile(dir / "text", "old");
    AutocleanOFStream const out(dir / "text");
    EXPECT_EQ(readFile(dir / "text"), "");
}

TEST(AutocleanOFStream, KeepsTheErrorNumberThoughThereIsNothingToRemove)
{
    TempDir const dir;
    {
        AutocleanOFStream const out(dir / "no/text");
        EXPECT_FALSE(out.is_open());
        errno = EPROTO;
    }
    EXPECT_EQ(errno, EPROTO);
}

TEST(AutocleanOFStream, KeepsErrnoThoughTheRestCannotBeWritten)
{
    TempDir const dir;
    ChildRun const run = inChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const none = {0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
        {
            AutocleanOFStream out(dir / "text");
            out.exceptions(std::ios::failbit | std::ios::badbit);
            out << "line\n";
            errno = EPROTO;
        }
        return errno == EPROTO ? 0 : errno;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "text"));
}
