// Lists of domains whose keys are installed or removed: what counts as a domain of the list, and
// that a failing domain does not stop the others.

#include "mail/lib/server/domain_keys.h"

#include "domain_keys_fixture.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

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

TEST(DomainKeys, AreNotRemovedFromATooLongPath)
{
    std::string const longer = longestDomain("") + "x";
    ChildRun const run =
        inChild([&] { return remove_domain_key((longer + "," + longer).c_str()) == -1 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, domainTooLong(longer) + domainTooLong(longer));
    EXPECT_EQ(run.out, run.err);
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

TEST_F(DomainKeysOnHost, AreInstalledForTheOthersBesideATooLongDomain)
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

// A removal would delete everybody's keys, or /etc.
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
