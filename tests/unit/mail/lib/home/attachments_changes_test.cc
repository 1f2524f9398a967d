// Adding and removing attachments.

#include "mail/lib/home/attachments.h"

#include "attachments_fixture.h"
#include "support/mailnames_root.h"

namespace {

using AttachmentsChangesOnHost = AttachmentsTest;

} // namespace

// ----------------------------------------------------------------------------------- adding

TEST_F(AttachmentsChangesOnHost, CopiesWithMode0644WhateverUmaskAndSourceMode)
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

TEST_F(AttachmentsChangesOnHost, ReplacesTheContentOfAnAttachment)
{
    writeFile(upload, "new");
    writeFile(store + "/a", "older and longer");
    chmod((store + "/a").c_str(), 0600);
    EXPECT_EQ(add("a"), 0);
    EXPECT_EQ(readFile(store + "/a"), "new");
    EXPECT_EQ(rightsOf(store + "/a"), "-rw-r--r-- root:root");
}

TEST_F(AttachmentsChangesOnHost, IgnoresAModeThatCannotBeSet)
{
    writeFile(upload, "text");
    writeFile(store + "/a", "older");
    chmod((store + "/a").c_str(), 0600);
    auto const run = callOf(0, [&] {
        failSystemCall(SYS_fchmod, EPERM);
        int const result = add("a");
        return result != 0 ? result : errno;
    });
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(rightsOf(store + "/a"), "-rw------- root:root");
    EXPECT_EQ(readFile(store + "/a"), "text");
}

TEST_F(AttachmentsChangesOnHost, SaysThatThereIsNothingToCopy)
{
    EXPECT_EQ(
        failureOf([&] { return add("a"); }),
        withErrno("Unable to open file " + upload + ": No such file or directory", ENOENT) +
            withErrno("Unable to copy the attachment file " + upload + " to " + store + "/a\n",
                      ENOENT));
    EXPECT_EQ(rightsOf(store + "/a"), "missing");
}

TEST_F(AttachmentsChangesOnHost, SaysThatThereIsNoStoreToCopyTo)
{
    writeFile(upload, "text");
    std::filesystem::remove_all(store);
    std::string const copy = store + "/a";
    EXPECT_EQ(failureOf([&] { return add("a"); }),
              withErrno("Unable to open file " + copy + ": No such file or directory", ENOENT) +
                  withErrno("Unable to copy the attachment file " + upload + " to " + copy + "\n",
                            ENOENT));
}

TEST_F(AttachmentsChangesOnHost, LeavesWhatWasCopiedBeforeTheDiskWasFull)
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

TEST_F(AttachmentsChangesOnHost, AddNothingOutsideTheStore)
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

TEST_F(AttachmentsChangesOnHost, CopiesThroughNoLinkAndIntoNoOtherKind)
{
    writeFile(upload, "text");
    writeFile(dir / "precious", "precious");
    std::string const before = rightsOf(dir / "precious");
    auto const expectRefusal = [&](char const* reason) {
        EXPECT_NE(failureOf([&] { return add("a"); }).find(reason), std::string::npos);
        EXPECT_EQ(readFile(dir / "precious"), "precious");
        EXPECT_EQ(rightsOf(dir / "precious"), before);
        EXPECT_EQ(rightsOf(dir / "a"), "missing");
    };
    char const loop[] = "Too many levels of symbolic links";
    std::filesystem::create_symlink(dir / "precious", store + "/a");
    expectRefusal(loop);
    std::filesystem::remove(store + "/a");
    writeFile(home + "/others", "precious");
    std::filesystem::create_hard_link(home + "/others", store + "/a");
    expectRefusal("Too many links");
    EXPECT_EQ(readFile(home + "/others"), "precious");
    std::filesystem::remove(store + "/a");
    ASSERT_EQ(mkfifo((store + "/a").c_str(), 0666), 0);
    expectRefusal("Invalid argument");
    for (std::string const& name : {store, home, domain}) {
        std::filesystem::remove_all(name);
        std::filesystem::create_symlink(dir.path(), name);
        if (name == home)
            std::filesystem::create_directory(dir / "@attachments");
        if (name == domain)
            std::filesystem::create_directories(dir / "info/@attachments");
        expectRefusal(loop);
    }
    EXPECT_EQ(rightsBelow(dir / "@attachments").size(), 0U);
    EXPECT_EQ(rightsBelow(dir / "info/@attachments").size(), 0U);
    std::filesystem::remove(domain);
}

TEST_F(AttachmentsChangesOnHost, TakesNoSourceButARegularFileOfOneName)
{
    writeFile(dir / "file", "text");
    std::filesystem::create_symlink(dir / "file", upload);
    auto const refused = [&] { return failureOf([&] { return add("a"); }); };
    EXPECT_NE(refused().find("Too many levels of symbolic links"), std::string::npos);
    std::filesystem::remove(upload);
    ASSERT_EQ(mkfifo(upload.c_str(), 0666), 0);
    EXPECT_NE(refused().find("Invalid argument"), std::string::npos);
    std::filesystem::remove(upload);
    std::filesystem::create_hard_link(dir / "file", upload);
    EXPECT_NE(refused().find("Too many links"), std::string::npos);
    std::filesystem::remove(upload);
    writeFile(upload, "");
    ASSERT_EQ(truncate(upload.c_str(), off_t{8} << 40), 0);
    EXPECT_NE(refused().find("File too large"), std::string::npos);
    EXPECT_EQ(rightsBelow(store).size(), 0U);
}

TEST_F(AttachmentsChangesOnHost, TakesNoSourceOfAnothersUnlessTheCallerIsRoot)
{
    writeFile(upload, "text");
    auto const add_as = [&](uid_t user) {
        return inChild([&] { return setresuid(user, 0, 0) == 0 && add("a") == 0 ? 0 : 1; });
    };
    auto const run = add_as(65534);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("Operation not permitted"), std::string::npos);
    EXPECT_EQ(rightsBelow(store).size(), 0U);
    ASSERT_EQ(chown(upload.c_str(), 65534, 65534), 0);
    EXPECT_EQ(add_as(65534).status, 0);
    EXPECT_EQ(add_as(0).status, 0);
}

TEST_F(AttachmentsChangesOnHost, LeavesAnAttachmentThatIsCopiedOntoItself)
{
    writeFile(store + "/a", "text");
    EXPECT_EQ(add_attachment("info", "example.com", (store + "/../@attachments/a").c_str(), "a"),
              0);
    EXPECT_EQ(readFile(store + "/a"), "text");
}

TEST_F(AttachmentsChangesOnHost, RemovesNothingThroughALink)
{
    writeFile(dir / "a", "kept");
    std::filesystem::remove_all(store);
    std::filesystem::create_symlink(dir.path(), store);
    EXPECT_NE(failureOf([] { return remove("a"); }).find("Too many levels of symbolic links"),
              std::string::npos);
    EXPECT_EQ(readFile(dir / "a"), "kept");
}

// --------------------------------------------------------------------------------- removing

TEST_F(AttachmentsChangesOnHost, RemovesAFile)
{
    writeFile(store + "/a", "x");
    writeFile(store + "/b", "x");
    EXPECT_EQ(remove("a"), 0);
    EXPECT_EQ(listed(), "b\t1\n");
}

TEST_F(AttachmentsChangesOnHost, TakesAMissingFileForRemoved)
{
    auto const run = callOf(0, [] { return remove("a"); });
    EXPECT_EQ(run.out + run.err, "");
    std::filesystem::remove_all(domain);
    EXPECT_EQ(remove("a"), 0);
}

TEST_F(AttachmentsChangesOnHost, RemovesALinkAndNotWhatItLeadsTo)
{
    writeFile(upload, "kept");
    std::filesystem::create_symlink(upload, store + "/link");
    EXPECT_EQ(remove("link"), 0);
    EXPECT_EQ(listed(), "");
    EXPECT_EQ(readFile(upload), "kept");
}

TEST_F(AttachmentsChangesOnHost, SaysThatAFileCannotBeRemoved)
{
    std::filesystem::create_directory(store + "/directory");
    EXPECT_EQ(
        failureOf([] { return remove("directory"); }),
        withErrno("Unable to delete the attachment file " + store + "/directory: Is a directory\n",
                  EISDIR));
    EXPECT_EQ(rightsOf(store + "/directory").front(), 'd');
}

TEST_F(AttachmentsChangesOnHost, RemoveNothingOutsideTheStore)
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

TEST_F(AttachmentsChangesOnHost, AreAddedAndRemovedBelowTheConfiguredRoot)
{
    writeFile(upload, "text");
    writeFile(store + "/a", "kept");
    MailnamesRoot const other("/srv/mail");
    std::string const elsewhere = "/srv/mail/example.com/info/@attachments";
    std::filesystem::create_directories(elsewhere);
    EXPECT_EQ(add("a"), 0);
    EXPECT_EQ(rightsOf(elsewhere + "/a"), "-rw-r--r-- root:root");
    EXPECT_EQ(remove("a"), 0);
    EXPECT_EQ(rightsOf(elsewhere + "/a"), "missing");
    EXPECT_EQ(readFile(store + "/a"), "kept");
}
