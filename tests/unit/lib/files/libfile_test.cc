#include "lib/files/libfile.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/report.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include <pwd.h>
#include <unistd.h>

namespace {

class Libfile : public ::testing::Test
{
protected:
    TempDir dir;
    std::string const path = dir / "file";
};

class RenameDir : public ::testing::Test
{
protected:
    int rename() { return rename_dir(from.c_str(), to.c_str()); }

    TempDir dir;
    std::string const from = dir / "from";
    std::string const to = dir / "to";
};

class FileSetPermsOnHost : public HostTest
{
};

std::string missing(std::string const& text)
{
    return withErrno(text + ": No such file or directory", ENOENT);
}

void expectOwner(std::string const& path, uid_t uid, gid_t gid)
{
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, uid);
    EXPECT_EQ(info.st_gid, gid);
}

} // namespace

TEST_F(Libfile, CreatesAFileWithMode0644)
{
    mode_t const mask = umask(0);
    for (auto* const create : {create_empty_file, create_file}) {
        EXPECT_EQ(create(path.c_str()), 0);
        EXPECT_EQ(modeOf(path), 0644U);
        std::filesystem::remove(path);
    }
    umask(mask);
}

TEST_F(Libfile, EmptiesAFileOrLeavesItsContent)
{
    writeFile(path, "text");
    EXPECT_EQ(create_file(path.c_str()), 0);
    EXPECT_EQ(readFile(path), "text");
    EXPECT_EQ(create_empty_file(path.c_str()), 0);
    EXPECT_EQ(readFile(path), "");
}

TEST_F(Libfile, ClosesTheFileThatItCreates)
{
    auto const before = openDescriptors();
    EXPECT_EQ(create_empty_file(path.c_str()), 0);
    EXPECT_EQ(create_file(path.c_str()), 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Libfile, ReportsAFileThatCannotBeCreated)
{
    std::string const name = dir / "none/file";
    auto const emptied = inChild([&] { return create_empty_file(name.c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(emptied.status, 0);
    EXPECT_EQ(emptied.err, missing("Unable to truncate or create file " + name));
    auto const created = inChild([&] { return create_file(name.c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(created.status, 0);
    EXPECT_EQ(created.err, missing("Unable to create file " + name));
    EXPECT_EQ(created.out, created.err);
}

TEST_F(RenameDir, RenamesADirectory)
{
    std::filesystem::create_directories(from + "/sub");
    errno = 0;
    EXPECT_EQ(rename(), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(std::filesystem::is_directory(to + "/sub"));
    EXPECT_FALSE(std::filesystem::exists(from));
}

TEST_F(RenameDir, DoesNothingWithoutTheSource)
{
    std::filesystem::create_directory(to);
    auto const run = inChild([&] { return rename() == 0 && errno == 0 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(RenameDir, RefusesATargetThatExists)
{
    std::filesystem::create_directory(from);
    std::filesystem::create_directory(to);
    auto const run = inChild([&] { return rename() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Directory rename error: target directory " + to + " already exists.\n");
    EXPECT_TRUE(std::filesystem::exists(from));
}

TEST_F(RenameDir, TakesALinkThatLeadsNowhereForOneThatExists)
{
    std::filesystem::create_symlink(dir / "none", from);
    EXPECT_EQ(rename(), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(to));
    std::filesystem::create_directory(from);
    auto const run = inChild([&] { return rename() == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Directory rename error: target directory " + to + " already exists.\n");
}

TEST_F(RenameDir, ReportsAFailedRename)
{
    std::filesystem::create_directory(from);
    std::string const below = from + "/to";
    auto const run = inChild([&] { return rename_dir(from.c_str(), below.c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err,
              withErrno("Remaming " + from + " to " + below + " failed: " + strerror(EINVAL) + "\n",
                        EINVAL));
}

TEST_F(Libfile, SetsTheModeOfAFile)
{
    writeFile(path, "");
    EXPECT_EQ(file_set_perms(path.c_str(), getuid(), getgid(), 0600), 0);
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_EQ(file_set_perms(path.c_str(), getuid(), getgid(), 02640), 0);
    EXPECT_EQ(modeOf(path), 02640U);
}

TEST_F(Libfile, AcceptsThatAFileForPermissionsIsMissing)
{
    auto const run = inChild([&] {
        return file_set_perms(path.c_str(), getuid(), getgid(), 0600) == 0 && errno == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST_F(Libfile, OpensAndChangesNoLinkFifoOrFurtherName)
{
    std::string const outside = dir / "outside";
    writeFile(outside, "theirs");
    unsigned const mode = modeOf(outside);
    void (*const plants[])(std::string const& outside, std::string const& path) = {
        [](std::string const& to, std::string const& at) {
            std::filesystem::create_symlink(to, at);
        },
        [](std::string const& to, std::string const& at) {
            std::filesystem::create_hard_link(to, at);
        },
        [](std::string const&, std::string const& at) { mkfifo(at.c_str(), mode_t{0600}); },
    };
    for (auto* const plant : plants) {
        plant(outside, path);
        auto const run = inChild([&] {
            char buff[100] = {};
            char const* const user = getpwuid(getuid())->pw_name;
            int const done = create_file(path.c_str()) + create_empty_file(path.c_str()) +
                             file_set_perms(path.c_str(), getuid(), getgid(), 0777) +
                             file_set_user_mode(path.c_str(), user, 0777) +
                             get_string_from_file(buff, sizeof buff, path.c_str());
            return done == -5 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << run.err;
        std::filesystem::remove(path);
    }
    EXPECT_EQ(readFile(outside), "theirs");
    EXPECT_EQ(modeOf(outside), mode);
}

TEST_F(Libfile, MakesNothingThroughALinkThatLeadsNowhere)
{
    std::filesystem::create_symlink(dir / "new", path);
    auto const run = inChild([&] {
        return create_file(path.c_str()) == -1 && create_empty_file(path.c_str()) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_FALSE(std::filesystem::exists(dir / "new"));
}

TEST_F(Libfile, FollowsTheAdministratorsLinksAboveAFile)
{
    std::filesystem::create_directory(dir / "true");
    std::filesystem::create_directory_symlink(dir / "true", dir / "link");
    EXPECT_EQ(create_file((dir / "link/file").c_str()), 0);
    EXPECT_EQ(file_set_perms((dir / "link/file").c_str(), getuid(), getgid(), 0604), 0);
    EXPECT_EQ(modeOf(dir / "true/file"), 0604U);
}

TEST_F(Libfile, ReportsAnOwnerOrAModeThatCannotBeSet)
{
    writeFile(path, "");
    // The mode of an O_PATH descriptor is changed through /proc.
    std::pair<char const*, char const*> const failures[] = {{"fchownat", "chown"},
                                                            {"chmod", "chmod"}};
    for (auto const& [call, word] : failures) {
        auto const run = inChild([&, call = call] {
            CallFailure const failing(call, EROFS);
            return file_set_perms(path.c_str(), getuid(), getgid(), 0600) == -1 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, withErrno("ERROR: unable to " + std::string(word) + " " + path + ": " +
                                         strerror(EROFS) + "\n",
                                     EROFS));
    }
}

TEST_F(Libfile, SetsTheModeOfAUsersFile)
{
    passwd const* const self = getpwuid(getuid());
    ASSERT_NE(self, nullptr);
    writeFile(path, "");
    errno = EXDEV;
    EXPECT_EQ(file_set_user_mode(path.c_str(), self->pw_name, 0600), 0);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(modeOf(path), 0600U);
    expectOwner(path, self->pw_uid, self->pw_gid);
}

TEST_F(Libfile, ReportsAUserWhoIsUnknown)
{
    writeFile(path, "");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    auto const run = inChild(
        [&] { return file_set_user_mode(path.c_str(), "no-such-user", 0600) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err.substr(0, run.err.find('\n')), "user no-such-user not found");
    EXPECT_EQ(modeOf(path), 0640U);
}

TEST_F(Libfile, ReportsThatAUsersFileIsMissing)
{
    passwd const* const self = getpwuid(getuid());
    auto const run = inChild(
        [&] { return file_set_user_mode(path.c_str(), self->pw_name, 0600) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("ERROR: unable to chown " + path + ": No such file or directory\n",
                                 ENOENT));
}

TEST_F(FileSetPermsOnHost, SetsTheOwner)
{
    passwd const* const daemon = getpwnam("daemon");
    TempDir const dir;
    std::string const path = dir / "file";
    writeFile(path, "");
    EXPECT_EQ(file_set_perms(path.c_str(), 4711, 4712, 0640), 0);
    expectOwner(path, 4711, 4712);
    EXPECT_EQ(file_set_user_mode(path.c_str(), "daemon", 0640), 0);
    expectOwner(path, daemon->pw_uid, daemon->pw_gid);
}

TEST_F(Libfile, ClosesAStream)
{
    auto const before = openDescriptors();
    EXPECT_EQ(p_fclose(fopen(path.c_str(), "w")), 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Libfile, ReportsAStreamThatCannotBeClosed)
{
    auto const run = inChild([] {
        FILE* const full = fopen("/dev/full", "w");
        fputs("text", full);
        return p_fclose(full) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, withErrno("Unable to close the file: No space left on device\n", ENOSPC));
}

TEST_F(Libfile, FindsTheFirstPathThatExists)
{
    std::string const second = dir / "second";
    writeFile(path, "");
    writeFile(second, "");
    std::string const none = dir / "none";
    char const* const paths[] = {none.c_str(), path.c_str(), second.c_str(), nullptr};
    char const* target = nullptr;
    errno = 0;
    EXPECT_EQ(find_file(&target, paths), 1);
    EXPECT_EQ(target, paths[1]);
    EXPECT_EQ(errno, 0);
}

TEST_F(Libfile, GivesNullWhenNoPathExists)
{
    char const* const paths[] = {path.c_str(), nullptr};
    char const* target = "before";
    EXPECT_EQ(find_file(&target, paths), 0);
    EXPECT_EQ(target, nullptr);
    target = "before";
    EXPECT_EQ(find_file(&target, paths + 1), 0);
    EXPECT_EQ(target, nullptr);
}
