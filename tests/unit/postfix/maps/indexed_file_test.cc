#include "postfix/maps/indexed_file.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace orvek::mail::postfix;
using std::filesystem::exists;

namespace {

int sharing_refused = 0; // with this errno; 0 lets it be
int sendfile_refused = 0;

// What a wrapped call of the system answers.
template<class Real>
ssize_t unlessRefused(int refused, Real const& real)
{
    if (refused == 0)
        return real();
    errno = refused;
    return -1;
}

class IndexedFile : public ::testing::Test
{
protected:
    IndexedFile()
    {
        writeFile(path, "content");
        chmod(path.c_str(), 0640);
    }
    ~IndexedFile() override
    {
        sharing_refused = sendfile_refused = 0;
        EXPECT_EQ(openDescriptors(), descriptors);
    }

    std::set<int> const descriptors = openDescriptors();
    TempDir const dir;
    std::string const path = dir / "map.db";
    std::string const saved = path + ".saved";
    std::string const part = saved + ".tmp"; // while it is not complete
};

class CompleteCopy : public IndexedFileCopy
{
public:
    explicit CompleteCopy(std::string const& path) : IndexedFileCopy(path) { complete(); }
};

} // namespace

extern "C" {
ssize_t __real_copy_file_range(int, off_t*, int, off_t*, size_t, unsigned);
ssize_t __real_sendfile(int, int, off_t*, size_t);

ssize_t __wrap_copy_file_range(int from, off_t* at, int to, off_t* toAt, size_t size,
                               unsigned flags)
{
    return unlessRefused(sharing_refused,
                         [=] { return __real_copy_file_range(from, at, to, toAt, size, flags); });
}

ssize_t __wrap_sendfile(int to, int from, off_t* at, size_t size)
{
    return unlessRefused(sendfile_refused, [=] { return __real_sendfile(to, from, at, size); });
}
}

TEST_F(IndexedFile, IsBesideTheTextSourceForTypesThatAreRebuiltInPlace)
{
    EXPECT_EQ(indexedFileOf("hash:/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("btree:/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("cdb:/etc/map"), "");
}

TEST_F(IndexedFile, IsCopiedWithItsModeAndTheCopyGoesOnceDismissed)
{
    CompleteCopy copy(path);
    EXPECT_EQ(readFile(saved), "content");
    EXPECT_EQ(modeOf(saved), 0640U);
    writeFile(path, "new");
    copy.dismiss();
    EXPECT_FALSE(exists(saved));
    EXPECT_EQ(readFile(path), "new");
}

TEST_F(IndexedFile, IsPutBackWhenItHasChangedAndErrnoIsKept)
{
    {
        CompleteCopy const copy(path);
        writeFile(path, "");
        errno = EPROTO;
    }
    EXPECT_EQ(errno, EPROTO);
    EXPECT_EQ(readFile(path), "content");
    EXPECT_EQ(modeOf(path), 0640U);
    EXPECT_FALSE(exists(saved));
}

TEST_F(IndexedFile, IsPutBackWhenItIsGone)
{
    {
        CompleteCopy const copy(path);
        unlink(path.c_str());
    }
    EXPECT_EQ(readFile(path), "content");
}

TEST_F(IndexedFile, StaysWhenItHasNotChanged)
{
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(stat(path.c_str(), &before), 0);
    {
        CompleteCopy const copy(path);
    }
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_FALSE(exists(saved));
}

TEST_F(IndexedFile, StaysWithTheCopyWhenItCannotBePutBack)
{
    auto const run = printedBy([&] {
        CompleteCopy const copy(path);
        unlink(path.c_str());
        mkdir(path.c_str(), 0700);
    });
    EXPECT_EQ(run.err, path + " could not be put back from " + saved + ": Is a directory\n");
    EXPECT_EQ(readFile(saved), "content");
}

TEST_F(IndexedFile, MayBeMissing)
{
    unlink(path.c_str());
    {
        CompleteCopy const nothing("");
    }
    {
        CompleteCopy const copy(path);
        EXPECT_FALSE(exists(saved));
        writeFile(path, "new");
    }
    EXPECT_EQ(readFile(path), "new");
}

TEST_F(IndexedFile, RaisesWhatKeepsItFromBeingRead)
{
    EXPECT_THROW(IndexedFileCopy(path + "/below"), orvek::SystemError);
}

TEST_F(IndexedFile, RaisesWhatKeepsItFromBeingCopied)
{
    for (std::string const& name : {saved, part}) {
        mkdir(name.c_str(), 0700);
        EXPECT_THROW(CompleteCopy copy(path), orvek::SystemError) << name;
        rmdir(name.c_str());
        EXPECT_EQ(readFile(path), "content");
    }
    EXPECT_FALSE(exists(part));
}

TEST_F(IndexedFile, IsCopiedWithItsBlocksSharedOrByTheKernelAlone)
{
    int const refusals[][2] = {{0, EIO}, {EXDEV, 0}, {ENOSYS, 0}};
    for (auto const [sharing, sending] : refusals) {
        sharing_refused = sharing;
        sendfile_refused = sending;
        CompleteCopy const copy(path);
        EXPECT_EQ(readFile(saved), "content");
    }
}

TEST_F(IndexedFile, LeavesNoHalfCopyWhenItCannotBeCopied)
{
    sharing_refused = EXDEV;
    sendfile_refused = ENOSPC;
    try {
        CompleteCopy const copy(path);
        ADD_FAILURE() << "nothing was raised";
    } catch (orvek::SystemError const& e) {
        EXPECT_EQ(e.what(), part + ": No space left on device");
    }
    EXPECT_FALSE(exists(saved));
    EXPECT_FALSE(exists(part));
    EXPECT_EQ(readFile(path), "content");
}

TEST_F(IndexedFile, IsCopiedPieceByPieceAndTheRestAtTheEnd)
{
    std::string const large(1'000'000, 'x');
    writeFile(path, large);
    IndexedFileCopy copy(path);
    EXPECT_EQ(readFile(part), "");
    copy.proceed();
    EXPECT_EQ(readFile(part), large.substr(0, 256UL * 1024));
    copy.proceed();
    EXPECT_EQ(readFile(part), large.substr(0, 512UL * 1024));
    copy.complete();
    EXPECT_EQ(readFile(saved), large);
    EXPECT_FALSE(exists(part));
}

TEST_F(IndexedFile, MayBeCopiedInMorePiecesThanItHas)
{
    IndexedFileCopy copy(path);
    for (int i = 0; i < 3; ++i)
        copy.proceed();
    EXPECT_EQ(readFile(part), "content");
    EXPECT_FALSE(exists(saved));
    copy.complete();
    EXPECT_EQ(readFile(saved), "content");
    EXPECT_EQ(modeOf(saved), 0640U);
}

TEST_F(IndexedFile, IsNeverPutBackFromACopyThatIsNotComplete)
{
    {
        IndexedFileCopy copy(path);
        copy.proceed();
        writeFile(path, "of somebody else");
    }
    EXPECT_EQ(readFile(path), "of somebody else");
    EXPECT_FALSE(exists(saved));
    EXPECT_FALSE(exists(part));
}

TEST_F(IndexedFile, IsCopiedAnewWhenItHasChangedMeanwhile)
{
    std::function<void()> const changes[] = {
        [&] { writeFile(path, "short"); },
        [&] { writeFile(path, std::string(1'000'000, 'y')); },
        [&] {
            writeFile(path + ".new", "another file");
            rename((path + ".new").c_str(), path.c_str());
        },
    };
    for (auto const& change : changes) {
        IndexedFileCopy copy(path);
        copy.proceed();
        change();
        copy.complete();
        EXPECT_EQ(readFile(saved), readFile(path));
        unlink(path.c_str());
        writeFile(path, "content of which more is copied");
        copy.dismiss();
    }
}

TEST_F(IndexedFile, MayBeRemovedMeanwhile)
{
    IndexedFileCopy copy(path);
    copy.proceed();
    unlink(path.c_str());
    copy.complete();
    EXPECT_FALSE(exists(saved));
    EXPECT_FALSE(exists(part));
}

TEST_F(IndexedFile, LeavesErrnoAloneWhileItIsCopied)
{
    errno = EPROTO;
    CompleteCopy const copy(path);
    CompleteCopy const missing(path + ".no");
    EXPECT_EQ(errno, EPROTO);
}
