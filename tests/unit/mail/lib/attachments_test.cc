#include "mail/lib/attachments.h"

#include "lib/idn_error.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/host_test.h"
#include "support/report.h"
#include "support/rights.h"
#include "support/syscall_faults.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include <idna.h>
#include <sys/syscall.h>

using ::testing::AnyOf;
using ::testing::HasSubstr;

namespace {

// Each on the streams of a child: what a call prints, which must have this result.
ChildRun callOf(int result, std::function<int()> const& call)
{
    auto run = inChild([&] { return call() == result ? 0 : 99; });
    EXPECT_EQ(run.status, 0) << "the result is not " << result;
    return run;
}

// What a call that must give -1 prints on each stream.
std::string failureOf(std::function<int()> const& call)
{
    auto const run = callOf(-1, call);
    EXPECT_EQ(run.out, run.err);
    return run.err;
}

// What a call that must end the process with status 1 prints on each stream.
std::string endOf(std::function<int()> const& call)
{
    auto const run = inChild([&] {
        static_cast<void>(call());
        return 99;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, run.err);
    return run.err;
}

std::string const too_long_label(64, 'x');

class AttachmentsOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        std::filesystem::remove_all(domain);
        std::filesystem::create_directories(store);
        errno = 0;
    }
    void TearDown() override
    {
        if (!HasFatalFailure())
            std::filesystem::remove_all(domain);
    }

    // What a list that succeeds prints, and nothing on standard error.
    static std::string listed(short in_blocks = 0, short fullname = 0)
    {
        auto const run =
            callOf(0, [&] { return list_attachments("info", "example.com", in_blocks, fullname); });
        EXPECT_EQ(run.err, "");
        return run.out;
    }

    int add(std::string const& name) const
    {
        return add_attachment("info", "example.com", upload.c_str(), name.c_str());
    }
    static int remove(std::string const& name)
    {
        return remove_attachment("info", "example.com", name.c_str());
    }

    TempDir const dir;
    std::string const upload = dir / "upload";
    std::string const domain = "/var/qmail/mailnames/example.com";
    std::string const store = domain + "/info/@attachments";
};

} // namespace

TEST(Attachments, EndTheProcessForADomainWithoutAnAsciiForm)
{
    std::string const expected =
        std::string("idn_toascii() failed: ") + idn_strerror(IDNA_INVALID_LENGTH) + "\n";
    char const* const domain = too_long_label.c_str();
    EXPECT_EQ(endOf([&] { return list_attachments("info", domain, 0, 0); }), expected);
    EXPECT_EQ(endOf([&] { return list_all_attachments(domain, 0, 0); }), expected);
    EXPECT_EQ(endOf([&] { return add_attachment("info", domain, "/etc/passwd", "a"); }), expected);
    EXPECT_EQ(endOf([&] { return remove_attachment("info", domain, "a"); }), expected);
}

TEST(Attachments, EndTheProcessForAListOfNoMailname)
{
    std::string const expected = "MailName empty for domain 'example.com'\n";
    EXPECT_EQ(endOf([] { return list_attachments("", "example.com", 0, 0); }), expected);
    EXPECT_EQ(endOf([] { return list_attachments(nullptr, "example.com", 0, 0); }), expected);
}

// ---------------------------------------------------------------------------------- listing

TEST_F(AttachmentsOnHost, ListsNamesAndSizes)
{
    EXPECT_EQ(listed(), "");
    writeFile(store + "/a.txt", "12345");
    EXPECT_EQ(listed(), "a.txt\t5\n");
    writeFile(store + "/empty", "");
    EXPECT_THAT(listed(), AnyOf("a.txt\t5\nempty\t0\n", "empty\t0\na.txt\t5\n"));
}

TEST_F(AttachmentsOnHost, ListsWholePathsAndBlocks)
{
    writeFile(store + "/a", "12345");
    struct stat info = {};
    ASSERT_EQ(stat((store + "/a").c_str(), &info), 0);
    std::string const blocks = std::to_string(info.st_blocks * 512) + "\n";
    EXPECT_EQ(listed(0, 1), store + "/a\t5\n");
    EXPECT_EQ(listed(1, 0), "a\t" + blocks);
    EXPECT_EQ(listed(-7, 256), store + "/a\t" + blocks);
}

TEST_F(AttachmentsOnHost, ListsAFileLargerThanFourGigabytes)
{
    writeFile(store + "/a", "");
    std::filesystem::resize_file(store + "/a", 5000000000);
    EXPECT_EQ(listed(), "a\t5000000000\n");
}

TEST_F(AttachmentsOnHost, PassesDirectoriesOverAndFollowsLinks)
{
    std::filesystem::create_directories(store + "/directory/below");
    writeFile(store + "/directory/file", "x");
    std::filesystem::create_symlink("directory", store + "/link-to-directory");
    std::filesystem::create_symlink("directory/file", store + "/link");
    EXPECT_EQ(listed(), "link\t1\n");
}

TEST_F(AttachmentsOnHost, PrintsANameAsItStands)
{
    for (char const* const name : {"a\tb", "two\nlines", "%s%n", "gr\xc3\xbc\xc3\x9f", "\xff"}) {
        writeFile(store + "/" + name, "x");
        EXPECT_EQ(listed(), std::string(name) + "\t1\n");
        std::filesystem::remove(store + "/" + name);
    }
}

TEST_F(AttachmentsOnHost, ListTheStoreOfADomainGivenInEitherForm)
{
    std::string const other = "/var/qmail/mailnames/xn--bcher-kva.example";
    std::filesystem::create_directories(other + "/info/@attachments");
    writeFile(other + "/info/@attachments/a", "x");
    for (char const* const name : {"b\xc3\xbc\x63her.example", "xn--bcher-kva.example"}) {
        EXPECT_EQ(callOf(0, [&] { return list_attachments("info", name, 0, 0); }).out, "a\t1\n");
        EXPECT_EQ(callOf(0, [&] { return list_all_attachments(name, 0, 0); }).out, "a\t1\n");
    }
    std::filesystem::remove_all(other);
}

TEST_F(AttachmentsOnHost, SaysThatTheStoreCannotBeOpened)
{
    std::filesystem::remove_all(store);
    EXPECT_EQ(failureOf([] { return list_attachments("info", "example.com", 0, 0); }),
              withErrno("Unable to open dir " + store + ": No such file or directory\n", ENOENT));
    writeFile(store, "");
    EXPECT_EQ(failureOf([] { return list_attachments("info", "example.com", 0, 0); }),
              withErrno("Unable to open dir " + store + ": Not a directory\n", ENOTDIR));
}

TEST_F(AttachmentsOnHost, EndsAListAtAFileThatCannotBeLookedAt)
{
    std::filesystem::create_symlink("missing", store + "/link");
    EXPECT_EQ(failureOf([] { return list_attachments("info", "example.com", 0, 0); }),
              withErrno("stat " + store + "/link failed: No such file or directory", ENOENT));
}

TEST_F(AttachmentsOnHost, SaysThatTheStoreCannotBeReadOrClosed)
{
    writeFile(store + "/a", "x");
    EXPECT_EQ(failureOf([&] {
                  failSystemCall(SYS_getdents64, EIO);
                  return list_attachments("info", "example.com", 0, 0);
              }),
              withErrno("Unable to read dir " + store + ": Input/output error\n", EIO));
    auto const run = callOf(-1, [] {
        failSystemCall(SYS_close, EIO);
        return list_attachments("info", "example.com", 0, 0);
    });
    EXPECT_EQ(run.err, withErrno("Unable to close dir: Input/output error\n", EIO));
    EXPECT_EQ(run.out, "a\t1\n" + run.err);
}

TEST_F(AttachmentsOnHost, CutsAPathThatDoesNotFit)
{
    std::string const mailname(5000, 'x');
    std::string const path = (domain + "/" + mailname).substr(0, 4095);
    EXPECT_EQ(failureOf([&] { return list_attachments(mailname.c_str(), "example.com", 0, 0); }),
              withErrno("Unable to open dir " + path + ": File name too long\n", ENAMETOOLONG));
}

TEST_F(AttachmentsOnHost, ListNoMailnameThatLeadsOutOfItsDomain)
{
    writeFile(store + "/a", "x");
    for (std::string const mailname : {"../example.com/info", "info/../info", "..", ".", "/info"})
        EXPECT_EQ(
            failureOf([&] { return list_attachments(mailname.c_str(), "example.com", 0, 0); }),
            withErrno("Unable to open dir " + domain + "/" + mailname +
                          "/@attachments: Invalid argument\n",
                      EINVAL));
}

TEST_F(AttachmentsOnHost, ListsAllMailnamesThoughOneHasNoStore)
{
    for (char const* const mailname : {"b", "c"}) {
        std::filesystem::create_directories(domain + "/" + mailname + "/@attachments");
        writeFile(domain + "/" + mailname + "/@attachments/of-" + mailname, "123");
    }
    std::filesystem::create_directory(domain + "/without");
    writeFile(domain + "/file", "");
    std::filesystem::create_symlink("missing", domain + "/broken");
    auto const run = callOf(0, [] { return list_all_attachments("example.com", 0, 0); });
    EXPECT_EQ(run.err, withErrno("Unable to open dir " + domain +
                                     "/without/@attachments: No such file or directory\n",
                                 ENOENT));
    EXPECT_EQ(run.out.size(), run.err.size() + 2 * std::string("of-b\t3\n").size());
    for (std::string const& part : {std::string("of-b\t3\n"), std::string("of-c\t3\n"), run.err})
        EXPECT_THAT(run.out, HasSubstr(part));
    EXPECT_THAT(callOf(0, [] { return list_all_attachments("example.com", 0, 1); }).out,
                HasSubstr(domain + "/b/@attachments/of-b\t3\n"));
}

TEST_F(AttachmentsOnHost, ListsNothingForADomainWithoutARoot)
{
    EXPECT_EQ(failureOf([] { return list_all_attachments("example.org", 0, 0); }),
              withErrno("Unable to open dir /var/qmail/mailnames/example.org: No such file or "
                        "directory\n",
                        ENOENT));
}

TEST_F(AttachmentsOnHost, SaysThatADomainsRootCannotBeClosed)
{
    std::filesystem::remove_all(domain + "/info");
    EXPECT_EQ(failureOf([] {
                  failSystemCall(SYS_close, EIO);
                  return list_all_attachments("example.com", 0, 0);
              }),
              withErrno("Unable to close dir: Input/output error\n", EIO));
}

TEST_F(AttachmentsOnHost, LeavesNoDescriptorOpenWhateverComesOfAList)
{
    std::filesystem::create_symlink("missing", store + "/link");
    auto const run = inChild([] {
        auto const before = openDescriptors();
        static_cast<void>(list_all_attachments("example.com", 0, 0));
        return openDescriptors() == before ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

// ----------------------------------------------------------------------------------- adding

TEST_F(AttachmentsOnHost, CopiesAFileWithMode0644WhateverTheUmaskAndItsMode)
{
    writeFile(upload, "text");
    mode_t const before = umask(0777);
    for (mode_t const mode : {mode_t{0600}, mode_t{07777}}) {
        chmod(upload.c_str(), mode);
        EXPECT_EQ(add("a.txt"), 0);
        EXPECT_EQ(rightsOf(store + "/a.txt"), "-rw-r--r-- root:root");
        EXPECT_EQ(readFile(store + "/a.txt"), "text");
        EXPECT_EQ(std::filesystem::remove(store + "/a.txt"), true);
    }
    umask(before);
    EXPECT_EQ(readFile(upload), "text");
}

TEST_F(AttachmentsOnHost, ReplacesTheContentOfAnAttachment)
{
    writeFile(upload, "new");
    writeFile(store + "/a", "older and longer");
    chmod((store + "/a").c_str(), 0600);
    EXPECT_EQ(add("a"), 0);
    EXPECT_EQ(readFile(store + "/a"), "new");
    EXPECT_EQ(rightsOf(store + "/a"), "-rw-r--r-- root:root");
}

TEST_F(AttachmentsOnHost, IgnoresAModeThatCannotBeSet)
{
    writeFile(upload, "text");
    chmod(upload.c_str(), 0600);
    auto const run = callOf(0, [&] {
        failSystemCall(SYS_chmod, EPERM);
        int const result = add("a");
        return result != 0 ? result : errno;
    });
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(rightsOf(store + "/a"), "-rw------- root:root");
}

TEST_F(AttachmentsOnHost, SaysThatThereIsNothingToCopy)
{
    EXPECT_EQ(
        failureOf([&] { return add("a"); }),
        withErrno("Unable to open file " + upload + ": No such file or directory", ENOENT) +
            withErrno("Unable to copy the attachment file " + upload + " to " + store + "/a\n",
                      ENOENT));
    EXPECT_EQ(rightsOf(store + "/a"), "missing");
}

TEST_F(AttachmentsOnHost, SaysThatThereIsNoStoreToCopyTo)
{
    writeFile(upload, "text");
    std::filesystem::remove_all(store);
    std::string const copy = store + "/a";
    EXPECT_EQ(failureOf([&] { return add("a"); }),
              withErrno("Unable to open file " + copy + ": No such file or directory", ENOENT) +
                  withErrno("Unable to copy the attachment file " + upload + " to " + copy + "\n",
                            ENOENT));
}

TEST_F(AttachmentsOnHost, LeavesWhatWasCopiedBeforeTheDiskWasFull)
{
    ASSERT_EQ(system(("mount -t tmpfs -o size=4096 tmpfs " + store).c_str()), 0);
    writeFile(upload, std::string(10000, 'x'));
    std::string const copy = store + "/a";
    EXPECT_EQ(failureOf([&] { return add("a"); }),
              withErrno("Error while copying file " + upload + " to " + copy +
                            ": No space left on device",
                        ENOSPC) +
                  withErrno("Unable to copy the attachment file " + upload + " to " + copy + "\n",
                            ENOSPC));
    EXPECT_EQ(readFile(copy), std::string(4096, 'x'));
    EXPECT_EQ(system(("umount " + store).c_str()), 0);
}

TEST_F(AttachmentsOnHost, AddNothingOutsideTheStore)
{
    writeFile(upload, "text");
    for (std::string const name : {"../a", "a/b", "/a", "..", ".", ""})
        EXPECT_EQ(failureOf([&] { return add(name); }),
                  withErrno("Unable to copy the attachment file " + upload + " to " + store + "/" +
                                name + "\n",
                            EINVAL));
    for (std::string const mailname : {"../example.com/info", ""})
        EXPECT_EQ(failureOf([&] {
                      return add_attachment(mailname.c_str(), "example.com", upload.c_str(), "a");
                  }),
                  withErrno("Unable to copy the attachment file " + upload + " to " + domain + "/" +
                                mailname + "/@attachments/a\n",
                            EINVAL));
    EXPECT_EQ(rightsBelow(domain).size(), 2U);
}

// --------------------------------------------------------------------------------- removing

TEST_F(AttachmentsOnHost, RemovesAFile)
{
    writeFile(store + "/a", "x");
    writeFile(store + "/b", "x");
    EXPECT_EQ(remove("a"), 0);
    EXPECT_EQ(listed(), "b\t1\n");
}

TEST_F(AttachmentsOnHost, TakesAMissingFileForRemoved)
{
    auto const run = callOf(0, [] { return remove("a"); });
    EXPECT_EQ(run.out + run.err, "");
    std::filesystem::remove_all(domain);
    EXPECT_EQ(remove("a"), 0);
}

TEST_F(AttachmentsOnHost, RemovesALinkAndNotWhatItLeadsTo)
{
    writeFile(upload, "kept");
    std::filesystem::create_symlink(upload, store + "/link");
    EXPECT_EQ(remove("link"), 0);
    EXPECT_EQ(listed(), "");
    EXPECT_EQ(readFile(upload), "kept");
}

TEST_F(AttachmentsOnHost, SaysThatAFileCannotBeRemoved)
{
    std::filesystem::create_directory(store + "/directory");
    EXPECT_EQ(
        failureOf([] { return remove("directory"); }),
        withErrno("Unable to delete the attachment file " + store + "/directory: Is a directory\n",
                  EISDIR));
    EXPECT_EQ(rightsOf(store + "/directory").front(), 'd');
}

TEST_F(AttachmentsOnHost, RemoveNothingOutsideTheStore)
{
    writeFile(domain + "/info/.qmail", "kept");
    for (std::string const name : {"../.qmail", "/../.qmail", "a/b", "..", ".", ""})
        EXPECT_EQ(failureOf([&] { return remove(name); }),
                  withErrno("Unable to delete the attachment file " + store + "/" + name +
                                ": Invalid argument\n",
                            EINVAL));
    EXPECT_EQ(failureOf([] { return remove_attachment("info/..", "example.com", "a"); }),
              withErrno("Unable to delete the attachment file " + domain +
                            "/info/../@attachments/a: Invalid argument\n",
                        EINVAL));
    EXPECT_EQ(readFile(domain + "/info/.qmail"), "kept");
}
