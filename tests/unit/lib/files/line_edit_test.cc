#include "lib/files/line_edit.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

class LineEdit : public ::testing::Test
{
protected:
    int edit(std::vector<char const*> strs, file_action_t cmd, file_pos_t set)
    {
        return editFile(path, std::move(strs), cmd, set);
    }

    static int editFile(std::string const& name, std::vector<char const*> strs, file_action_t cmd,
                        file_pos_t set)
    {
        strs.push_back(nullptr);
        struct stat info = {};
        bool const exists = stat(name.c_str(), &info) == 0;
        errno = 0;
        return edit_lines(name.c_str(), exists ? &info : nullptr, strs.data(), cmd, set);
    }

    // The rest of text after the removal.
    std::string removed(std::string const& text, char const* str, file_action_t cmd,
                        file_pos_t set = FILE_BEGIN)
    {
        writeFile(path, text);
        EXPECT_EQ(edit({str}, cmd, set), 0);
        EXPECT_FALSE(std::filesystem::exists(temporary));
        return readFile(path);
    }

    TempDir dir;
    std::string const path = dir / "file";
    std::string const temporary = path + ".tmp";
};

// From now on no file of this process can grow beyond size.
void limitFiles(rlim_t size)
{
    signal(SIGXFSZ, SIG_IGN);
    rlimit const limit{size, size};
    setrlimit(RLIMIT_FSIZE, &limit);
}

// The standard error of code, which must fail with 1 because no file can grow beyond 100 bytes.
// Captured through a pipe, because the limit holds for all files.
std::string errorsUnderLimit(std::function<int()> const& code)
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    auto const run = inChild([&] {
        dup2(ends[1], STDERR_FILENO);
        limitFiles(100);
        return code();
    });
    close(ends[1]);
    char text[8192] = {};
    EXPECT_GT(read(ends[0], text, sizeof text - 1), 0);
    close(ends[0]);
    EXPECT_EQ(run.status, 1);
    return text;
}

} // namespace

TEST_F(LineEdit, CreatesAMissingFileWhenAddingAtItsEnd)
{
    mode_t const mask = umask(022);
    EXPECT_EQ(edit({"a"}, FILE_ADD, FILE_END), 0);
    umask(mask);
    EXPECT_EQ(readFile(path), "a\n");
    EXPECT_EQ(modeOf(path), 0644U);
}

TEST_F(LineEdit, AddsEachStringAsALineAtTheEnd)
{
    writeFile(path, "old\n");
    EXPECT_EQ(edit({"a", "b\n", "c\nd", ""}, FILE_ADD, FILE_END), 0);
    EXPECT_EQ(readFile(path), "old\na\nb\nc\nd\n\n");
}

TEST_F(LineEdit, AddsEachStringAsALineAtTheBeginning)
{
    writeFile(path, "old\nlast");
    EXPECT_EQ(edit({"a", "b\n"}, FILE_ADD, FILE_BEGIN), 0);
    EXPECT_EQ(readFile(path), "a\nb\nold\nlast");
    EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST_F(LineEdit, FailsToAddAtTheBeginningOfAMissingFile)
{
    auto const run = inChild([&] { return edit({"a"}, FILE_ADD, FILE_BEGIN); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + path + ": No such file or directory\n", ENOENT));
    EXPECT_EQ(run.out, run.err);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(readFile(temporary), "a\n");
}

TEST_F(LineEdit, DoesNothingWhenAddingElsewhere)
{
    EXPECT_EQ(edit({"a"}, FILE_ADD, FILE_MID), 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(LineEdit, RemovesLinesThatEqualAString)
{
    for (file_pos_t const set : {FILE_BEGIN, FILE_END, FILE_MID})
        EXPECT_EQ(removed("a\nb\na\nab\n", "a", FILE_REMOVE, set), "b\nab\n");
}

TEST_F(LineEdit, RemovesALineWhetherOrNotGivenANewline)
{
    EXPECT_EQ(removed("a\nb\n", "a\n", FILE_REMOVE), "b\n");
    EXPECT_EQ(removed("b\na", "a\n", FILE_REMOVE), "b\n");
    EXPECT_EQ(removed("b\na", "a", FILE_REMOVE), "b\n");
    EXPECT_EQ(removed("a\nb\n", "a\nand more", FILE_REMOVE), "b\n");
}

TEST_F(LineEdit, KeepsLinesThatOnlyResembleTheString)
{
    EXPECT_EQ(removed("ab\n a\nA\na \n", "a", FILE_REMOVE), "ab\n a\nA\na \n");
    EXPECT_EQ(removed("a\n", "ab", FILE_REMOVE), "a\n");
}

TEST_F(LineEdit, RemovesEmptyLinesForAnEmptyString)
{
    EXPECT_EQ(removed("a\n\nb\n", "", FILE_REMOVE), "a\nb\n");
}

TEST_F(LineEdit, RemovesTheLinesOfSeveralStrings)
{
    writeFile(path, "a\nb\nc\n");
    EXPECT_EQ(edit({"c", "a"}, FILE_REMOVE, FILE_BEGIN), 0);
    EXPECT_EQ(readFile(path), "b\n");
}

TEST_F(LineEdit, KeepsAllLinesWithoutAString)
{
    writeFile(path, "a\nb\n");
    EXPECT_EQ(edit({}, FILE_REMOVE, FILE_BEGIN), 0);
    EXPECT_EQ(readFile(path), "a\nb\n");
}

TEST_F(LineEdit, FailsInSilenceToRemoveFromAMissingFile)
{
    auto const run = inChild(
        [&] { return edit({"a"}, FILE_REMOVE, FILE_BEGIN) == 1 && errno == ENOENT ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST_F(LineEdit, DropsLinesThatBeginWithTheString)
{
    EXPECT_EQ(removed("ab\nba\na\n", "a", FILE_REMSUB, FILE_BEGIN), "ba\n");
}

TEST_F(LineEdit, DropsLinesThatEndWithTheString)
{
    EXPECT_EQ(removed("ab\nba\na\nca", "a", FILE_REMSUB, FILE_END), "ab\n");
    EXPECT_EQ(removed("a\n", "ba", FILE_REMSUB, FILE_END), "a\n");
}

TEST_F(LineEdit, DropsLinesThatContainTheString)
{
    EXPECT_EQ(removed("xax\na\nb\n", "a", FILE_REMSUB, FILE_MID), "b\n");
}

TEST_F(LineEdit, ReportsAMissingFileWhenDroppingLines)
{
    auto const run = inChild([&] { return edit({"a"}, FILE_REMSUB, FILE_MID); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + path + ": No such file or directory\n", ENOENT));
}

TEST_F(LineEdit, LooksAtLongLinesInPiecesOf4094Characters)
{
    std::string const piece(4094, 'a');
    EXPECT_EQ(removed(piece + "b\n", "b", FILE_REMOVE), piece);
    EXPECT_EQ(removed(piece + "b\n", "c", FILE_REMOVE), piece + "b\n");
    EXPECT_EQ(removed("x" + piece + "\n", "x", FILE_REMSUB, FILE_BEGIN), "a\n");
}

TEST_F(LineEdit, RewritesAFileBesideIt)
{
    writeFile(path, "a\nb\n");
    std::filesystem::create_hard_link(path, dir / "old");
    EXPECT_EQ(edit({"a"}, FILE_REMOVE, FILE_BEGIN), 0);
    EXPECT_EQ(readFile(path), "b\n");
    EXPECT_EQ(readFile(dir / "old"), "a\nb\n");
}

TEST_F(LineEdit, WritesBesideAFileWithNoWiderMode)
{
    writeFile(path, "a\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_read |
                                           std::filesystem::perms::owner_write);
    EXPECT_EQ(edit({"a"}, FILE_REMOVE, FILE_BEGIN), 0);
    EXPECT_EQ(modeOf(path), 0600U);
}

TEST_F(LineEdit, OverwritesATemporaryFileThatAFailureLeftBehind)
{
    for (file_action_t const cmd : {FILE_ADD, FILE_REMOVE}) {
        writeFile(path, "b\n");
        writeFile(temporary, "left behind, and longer than what is written\n");
        EXPECT_EQ(edit({"a"}, cmd, FILE_BEGIN), 0);
        EXPECT_EQ(readFile(path), cmd == FILE_ADD ? "a\nb\n" : "b\n");
    }
}

TEST_F(LineEdit, OpensNothingThatHasTheTemporaryFilesName)
{
    writeFile(dir / "precious", "text");
    for (file_action_t const cmd : {FILE_ADD, FILE_REMOVE}) {
        writeFile(path, "b\n");
        std::filesystem::create_symlink(dir / "precious", temporary);
        EXPECT_EQ(edit({"a"}, cmd, FILE_BEGIN), 0);
        ASSERT_EQ(mkfifo(temporary.c_str(), 0600), 0);
        EXPECT_EQ(edit({"a"}, cmd, FILE_BEGIN), 0);
        EXPECT_EQ(readFile(path), cmd == FILE_ADD ? "a\na\nb\n" : "b\n");
        EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(path)));
    }
    EXPECT_EQ(readFile(dir / "precious"), "text");
}

TEST_F(LineEdit, ReportsATemporaryFileThatCannotBeMade)
{
    writeFile(path, "a\n");
    std::filesystem::create_directory(temporary);
    auto const run = inChild([&] { return edit({"a"}, FILE_REMOVE, FILE_BEGIN); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + temporary + ": Is a directory\n", EISDIR));
    EXPECT_EQ(readFile(path), "a\n");
}

TEST_F(LineEdit, ReportsAFileThatCannotBeOpenedForAdding)
{
    std::string const name = dir / "none/file";
    auto const run = inChild([&] { return editFile(name, {"a"}, FILE_ADD, FILE_END); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to open file " + name + ": No such file or directory\n", ENOENT));
}

TEST_F(LineEdit, ReportsANameTooLongForATemporaryFile)
{
    std::string const name(4092, 'a');
    std::string const text = withErrno(
        "Unable to open file " + name + ": " + strerror(ENAMETOOLONG) + "\n", ENAMETOOLONG);
    for (file_action_t const cmd : {FILE_ADD, FILE_REMSUB}) {
        auto const run = inChild([&] { return editFile(name, {"a"}, cmd, FILE_BEGIN); });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, text);
    }
}

TEST_F(LineEdit, ReportsAStringThatCannotBeWritten)
{
    std::string const large(10000, 'a');
    auto const run =
        inChild([&] { return editFile("/dev/full", {large.c_str()}, FILE_ADD, FILE_END); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to fputs to file /dev/full: No space left on device\n", ENOSPC));
}

TEST_F(LineEdit, ReportsAFileThatCannotBeClosed)
{
    auto const run = inChild([&] { return editFile("/dev/full", {"a"}, FILE_ADD, FILE_END); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to close file /dev/full: No space left on device\n", ENOSPC));
}

TEST_F(LineEdit, LeavesTheTemporaryFileWhenItCannotBeClosed)
{
    writeFile(path, "a\nb\n");
    auto const run = inChild([&] {
        CallFailure const failing("fclose", EIO, 2);
        return edit({"a"}, FILE_REMOVE, FILE_BEGIN);
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              withErrno("Unable to close file " + temporary + ": Input/output error\n", EIO));
    EXPECT_EQ(readFile(path), "a\nb\n");
    EXPECT_EQ(readFile(temporary), "b\n");
}

TEST_F(LineEdit, EndsTheProcessWhenALineCannotBeWritten)
{
    std::string const text(10000, 'a');
    writeFile(path, text + "\n");
    for (file_action_t const cmd : {FILE_ADD, FILE_REMOVE}) {
        auto const run = inChild([&] {
            limitFiles(100);
            edit({"b"}, cmd, FILE_BEGIN);
            return 7;
        });
        EXPECT_EQ(run.status, 1);
    }
    EXPECT_EQ(readFile(path), text + "\n");
    EXPECT_EQ(std::filesystem::file_size(temporary), 100U);
}

TEST_F(LineEdit, NamesTheFileWhoseLineCannotBeWritten)
{
    writeFile(path, std::string(10000, 'a'));
    EXPECT_EQ(errorsUnderLimit([&] { return edit({"b"}, FILE_REMOVE, FILE_BEGIN); }),
              withErrno("cannot write a line to " + path + ".tmp", EFBIG));
}

TEST_F(LineEdit, ReportsAStringThatCannotBeWrittenBesideTheFile)
{
    std::string const large(10000, 'a');
    writeFile(path, "b\n");
    EXPECT_EQ(errorsUnderLimit([&] { return edit({large.c_str()}, FILE_ADD, FILE_BEGIN); }),
              withErrno("Unable to fputs to file " + temporary + ": File too large\n", EFBIG));
    EXPECT_EQ(readFile(path), "b\n");
}

TEST_F(LineEdit, ReportsAFailedRename)
{
    for (auto const& [command, words] : {std::pair{FILE_ADD, "Error while rename file "},
                                         {FILE_REMOVE, "Unable to rename file "}}) {
        writeFile(path, "a\n");
        auto const run = inChild([&, cmd = command] {
            CallFailure const failing("renameat", EXDEV);
            return edit({"b"}, cmd, FILE_BEGIN);
        });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, withErrno(words + path + ": Invalid cross-device link\n", EXDEV));
        EXPECT_EQ(readFile(path), "a\n");
        EXPECT_TRUE(std::filesystem::remove(temporary));
    }
}

TEST_F(LineEdit, LeavesAFileThatCannotBeReadToItsEnd)
{
    std::filesystem::create_directory(path);
    for (file_action_t const cmd : {FILE_ADD, FILE_REMOVE}) {
        auto const run = inChild([&] { return edit({"a"}, cmd, FILE_BEGIN); });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err, withErrno("Unable to read file " + path + ": Is a directory\n", EISDIR));
    }
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(LineEdit, ClosesWhatItOpens)
{
    auto const before = openDescriptors();
    writeFile(path, "a\nb\n");
    EXPECT_EQ(edit({"a"}, FILE_ADD, FILE_END), 0);
    EXPECT_EQ(edit({"a"}, FILE_ADD, FILE_BEGIN), 0);
    EXPECT_EQ(edit({"a"}, FILE_REMOVE, FILE_BEGIN), 0);
    EXPECT_EQ(edit({"a"}, FILE_REMSUB, FILE_BEGIN), 0);
    EXPECT_EQ(openDescriptors(), before);
}
