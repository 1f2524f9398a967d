// The path of a domain's key, whether keys are enabled, and how they are cloned and removed.

#include "mail/lib/server/domain_keys.h"

#include "domain_keys_fixture.h"
#include "lib/report/owned.h"

#include <cerrno>

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

namespace {

std::string pathOf(char const* domain)
{
    CString const path(get_domainkeys_file(domain));
    return path ? path.get() : "null";
}

} // namespace

TEST(DomainKeys, LieInTheDirectoryOfTheDomainInLowerCase)
{
    EXPECT_EQ(pathOf("example.com"), "/etc/domainkeys/example.com/default");
    EXPECT_EQ(pathOf("Mail.EXAMPLE.Com"), "/etc/domainkeys/mail.example.com/default");
    EXPECT_EQ(pathOf("100%s"), "/etc/domainkeys/100%s/default");
}

TEST(DomainKeys, HaveNoPathWithoutADomain)
{
    ChildRun const run = inChild([] { return pathOf(nullptr) == "null" ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
}

TEST(DomainKeys, HaveNoPathOfMoreThan4095Characters)
{
    std::string const fits = longestDomain("/default");
    EXPECT_EQ(pathOf(fits.c_str()), "/etc/domainkeys/" + fits + "/default");
    std::string const longer = fits + "X";
    ChildRun const run = inChild([&] { return pathOf(longer.c_str()) == "null" ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, fileTooLong(fits + "x"));
    EXPECT_EQ(run.out, run.err);
}

TEST(DomainKeys, HaveNoPathWithoutMemoryForTheDomain)
{
    ChildRun const run = inChild([] {
        AllocationFailure const failure(1);
        return pathOf("A%s.com") == "null" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, std::string("System error: Cannot allocate memory\n") + no_memory +
                           "cannot convert A%s.com to lower case" + no_memory);
    EXPECT_EQ(run.out, run.err);
}

TEST(DomainKeys, HaveNoPathWithoutMemoryForItsCopy)
{
    ChildRun const run = inChild([] {
        AllocationFailure const failure(2);
        return pathOf("a.com") == "null" && errno == ENOMEM ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
}

TEST(DomainKeys, AreNotEnabledWithoutAPath)
{
    std::string const longer = longestDomain("/default") + "x";
    ChildRun const run = inChild([&] {
        return domainkeys_enabled(nullptr) == 0 && domainkeys_enabled(longer.c_str()) == 0 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, fileTooLong(longer));
}

TEST_F(DomainKeysOnHost, AreEnabledOnlyByARegularFile)
{
    auto const enabled = [](char const* domain) {
        errno = E2BIG;
        int const result = domainkeys_enabled(domain);
        EXPECT_EQ(errno, E2BIG) << domain;
        return result;
    };
    EXPECT_EQ(enabled("a.com"), 0);
    makeKey("a.com", "");
    EXPECT_EQ(enabled("a.com"), 1);
    EXPECT_EQ(enabled("A.Com"), 1);
    std::filesystem::create_directories(keyOf("dir.com"));
    EXPECT_EQ(enabled("dir.com"), 0);
    std::filesystem::create_directories(std::string(keys) + "/link.com");
    std::filesystem::create_symlink(keyOf("dir.com"), keyOf("link.com"));
    EXPECT_EQ(enabled("link.com"), 0);
    std::filesystem::remove(keyOf("link.com"));
    std::filesystem::create_symlink(keyOf("a.com"), keyOf("link.com"));
    EXPECT_EQ(enabled("link.com"), 1);
}

TEST_F(DomainKeysOnHost, AreClonedWithTheirRights)
{
    expect(
        0, [&] { return install("a.com"); }, "");
    expect(
        0, [] { return clone_domain_key("A.com", "B.com,c.com"); }, "");
    for (char const* const domain : {"b.com", "c.com"}) {
        EXPECT_EQ(readFile(keyOf(domain)), "key\n");
        EXPECT_EQ(rightsOf(keyOf(domain)), rightsOf(keyOf("a.com")));
    }
}

TEST_F(DomainKeysOnHost, AreNotClonedFromADomainThatHasNone)
{
    expect(
        0, [] { return clone_domain_key("a.com", "b.com"); }, "");
    EXPECT_FALSE(std::filesystem::exists(keys));
    std::filesystem::create_directories(keyOf("dir.com"));
    std::filesystem::create_directories(std::string(keys) + "/link.com");
    std::filesystem::create_symlink(keyOf("dir.com"), keyOf("link.com"));
    expect(
        0, [] { return clone_domain_key("dir.com", "b.com"); }, "");
    expect(
        0, [] { return clone_domain_key("link.com", "b.com"); }, "");
    EXPECT_THAT(namesIn(keys), ElementsAre("dir.com", "link.com"));
}

TEST_F(DomainKeysOnHost, AreNotClonedWithoutMemoryForTheirPath)
{
    makeKey("a.com", "key");
    for (int const number : {3, 4}) {
        ChildRun const run = inChild([&] {
            AllocationFailure const failure(number);
            return clone_domain_key("a.com", "b.com") == -1 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_THAT(run.err,
                    EndsWith(std::string("Cannot get domainkeys key file for a.com") + no_memory));
        EXPECT_EQ(run.out, run.err);
    }
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com"));
}

TEST_F(DomainKeysOnHost, AreNotClonedToADomainThatIsTooLong)
{
    makeKey("a.com", "key");
    std::string const longer = longestDomain("") + "x";
    expect(
        -1, [&] { return clone_domain_key("a.com", (longer + ",b.com").c_str()); },
        domainTooLong(longer));
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "b.com"));
}

TEST_F(DomainKeysOnHost, AreRemovedWithTheirWholeDirectories)
{
    for (char const* const domain : {"a.com", "b.com", "c.com"})
        makeKey(domain, "key");
    makeKey("b.com/below", "key");
    expect(
        0, [] { return remove_domain_key("A.com,missing.com,b.COM"); }, "");
    EXPECT_THAT(namesIn(keys), ElementsAre("c.com"));
}

TEST_F(DomainKeysOnHost, AreRemovedWithoutFollowingALink)
{
    std::filesystem::create_directory(keys);
    std::filesystem::create_directory_symlink(directory.path(), std::string(keys) + "/a.com");
    expect(
        0, [] { return remove_domain_key("a.com"); }, "");
    EXPECT_THAT(namesIn(keys), IsEmpty());
    EXPECT_EQ(readFile(source), "key\n");
}
