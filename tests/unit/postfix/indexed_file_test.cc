#include "postfix/indexed_file.h"

#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/temp_dir.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace orvek::mail::postfix;
using std::filesystem::exists;

namespace {

class IndexedFile : public ::testing::Test
{
protected:
    IndexedFile()
    {
        writeFile(path, "content");
        chmod(path.c_str(), 0640);
    }
    ~IndexedFile() override { EXPECT_EQ(openDescriptors(), descriptors); }

    std::set<int> const descriptors = openDescriptors();
    TempDir const dir;
    std::string const path = dir / "map.db";
    std::string const saved = path + ".saved";
};

} // namespace

TEST_F(IndexedFile, IsBesideTheTextSourceForTypesThatAreRebuiltInPlace)
{
    EXPECT_EQ(indexedFileOf("hash:/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("btree:/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("/etc/map"), "/etc/map.db");
    EXPECT_EQ(indexedFileOf("cdb:/etc/map"), "");
}

TEST_F(IndexedFile, IsCopiedWithItsModeAndTheCopyGoesOnceDismissed)
{
    IndexedFileCopy copy(path);
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
        IndexedFileCopy const copy(path);
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
        IndexedFileCopy const copy(path);
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
        IndexedFileCopy const copy(path);
    }
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_FALSE(exists(saved));
}

TEST_F(IndexedFile, StaysWithTheCopyWhenItCannotBePutBack)
{
    auto const run = printedBy([&] {
        IndexedFileCopy const copy(path);
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
        IndexedFileCopy const nothing("");
    }
    {
        IndexedFileCopy copy(path);
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
    mkdir(saved.c_str(), 0700);
    EXPECT_THROW(IndexedFileCopy copy(path), orvek::SystemError);
    EXPECT_EQ(readFile(path), "content");
}
