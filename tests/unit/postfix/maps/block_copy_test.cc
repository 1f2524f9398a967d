#include "postfix/maps/block_copy.h"

#include "lib/report/owned.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

using namespace orvek::mail::postfix;

namespace {

int refusal = 0; // the error of copy_file_range, from its second call on
int calls = 0;
bool disk_is_full = false;

class BlockCopy : public testing::Test
{
protected:
    void SetUp() override
    {
        writeFile(dir / "from", content);
        from.emplace(open((dir / "from").c_str(), O_RDONLY | O_CLOEXEC));
        calls = 0;
    }
    void TearDown() override
    {
        refusal = 0;
        disk_is_full = false;
    }

    int copy(off_t size) const { return copyBlocks(from->get(), to.get(), size); }
    off_t whole() const { return static_cast<off_t>(content.size()); }
    std::string copied() const { return readFile(dir / "to"); }

    TempDir const dir;
    std::string const content = std::string(3'000'000, 'a') + "the end";
    std::optional<OpenDescriptor> from;
    OpenDescriptor const to{open((dir / "to").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
};

} // namespace

extern "C" {
ssize_t __real_copy_file_range(int from, off64_t* at, int to, off64_t* to_at, size_t size,
                               unsigned flags);
ssize_t __wrap_copy_file_range(int from, off64_t* at, int to, off64_t* to_at, size_t size,
                               unsigned flags)
{
    if (refusal == 0 || ++calls == 1) // in pieces
        return __real_copy_file_range(from, at, to, to_at, refusal == 0 ? size : 1000, flags);
    errno = refusal;
    return -1;
}

ssize_t __real_sendfile(int to, int from, off_t* at, size_t size);
ssize_t __wrap_sendfile(int to, int from, off_t* at, size_t size)
{
    if (!disk_is_full)
        return __real_sendfile(to, from, at, size);
    errno = ENOSPC;
    return -1;
}
}

TEST_F(BlockCopy, CopiesAllOfAFile)
{
    EXPECT_EQ(copy(whole()), 0);
    EXPECT_EQ(copied(), content);
}

TEST_F(BlockCopy, EndsWithTheFileThatHasBecomeShorter)
{
    EXPECT_EQ(copy(whole() + 5000), 0);
    EXPECT_EQ(copied(), content);
}

TEST_F(BlockCopy, GoesOnWhereTheKernelKnowsNoCopying)
{
    for (int const code : {ENOSYS, EOPNOTSUPP, EXDEV, EINVAL, EPERM}) {
        refusal = code;
        EXPECT_EQ(copy(whole()), 0);
        EXPECT_EQ(copied(), content);
        lseek(from->get(), 0, SEEK_SET);
        ASSERT_EQ(ftruncate(to.get(), 0) + lseek(to.get(), 0, SEEK_SET), 0);
        calls = 0;
    }
}

TEST_F(BlockCopy, TellsWhatADiskSays)
{
    refusal = EIO;
    EXPECT_EQ(copy(whole()), -1);
    EXPECT_EQ(errno, EIO);
    refusal = EXDEV;
    disk_is_full = true;
    EXPECT_EQ(copy(whole()), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(BlockCopy, SharesBlocksOnlyWithAFile)
{
    int const before = errno;
    EXPECT_FALSE(shareBlocks(-1, to.get()));
    EXPECT_EQ(errno, before);
}
