#include "util/mapped_output.h"

#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/mapping_faults.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include <sys/resource.h>
#include <sys/stat.h>

using orvek::MappedOutput;

extern "C" {

int __real_posix_fallocate(int fd, off_t offset, off_t length);

int __wrap_posix_fallocate(int fd, off_t offset, off_t length)
{
    return call_faults_detail::fails("posix_fallocate")
               ? call_faults_detail::result<int>()
               : __real_posix_fallocate(fd, offset, length);
}

} // extern "C"

namespace {

// posix_fallocate returns its error number.
struct ReservingFailure : CallFailure
{
    explicit ReservingFailure(int error) : CallFailure("posix_fallocate", 0, 1, error) {}
};

class MappedOutputTest : public testing::Test
{
protected:
    MappedOutputTest() { writeFile(path, ""); }

    static std::string longText()
    {
        std::string text;
        for (int i = 0; text.size() < 1'000'000; ++i)
            text += "line " + std::to_string(i) + "\n";
        return text;
    }

    // The file's content after writing without end under this limit of its size.
    std::string writtenUpTo(rlim_t limit)
    {
        auto const run = inChild([&] {
            signal(SIGXFSZ, SIG_IGN);
            rlimit const size = {limit, limit};
            setrlimit(RLIMIT_FSIZE, &size);
            MappedOutput buffer(path);
            while (buffer.sputn("0123456", 7) == 7) {
            }
            bool const told = errno == EFBIG;
            return buffer.finish() && told ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        return readFile(path);
    }

    TempDir const dir;
    std::string const path = dir / "text";
};

} // namespace

TEST_F(MappedOutputTest, PutsWhatIsWrittenIntoTheFileAtOnce)
{
    MappedOutput buffer(path);
    ASSERT_TRUE(buffer.is_open());
    std::ostream out(&buffer);
    out << "one line\n";
    EXPECT_EQ(readFile(path).substr(0, 10), std::string("one line\n\0", 10));
    out << "two";
    EXPECT_EQ(readFile(path).substr(0, 13), std::string("one line\ntwo\0", 13));
}

TEST_F(MappedOutputTest, CutsTheFileAfterTheLastByteAtItsEnd)
{
    MappedOutput buffer(path);
    std::ostream(&buffer) << "one line\n";
    EXPECT_TRUE(buffer.finish());
    EXPECT_FALSE(buffer.is_open());
    EXPECT_EQ(readFile(path), "one line\n");
}

TEST_F(MappedOutputTest, LeavesAnEmptyFileWhenNothingIsWritten)
{
    EXPECT_TRUE(MappedOutput(path).finish());
    EXPECT_EQ(readFile(path), "");
}

TEST_F(MappedOutputTest, GoesOnAfterEachWindow)
{
    std::string const text = longText();
    MappedOutput whole(path);
    EXPECT_EQ(whole.sputn(text.data(), std::streamsize(text.size())), std::streamsize(text.size()));
    EXPECT_TRUE(whole.finish());
    EXPECT_EQ(readFile(path), text);

    writeFile(path, "");
    MappedOutput pieces(path);
    for (char const c : text)
        ASSERT_EQ(pieces.sputc(c), c);
    EXPECT_TRUE(pieces.finish());
    EXPECT_EQ(readFile(path), text);
}

TEST_F(MappedOutputTest, HoldsAWindowAtMostInMemory)
{
    auto const mapped = [&] {
        std::string const maps = readFile("/proc/self/maps");
        int count = 0;
        for (size_t at = 0; (at = maps.find(path, at)) != std::string::npos; ++at)
            ++count;
        return count;
    };
    std::string const text = longText();
    auto const before = openDescriptors();
    {
        MappedOutput buffer(path);
        buffer.sputn(text.data(), std::streamsize(text.size()));
        EXPECT_EQ(mapped(), 1);
    }
    EXPECT_EQ(mapped(), 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MappedOutputTest, LeavesErrnoAloneWhenAllGoesWell)
{
    std::string const text = longText();
    errno = EPROTO;
    {
        MappedOutput buffer(path);
        buffer.sputn(text.data(), std::streamsize(text.size()));
        EXPECT_TRUE(buffer.finish());
    }
    EXPECT_EQ(errno, EPROTO);
}

TEST_F(MappedOutputTest, IsNotOpenWithoutAFileAndKeepsErrno)
{
    errno = EPROTO;
    MappedOutput buffer(dir / "no");
    EXPECT_EQ(errno, EPROTO);
    EXPECT_FALSE(buffer.is_open());
    EXPECT_FALSE(std::filesystem::exists(dir / "no"));
    EXPECT_EQ(buffer.sputc('x'), EOF);
}

TEST_F(MappedOutputTest, IsNotOpenForWhatIsNoOrdinaryFile)
{
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    for (std::string const& other : {dir / "fifo", std::string("/dev/full")}) {
        errno = EPROTO;
        EXPECT_FALSE(MappedOutput(other).is_open()) << other;
        EXPECT_EQ(errno, EPROTO);
    }
}

TEST_F(MappedOutputTest, IsNotOpenWhereNothingCanBeMapped)
{
    std::optional<NoMappings> refused(std::in_place);
    errno = EPROTO;
    MappedOutput buffer(path);
    refused.reset();
    EXPECT_EQ(errno, EPROTO);
    EXPECT_FALSE(buffer.is_open());
    EXPECT_EQ(buffer.sputn("text", 4), 0);
}

TEST_F(MappedOutputTest, RefusesWhatFillsTheDiskAndSaysWhy)
{
    std::string const written = writtenUpTo(rlim_t(300) * 1024);
    EXPECT_EQ(written.size(), 300U * 1024);
    EXPECT_EQ(written.substr(0, 10), "0123456012");
    EXPECT_EQ(written.find('\0'), std::string::npos);
}

TEST_F(MappedOutputTest, IsNotOpenOnADiskWithoutAnyRoom)
{
    auto const run = inChild([&] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit const less_than_a_page = {1024, 1024};
        setrlimit(RLIMIT_FSIZE, &less_than_a_page);
        return MappedOutput(path).is_open() || errno != 0 ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
}

TEST_F(MappedOutputTest, TakesHalfAWindowWithoutRoomForAWhole)
{
    MappedOutput whole(path);
    auto const window = std::filesystem::file_size(path);
    writeFile(path, "");
    ReservingFailure const full(ENOSPC);
    errno = EPROTO;
    MappedOutput half(path);
    EXPECT_EQ(errno, EPROTO);
    EXPECT_TRUE(half.is_open());
    EXPECT_EQ(std::filesystem::file_size(path), window / 2);
}

TEST_F(MappedOutputTest, RepeatsWhatASignalHasInterrupted)
{
    MappedOutput whole(path);
    auto const window = std::filesystem::file_size(path);
    writeFile(path, "");
    std::optional<ReservingFailure> interrupted(EINTR);
    MappedOutput buffer(path);
    interrupted.reset();
    EXPECT_EQ(std::filesystem::file_size(path), window);
    CallFailure const cut("ftruncate", EINTR);
    EXPECT_TRUE(buffer.finish());
    EXPECT_EQ(readFile(path), "");
}

TEST_F(MappedOutputTest, SaysThatTheEndCouldNotBeCut)
{
    auto const before = openDescriptors();
    MappedOutput buffer(path);
    CallFailure const failure("ftruncate", EIO);
    EXPECT_FALSE(buffer.finish());
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(MappedOutputTest, SaysThatTheFileCouldNotBeClosed)
{
    MappedOutput buffer(path);
    buffer.sputc('x');
    CallFailure const failure("close", EIO);
    EXPECT_FALSE(buffer.finish());
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(readFile(path), "x");
}
