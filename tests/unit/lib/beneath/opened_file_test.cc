#include "lib/beneath/opened_file.h"

#include "strangers_tree.h"

#include "support/fd_census.h"
#include "support/other_process.h"

#include <csignal>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

using OpenedFile = StrangersTree;
using OpenedFileEachWay = EachWay;
INSTANTIATE_EACH_WAY(OpenedFileEachWay);

namespace {

constexpr off_t small = 100;

int readable(int root, char const* path, off_t most = small)
{
    return open_file_beneath(root, path, O_RDONLY, most).get();
}

std::string contents(OpenFile const& file)
{
    char text[100] = {};
    return file && fgets(text, sizeof text, file.get()) ? text : "";
}

void makeSocket(std::string const& path)
{
    OpenDescriptor const socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

// Opens the FIFO for writing, which waits for a reader.
bool writesTo(std::string const& fifo)
{
    return open(fifo.c_str(), O_WRONLY) >= 0;
}

} // namespace

TEST_P(OpenedFileEachWay, ReadsAndWritesARegularFile)
{
    EXPECT_EQ(contents(read_file_beneath(root.get(), "sub/file", small)), "text");
    {
        OpenDescriptor const file =
            open_file_beneath(root.get(), "sub/file", O_WRONLY | O_APPEND, 4);
        EXPECT_EQ(write(file.get(), "+", 1), 1);
        EXPECT_EQ(fcntl(file.get(), F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(readFile(path("sub/file")), "text+");
    EXPECT_EQ(errno, 0);
}

TEST_P(OpenedFileEachWay, FollowsNoLinkAtAnyComponent)
{
    fs::create_symlink(outside + "/file", path("link"));
    fs::create_symlink("file", path("sub/inner"));
    fs::create_symlink("none", path("dangling"));
    fs::create_directory_symlink(outside, path("way"));
    for (char const* const name : {"link", "sub/inner", "dangling", "way/file", "way/sub/file"})
        EXPECT_BARRED(readable(root.get(), name), ELOOP);
}

TEST_F(OpenedFile, OpensNoFifoEvenIfSomebodyWaitsForIt)
{
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    OtherProcess writer([&] { return writesTo(path("fifo")); });
    for (int i = 0; i < 20; ++i) {
        EXPECT_BARRED(readable(root.get(), "fifo"), EINVAL);
        usleep(1000);
    }
    EXPECT_BARRED(open_file_beneath(root.get(), "fifo", O_WRONLY, small).get(), EINVAL);
    EXPECT_FALSE(writer.hasEndedWithin(10));
    EXPECT_GE(open(path("fifo").c_str(), O_RDONLY), 0); // lets the writer go
    EXPECT_EQ(writer.status(), 0);
}

TEST_F(OpenedFile, OpensNoSocketNoDirectoryAndNothing)
{
    makeSocket(path("socket"));
    EXPECT_BARRED(readable(root.get(), "socket"), EINVAL);
    EXPECT_BARRED(readable(root.get(), "sub"), EISDIR);
    EXPECT_BARRED(readable(root.get(), "none"), ENOENT);
}

TEST_F(OpenedFile, OpensNoDevice)
{
    if (mknod(path("device").c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0)
        GTEST_SKIP() << "no right to make a device";
    EXPECT_BARRED(readable(root.get(), "device"), EINVAL);
}

TEST_F(OpenedFile, OpensNoFileThatHasAFurtherName)
{
    fs::create_hard_link(outside + "/file", path("hard"));
    EXPECT_BARRED(readable(root.get(), "hard"), EMLINK);
    EXPECT_BARRED(open_file_beneath(root.get(), "hard", O_RDWR | O_TRUNC, small).get(), EMLINK);
    EXPECT_EQ(readFile(outside + "/file"), "theirs");
}

TEST_F(OpenedFile, OpensNoFileThatIsLargerThanTold)
{
    ASSERT_EQ(truncate(path("sub/file").c_str(), off_t{1} << 40), 0);
    EXPECT_BARRED(readable(root.get(), "sub/file", (off_t{1} << 40) - 1), EFBIG);
    EXPECT_GE(readable(root.get(), "sub/file", off_t{1} << 40), 0);
    EXPECT_GE(readable(root.get(), "sub/file", any_size), 0);
}

TEST_F(OpenedFile, IsNotLedAwayByASwappedInLink)
{
    BeforeCall const swap("openat", 1, [&] {
        fs::remove(path("sub/file"));
        fs::create_symlink(outside + "/file", path("sub/file"));
    });
    EXPECT_BARRED(readable(root.get(), "sub/file"), ELOOP);
}

TEST_F(OpenedFile, KeepsToTheFileItHasLookedAt)
{
    BeforeCall const swap("open", 1, [&] {
        fs::rename(path("sub/file"), path("sub/old"));
        fs::create_symlink(outside + "/file", path("sub/file"));
    });
    EXPECT_EQ(contents(read_file_beneath(root.get(), "sub/file", small)), "text");
}

TEST_F(OpenedFile, TakesTheFileThatHonestlyReplacesAnother)
{
    writeFile(path("new"), "new");
    BeforeCall const replace("fstat", 1, [&] { fs::rename(path("new"), path("sub/file")); });
    EXPECT_EQ(contents(read_file_beneath(root.get(), "sub/file", small)), "new");
}

TEST_F(OpenedFile, IsNotHeldUpByALease)
{
    OpenDescriptor const leased(open(path("sub/file").c_str(), O_RDONLY));
    signal(SIGIO, SIG_IGN);
    ASSERT_EQ(fcntl(leased.get(), F_SETLEASE, F_RDLCK), 0);
    EXPECT_BARRED(open_file_beneath(root.get(), "sub/file", O_RDWR, small).get(), EAGAIN);
    signal(SIGIO, SIG_DFL);
}

TEST_P(OpenedFileEachWay, MakesAFileWithTheModeToldWhateverTheUmask)
{
    for (mode_t const mask : {0U, 022U, 0777U}) {
        mode_t const before = umask(mask);
        std::string const name = "sub/new" + std::to_string(mask);
        OpenDescriptor const made = make_file_beneath(root.get(), name.c_str(), 0640);
        umask(before);
        EXPECT_GE(made.get(), 0);
        EXPECT_EQ(modeOf(path(name)), 0640U);
        EXPECT_EQ(write(made.get(), "x", 1), 1);
    }
}

TEST_F(OpenedFile, IsNeverMoreOpenThanToldWhileItIsMade)
{
    mode_t const before = umask(0);
    unsigned seen = 0;
    {
        BeforeCall const look("fchmod", 1, [&] { seen = modeOf(path("new")); });
        EXPECT_GE(make_file_beneath(root.get(), "new", 0600).get(), 0);
    }
    umask(before);
    EXPECT_EQ(seen, 0600U);
}

TEST_F(OpenedFile, MakesNothingWhereSomethingIs)
{
    fs::create_symlink(outside + "/new", path("dangling"));
    fs::create_symlink(outside + "/file", path("link"));
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    for (char const* const name : {"dangling", "link", "fifo", "sub", "sub/file"})
        EXPECT_BARRED(make_file_beneath(root.get(), name, 0600).get(), EEXIST);
    expectOutsideUntouched();
}

TEST_F(OpenedFile, RemovesANewFileWhoseModeCannotBeSet)
{
    CallFailure const failing("fchmod", EIO);
    EXPECT_BARRED(make_file_beneath(root.get(), "new", 0600).get(), EIO);
    EXPECT_FALSE(fs::exists(path("new")));
}

TEST_P(OpenedFileEachWay, OpensTheFileThatIsThereOrMakesIt)
{
    auto const get = [&](char const* name) {
        return open_or_make_beneath(root.get(), name, O_RDWR, small, 0604).release();
    };
    OpenDescriptor const there(get("sub/file"));
    OpenDescriptor const made(get("sub/new"));
    EXPECT_GE(there.get(), 0);
    EXPECT_GE(made.get(), 0);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(readFile(path("sub/file")), "text");
    EXPECT_EQ(modeOf(path("sub/new")), 0604U);
    fs::create_symlink(outside + "/new", path("dangling"));
    fs::create_directory_symlink(outside, path("way"));
    EXPECT_BARRED(get("dangling"), ELOOP);
    EXPECT_BARRED(get("way/file"), ELOOP);
    EXPECT_BARRED(get("sub"), EISDIR);
    EXPECT_BARRED(get("none/file"), ENOENT);
    expectOutsideUntouched();
}

TEST_F(OpenedFile, OpensTheFileThatIsMadeMeanwhile)
{
    BeforeCall const make("openat", 2, [&] { writeFile(path("late"), "late"); });
    OpenDescriptor const opened = open_or_make_beneath(root.get(), "late", O_RDWR, small, 0600);
    EXPECT_GE(opened.get(), 0);
    EXPECT_EQ(readFile(path("late")), "late");
}

TEST_F(OpenedFile, LeavesNoDescriptorOpenAfterAFailure)
{
    fs::create_hard_link(outside + "/file", path("hard"));
    auto const before = openDescriptors();
    for (char const* const name : {"hard", "sub", "none", "sub/none", ""})
        EXPECT_FALSE(read_file_beneath(root.get(), name, small));
    {
        CallFailure const failing("fchmod", EIO);
        EXPECT_LT(make_file_beneath(root.get(), "new", 0600).get(), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}
