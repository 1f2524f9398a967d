#include "mail/lib/domain_keys.h"

#include "lib/owned.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/memory_faults.h"
#include "support/rights.h"
#include "support/set_aside.h"
#include "support/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

constexpr char keys[] = "/etc/domainkeys";
constexpr char no_memory[] = "\nSystem error 12: Cannot allocate memory\n";

// The longest domain of x whose path, with what is behind it, is no longer than 4095.
std::string longestDomain(std::string const& behind)
{
    return std::string(4095 - std::string(keys).size() - 1 - behind.size(), 'x');
}

// Of directories with short names, for there is none of more than 255 characters.
std::string deepDomain(size_t length)
{
    std::string domain;
    while (domain.size() < length)
        domain += std::string(199, 'x') + "/";
    domain.resize(length);
    return domain;
}

std::string pathOf(char const* domain)
{
    CString const path(get_domainkeys_file(domain));
    return path ? path.get() : "null";
}

std::string fileTooLong(std::string const& domain)
{
    return "File name 'default' is too long to be stored in /etc/domainkeys/" + domain + "\n";
}

std::string domainTooLong(std::string const& domain)
{
    return "Domain name '" + domain + "' is too long to be stored in /etc/domainkeys\n";
}

// On a host whose store is missing at first.
class DomainKeysOnHost : public HostTest
{
protected:
    void SetUp() override
    {
        HostTest::SetUp();
        if (HasFatalFailure())
            return;
        store.emplace(keys);
        writeFile(source, "key\n");
    }

    static std::string keyOf(std::string const& domain)
    {
        return keys + ("/" + domain) + "/default";
    }
    static void makeKey(std::string const& domain, std::string const& key)
    {
        std::filesystem::create_directories(keys + ("/" + domain));
        writeFile(keyOf(domain), key);
    }

    // What lies in a directory, sorted.
    static std::vector<std::string> namesIn(std::string const& directory)
    {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(directory))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    // In a child, that ends with 0 when the result is this one.
    void expect(int result, std::function<int()> const& call, std::string const& printed)
    {
        ChildRun const run = inChild([&] { return call() == result ? 0 : 99; });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, printed);
        EXPECT_EQ(run.out, printed);
    }

    int install(std::string const& domains) const
    {
        return set_domain_key(domains.c_str(), source.c_str());
    }

    TempDir const directory;
    std::string const source = directory / "uploaded";

private:
    std::optional<SetAside> store;
};

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

TEST(DomainKeys, AreNotRemovedWithoutMemoryForTheList)
{
    ChildRun const run = inChild([] {
        AllocationFailure const failure(1);
        return remove_domain_key(",") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, EndsWith("cannot split domains list ','\n" + std::string(no_memory)));
    EXPECT_EQ(run.out, run.err);
}

TEST(DomainKeys, AreNotRemovedFromADirectoryWhosePathIsTooLong)
{
    std::string const longer = longestDomain("") + "x";
    ChildRun const run =
        inChild([&] { return remove_domain_key((longer + "," + longer).c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, domainTooLong(longer) + domainTooLong(longer));
    EXPECT_EQ(run.out, run.err);
}

TEST_F(DomainKeysOnHost, AreInstalledForEachDomainOfTheListWithTheirRights)
{
    mode_t const before = umask(077); // which must not keep the filter out
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

TEST_F(DomainKeysOnHost, AreNotTouchedByAnEmptyList)
{
    for (char const* const list : {"", ",", ",,,"}) {
        expect(
            0, [&] { return install(list); }, "");
        EXPECT_FALSE(std::filesystem::exists(keys)) << list;
        makeKey("a.com", "key");
        expect(
            0, [&] { return remove_domain_key(list); }, "");
        EXPECT_EQ(readFile(keyOf("a.com")), "key") << list;
        std::filesystem::remove_all(keys);
    }
}

TEST_F(DomainKeysOnHost, AreNotConfusedByDoubledAndTrailingCommas)
{
    expect(
        0, [&] { return install(",a.com,,b.com,"); }, "");
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "b.com"));
    makeKey("c.com", "stays");
    expect(
        0, [] { return remove_domain_key(",a.com,,b.com,"); }, "");
    EXPECT_THAT(namesIn(keys), ElementsAre("c.com"));
}

TEST_F(DomainKeysOnHost, AreInstalledForTheOtherDomainsBesideOneThatIsTooLong)
{
    std::string const longer = longestDomain("") + "x";
    expect(
        -1, [&] { return install("a.com," + longer + "X,b.com"); }, domainTooLong(longer + "x"));
    EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "b.com"));
    expect(
        -1, [&] { return remove_domain_key(("a.com," + longer + ",b.com").c_str()); },
        domainTooLong(longer));
    EXPECT_THAT(namesIn(keys), IsEmpty());
}

TEST_F(DomainKeysOnHost, AreInstalledForTheOtherDomainsBesideOneWhoseFileIsTooLong)
{
    std::string const deep = deepDomain(longestDomain("/default").size() + 1);
    expect(
        -1, [&] { return install("a.com," + deep + ",b.com"); }, fileTooLong(deep));
    EXPECT_EQ(readFile(keyOf("a.com")), "key\n");
    EXPECT_EQ(readFile(keyOf("b.com")), "key\n");
    EXPECT_TRUE(std::filesystem::is_directory(keys + ("/" + deep))) << "it is made before";
}

TEST_F(DomainKeysOnHost, AreInstalledForTheOtherDomainsWithoutMemoryForOne)
{
    std::string const report = std::string("System error: Cannot allocate memory\n") + no_memory +
                               "cannot convert B.com to lower case" + no_memory;
    int reported = 0;
    for (int number = 1; number < 30 && !reported; ++number) {
        std::filesystem::remove_all(keys);
        ChildRun const run = inChild([&] {
            AllocationFailure const failure(number);
            return install("a.com,B.com,c.com") == -1 ? 0 : 1;
        });
        if (run.err != report)
            continue;
        ++reported;
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, report);
        EXPECT_THAT(namesIn(keys), ElementsAre("a.com", "c.com"));
    }
    EXPECT_EQ(reported, 1);
}

TEST_F(DomainKeysOnHost, AreNotInstalledWithoutMemoryForTheList)
{
    ChildRun const run = inChild([&] {
        AllocationFailure const failure(1);
        return install("a.com,b.com") == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err,
                EndsWith("cannot split domains list 'a.com,b.com'\n" + std::string(no_memory)));
    EXPECT_FALSE(std::filesystem::exists(keys));
}

// A removal would take the keys of everybody, or /etc.
TEST_F(DomainKeysOnHost, AreNotSoughtOutsideTheirStore)
{
    for (std::string const domain : {".", "..", "/", "//", "../x", "x/../..", "x/.", "./x"}) {
        SCOPED_TRACE(domain);
        std::string const report =
            "Domain name '" + domain + "' cannot be stored in /etc/domainkeys\n";
        std::filesystem::remove_all(keys);
        expect(
            -1, [&] { return install(domain + ",a.com"); }, report);
        EXPECT_THAT(namesIn(keys), ElementsAre("a.com"));
        makeKey("b.com", "stays");
        expect(
            -1, [&] { return remove_domain_key((domain + ",a.com").c_str()); }, report);
        EXPECT_THAT(namesIn(keys), ElementsAre("b.com"));
    }
    EXPECT_FALSE(std::filesystem::exists("/etc/x"));
    EXPECT_FALSE(std::filesystem::exists("/etc/default/default"));
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

TEST_F(DomainKeysOnHost, AreEnabledByARegularFileAlone)
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
