#include "lib/files/copy_file.h"

#include "copy_file_fixture.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace {

class CopyFileAtomicOnHost : public HostTest, protected Files
{
};

class CopyFileAtomic : public ::testing::Test, protected Files
{
protected:
    void copy() { copy_file_atomic(src.c_str(), dst.c_str(), getuid(), getgid(), 0440); }

    // Expects that copying ends the process with this report and leaves no file.
    void expectFailure(char const* word, int error)
    {
        int const files = filesIn(dir.path());
        expectReport(word, error, "");
        EXPECT_EQ(filesIn(dir.path()), files);
    }

    void expectReport(char const* word, int error, char const* failing_call, int number = 1)
    {
        auto const run = inChild([&] {
            CallFailure const failing(failing_call, error, number);
            copy();
            return 7;
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(
            run.err,
            withErrno("copy_file_atomic(" + src + " -> " + dst + "): " + word + " failed", error));
    }

    // The path of the file beside source and target.
    std::string temporary() const
    {
        for (auto const& entry : std::filesystem::directory_iterator(dir.path()))
            if (entry.path() != src && entry.path() != dst)
                return entry.path();
        return "";
    }

    void expectFailureOf(char const* call, int number, char const* word)
    {
        writeFile(src, content);
        writeFile(dst, "old");
        expectReport(word, EIO, call, number);
        EXPECT_EQ(readFile(dst), "old");
        EXPECT_EQ(filesIn(dir.path()), 2);
    }
};

} // namespace

TEST_F(CopyFileAtomic, CopiesTheContentAndSetsTheMode)
{
    auto const before = openDescriptors();
    writeFile(src, content);
    copy();
    EXPECT_EQ(readFile(dst), content);
    EXPECT_EQ(modeOf(dst), 0440U);
    EXPECT_EQ(filesIn(dir.path()), 2);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CopyFileAtomic, ReplacesTheTarget)
{
    writeFile(src, "new");
    writeFile(dst, "old");
    std::filesystem::create_hard_link(dst, dir / "kept");
    copy();
    EXPECT_EQ(readFile(dst), "new");
    EXPECT_EQ(readFile(dir / "kept"), "old");
}

TEST_F(CopyFileAtomic, EndsTheProcessWithoutItsSource)
{
    expectFailure("open", ENOENT);
}

TEST_F(CopyFileAtomic, EndsTheProcessWithoutATemporaryFile)
{
    writeFile(src, content);
    auto const run = inChild([&] {
        copy_file_atomic(src.c_str(), (dir / "none/dst").c_str(), 0, 0, 0);
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, withErrno("copy_file_atomic(" + src + " -> " + (dir / "none/dst") +
                                     "): mkstemp failed",
                                 ENOENT));
}

TEST_F(CopyFileAtomic, EndsTheProcessForAnIrregularSource)
{
    std::filesystem::create_directory(src);
    expectFailure("open", EISDIR);
    std::filesystem::remove(src);
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_symlink(dir / "theirs", src);
    expectFailure("open", ELOOP);
    std::filesystem::remove(src);
    std::filesystem::create_hard_link(dir / "theirs", src);
    expectFailure("open", EMLINK);
    std::filesystem::remove(src);
    ASSERT_EQ(mkfifo(src.c_str(), 0600), 0);
    expectFailure("open", EINVAL);
}

TEST_F(CopyFileAtomic, LeavesTheTargetUntouchedWhenAFailedStepEndsIt)
{
    expectFailureOf("read", 1, "write");
    expectFailureOf("write", 1, "write");
    expectFailureOf("fchownat", 1, "chown");
    expectFailureOf("fchmod", 2, "chmod"); // the first is of the file that is made
    expectFailureOf("close", 3, "flush");  // the first two are of the source's opening
}

TEST_F(CopyFileAtomic, ReplacesALinkAtTheTargetNotItsTarget)
{
    writeFile(src, "new");
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_symlink(dir / "theirs", dst);
    copy();
    EXPECT_EQ(readFile(dst), "new");
    EXPECT_EQ(readFile(dir / "theirs"), "secret");
}

TEST_F(CopyFileAtomic, EndsTheProcessWhenTheTargetCannotBeReplaced)
{
    writeFile(src, content);
    std::filesystem::create_directory(dst);
    expectFailure("rename", EISDIR);
}

TEST_F(CopyFileAtomic, WritesBesideTheTarget)
{
    writeFile(src, content);
    std::string name;
    BeforeCall const look("renameat", 1, [&] { name = temporary(); });
    copy();
    EXPECT_EQ(name.substr(0, dst.size() + 1), dst + ".");
    EXPECT_EQ(name.size(), dst.size() + 7);
}

TEST_F(CopyFileAtomic, NamesTheReasonWhateverBecomesOfTheTemporaryFile)
{
    writeFile(src, content);
    writeFile(dst, "old");
    auto const run = inChild([&] {
        // A directory can neither replace the target nor be unlinked.
        BeforeCall const swap("renameat", 1, [&] {
            std::string const name = temporary();
            std::filesystem::remove(name);
            std::filesystem::create_directory(name);
        });
        copy();
        return 7;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("copy_file_atomic(" + src + " -> " + dst + "): rename failed", ENOTDIR));
}

TEST_F(CopyFileAtomicOnHost, SetsTheOwnerAndThenTheMode)
{
    writeFile(src, content);
    copy_file_atomic(src.c_str(), dst.c_str(), 4711, 4712, 06755);
    struct stat info = {};
    ASSERT_EQ(stat(dst.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 4711U);
    EXPECT_EQ(info.st_gid, 4712U);
    EXPECT_EQ(modeOf(dst), 06755U);
}
