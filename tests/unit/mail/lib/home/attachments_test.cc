#include "mail/lib/home/attachments.h"

#include "attachments_fixture.h"
#include "lib/names/idn_error.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"
#include "support/mailnames_root.h"

#include <idna.h>

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

// The output on each stream of a call that must end the process with status 1.
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

using AttachmentsOnHost = AttachmentsTest;

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
    EXPECT_THAT(endOf([] { return list_attachments("", too_long_label.c_str(), 0, 0); }),
                StartsWith("idn_toascii() failed: "));
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

TEST_F(AttachmentsOnHost, PassesDirectoriesOverAndListsLinksThemselves)
{
    std::filesystem::create_directories(store + "/directory/below");
    writeFile(store + "/directory/file", "x");
    std::filesystem::create_symlink("directory", store + "/link-to-directory");
    std::filesystem::create_symlink("directory/file", store + "/link");
    EXPECT_THAT(listed(),
                AnyOf("link\t14\nlink-to-directory\t9\n", "link-to-directory\t9\nlink\t14\n"));
}

TEST_F(AttachmentsOnHost, HoldsAtNoFifoAndReadsNoOtherTree)
{
    ASSERT_EQ(mkfifo((store + "/fifo").c_str(), 0666), 0);
    EXPECT_EQ(listed(), "fifo\t0\n");
    writeFile(dir / "secret", "12345");
    std::filesystem::remove_all(store);
    std::filesystem::create_symlink(dir.path(), store);
    EXPECT_EQ(
        failureOf([] { return list_attachments("info", "example.com", 0, 0); }),
        withErrno("Unable to open dir " + store + ": Too many levels of symbolic links\n", ELOOP));
    std::filesystem::remove(store);
    ASSERT_EQ(mkfifo(store.c_str(), 0666), 0);
    EXPECT_EQ(failureOf([] { return list_attachments("info", "example.com", 0, 0); }),
              withErrno("Unable to open dir " + store + ": Not a directory\n", ENOTDIR));
}

TEST_F(AttachmentsOnHost, ShowsTheControlBytesOfANameOrAPath)
{
    writeFile(store + "/a\tb\nc", "x");
    EXPECT_EQ(listed(), "a\\tb\\nc\t1\n");
    EXPECT_EQ(listed(0, 1), store + "/a\\tb\\nc\t1\n");
}

TEST_F(AttachmentsOnHost, PrintsAnHonestNameAsItStands)
{
    for (char const* const name : {"a b\\n", "%s%n", "gr\xc3\xbc\xc3\x9f", "\xff"}) {
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

TEST_F(AttachmentsOnHost, EndsAListWhereLstatFails)
{
    writeFile(store + "/a", "x");
    EXPECT_EQ(failureOf([] {
                  CallFailure const failing("fstatat", EIO);
                  return list_attachments("info", "example.com", 0, 0);
              }),
              withErrno("stat " + store + "/a failed: Input/output error", EIO));
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

TEST_F(AttachmentsOnHost, TakesNoLinkToAHomeForAMailname)
{
    writeFile(store + "/a", "x");
    std::filesystem::create_directory_symlink("info", domain + "/link");
    auto const run = callOf(0, [] { return list_all_attachments("example.com", 0, 0); });
    EXPECT_EQ(run.out, "a\t1\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(AttachmentsOnHost, AreListedBelowTheConfiguredRoot)
{
    writeFile(store + "/a", "x");
    MailnamesRoot const other("/srv/mail");
    std::filesystem::create_directories("/srv/mail/example.com/info/@attachments");
    writeFile("/srv/mail/example.com/info/@attachments/b", "xx");
    EXPECT_EQ(listed(), "b\t2\n");
    std::filesystem::rename("/srv/mail/example.com/info", "/srv/mail/example.com/office");
    EXPECT_EQ(callOf(0, [] { return list_all_attachments("example.com", 0, 0); }).out, "b\t2\n");
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
