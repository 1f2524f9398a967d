// Installing keys for a domain: their rights, what they replace, and what ends the process.

#include "mail/lib/server/domain_keys.h"

#include "domain_keys_fixture.h"
#include "support/call_faults.h"

#include <cerrno>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(DomainKeys, AreNotInstalledFromAMissingFile)
{
    TempDir const dir;
    std::string const missing = dir / "no%skey";
    ChildRun const run = inChild(
        [&] { return set_domain_key("a.com", missing.c_str()) == -1 && errno == ENOENT ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "No source file '" + missing + "': No such file or directory\n" +
                           "System error 2: No such file or directory\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(DomainKeys, AreInstalledFromARegularFileOnly)
{
    TempDir const dir;
    writeFile(dir / "theirs", "secret");
    std::filesystem::create_hard_link(dir / "theirs", dir / "hard");
    std::filesystem::create_symlink(dir / "theirs", dir / "link");
    ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
    writeFile(dir / "huge", "");
    ASSERT_EQ(truncate((dir / "huge").c_str(), off_t{1} << 40), 0);
    std::pair<char const*, int> const bad[] = {
        {"hard", EMLINK}, {"link", ELOOP}, {"fifo", EINVAL}, {"huge", EFBIG}, {".", EINVAL}};
    for (auto const& [name, error] : bad) {
        std::string const source = dir / name;
        ChildRun const run = inChild([&, error = error] {
            return set_domain_key("a.com", source.c_str()) == -1 && errno == error ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0) << name;
    }
}

TEST_F(DomainKeysOnHost, AreInstalledOnlyFromTheCallersFileUnlessRoots)
{
    ASSERT_EQ(chmod(source.c_str(), 0644), 0);
    auto const install_as = [&](uid_t user) {
        return inChild([&] { return setresuid(user, 0, 0) == 0 && install("a.com") == 0 ? 0 : 1; })
            .status;
    };
    EXPECT_EQ(install_as(65534), 1);
    EXPECT_FALSE(std::filesystem::exists(keyOf("a.com")));
    ASSERT_EQ(chown(source.c_str(), 65534, 65534), 0);
    EXPECT_EQ(install_as(65534), 0);
    EXPECT_EQ(install_as(0), 0);
}

TEST_F(DomainKeysOnHost, AreTakenOverWhenAllAreInstalled)
{
    EXPECT_EQ(printedBy([&] { take_over_domain_key(".", source.c_str()); }).status, 0);
    EXPECT_TRUE(std::filesystem::exists(source));
    EXPECT_EQ(take_over_domain_key("a.com,b.com", source.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(source));
    EXPECT_EQ(readFile(keyOf("a.com")) + readFile(keyOf("b.com")), "key\nkey\n");
}

TEST_F(DomainKeysOnHost, AreTakenFromTheFileThatWasLookedAt)
{
    std::string const moved = directory / "moved";
    std::filesystem::create_directories(directory / "mine");
    std::string const mine = directory / "mine/key";
    writeFile(mine, "key\n");
    // Before the first directory is made, which comes after the look at the source.
    BeforeCall const swap("mkdirat", 1, [&] {
        std::filesystem::rename(directory / "mine", moved);
        std::filesystem::create_directories(directory / "mine");
        writeFile(mine, "theirs\n");
    });
    EXPECT_EQ(take_over_domain_key("a.com", mine.c_str()), 0);
    EXPECT_EQ(readFile(keyOf("a.com")), "key\n");
    EXPECT_EQ(readFile(mine), "theirs\n");
    EXPECT_THAT(namesIn(moved), IsEmpty());
}

TEST_F(DomainKeysOnHost, LeaveAFileThatHasTakenTheSourcesName)
{
    BeforeCall const swap("mkdirat", 1, [&] {
        std::filesystem::remove(source);
        writeFile(source, "another\n");
    });
    EXPECT_EQ(take_over_domain_key("a.com", source.c_str()), 0);
    EXPECT_EQ(readFile(source), "another\n");
}

TEST_F(DomainKeysOnHost, AreInstalledForEachListedDomainWithTheirRights)
{
    mode_t const before = umask(077); // it must not keep the filter out
    expect(
        0, [&] { return install("a.com,B.Com,c.com"); }, "");
    EXPECT_EQ(umask(before), 077U);
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "b.com", "c.com"));
    EXPECT_EQ(rightsOf(keys), "drwxr-xr-x root:root");
    for (char const* const domain : {"a.com", "b.com", "c.com"}) {
        EXPECT_THAT(namesIn(keys + ("/" + std::string(domain))), ElementsAre("default"));
        EXPECT_EQ(readFile(keyOf(domain)), "key\n");
        EXPECT_EQ(rightsOf(keys + ("/" + std::string(domain))), "drwxr-xr-x root:root");
        EXPECT_EQ(rightsOf(keyOf(domain)), "-r--r----- root:popuser");
    }
    EXPECT_TRUE(std::filesystem::exists(source));
}

TEST_F(DomainKeysOnHost, ReplaceOlderOnesInDirectoriesThatStayAsTheyAre)
{
    makeKey("a.com", "old");
    std::string const own = std::string(keys) + "/a.com";
    writeFile(own + "/other", "other");
    chmod(own.c_str(), 0710);
    expect(
        0, [&] { return install("A.COM"); }, "");
    EXPECT_EQ(readFile(keyOf("a.com")), "key\n");
    EXPECT_EQ(modeOf(keyOf("a.com")), 0440U);
    EXPECT_EQ(modeOf(own), 0710U);
    EXPECT_THAT(namesIn(own), ElementsAre("default", "other"));
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com"));
}

TEST_F(DomainKeysOnHost, EndTheProcessWhenTheCopyFails)
{
    std::filesystem::create_directories(keyOf("b.com"));
    ChildRun const run = inChild([&] {
        install("a.com,b.com,c.com");
        return 99;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "copy_file_atomic(" + source +
                           " -> /etc/domainkeys/b.com/default): rename "
                           "failed\nSystem error 21: Is a directory\n");
    EXPECT_EQ(run.out, run.err);
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "b.com"));
    EXPECT_THAT(namesIn(std::string(keys) + "/b.com"), ElementsAre("default"));
}

TEST_F(DomainKeysOnHost, EndTheProcessWhenTheirDirectoryCannotBeMade)
{
    writeFile(keys, "");
    ChildRun const run = inChild([&] {
        install("a.com");
        return 99;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, StartsWith("Cannot create directory /etc/domainkeys"));
}

TEST_F(DomainKeysOnHost, GoToRootsGroupWithoutTheUserPopuser)
{
    std::string const users = readFile("/etc/passwd");
    std::string others = users;
    size_t const place = others.find("\npopuser:") + 1;
    ASSERT_NE(place, 0U);
    others.replace(place, 7, "renamed");
    writeFile("/etc/passwd", others);
    ChildRun const run = inChild([&] { return install("a.com") == 0 ? 0 : 1; });
    writeFile("/etc/passwd", users);
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, StartsWith("Unable to getpwnam for user popuser\n"));
    EXPECT_EQ(rightsOf(keyOf("a.com")), "-r--r----- root:root");
}
