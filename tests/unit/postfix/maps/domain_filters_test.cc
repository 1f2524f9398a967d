#include "postfix/maps/domain_filters.h"

#include <gtest/gtest.h>

using orvek::mail::postfix::NotInDomainFilter;
using orvek::mail::postfix::ReplaceDomainPart;
using orvek::mail::postfix::ReplaceDomainPath;

namespace {

bool inDomain(std::string const& element, std::string const& domain, bool subdomains)
{
    return !NotInDomainFilter{domain, subdomains}(element);
}

std::string withDomainReplaced(std::string element, std::string const& from, std::string const& to,
                               bool subdomains)
{
    EXPECT_TRUE((ReplaceDomainPart{&from, &to, subdomains}(element)));
    return element;
}

std::string withPathReplaced(std::string value, std::string const& from, std::string const& to)
{
    EXPECT_TRUE((ReplaceDomainPath{&from, &to}(value)));
    return value;
}

} // namespace

TEST(NotInDomainFilter, DropsTheDomainAndAllItsAddresses)
{
    for (bool const subdomains : {false, true}) {
        EXPECT_TRUE(inDomain("d.test", "d.test", subdomains));
        EXPECT_TRUE(inDomain("@d.test", "d.test", subdomains));
        EXPECT_TRUE(inDomain("a@d.test", "d.test", subdomains));
        EXPECT_TRUE(inDomain("a@b@d.test", "d.test", subdomains));
    }
}

TEST(NotInDomainFilter, DropsASubdomainOnlyWithSubdomains)
{
    EXPECT_FALSE(inDomain("a@sub.d.test", "d.test", false));
    EXPECT_TRUE(inDomain("a@sub.d.test", "d.test", true));
    EXPECT_FALSE(inDomain("sub.d.test", "d.test", false));
    EXPECT_TRUE(inDomain("sub.d.test", "d.test", true));
    EXPECT_FALSE(inDomain(".d.test", "d.test", false));
    EXPECT_TRUE(inDomain(".d.test", "d.test", true));
}

TEST(NotInDomainFilter, KeepsADomainThatOnlyEndsWithTheSameBytes)
{
    for (bool const subdomains : {false, true}) {
        EXPECT_FALSE(inDomain("notd.test", "d.test", subdomains));
        EXPECT_FALSE(inDomain("a@notd.test", "d.test", subdomains));
        EXPECT_FALSE(inDomain("a@-d.test", "d.test", subdomains));
        EXPECT_FALSE(inDomain("\xff"
                              "d.test",
                              "d.test", subdomains));
    }
}

TEST(NotInDomainFilter, KeepsAnElementThatRunsOutBeforeTheDomain)
{
    EXPECT_FALSE(inDomain(".test", "d.test", true));
    EXPECT_FALSE(inDomain("test", "d.test", true));
    EXPECT_FALSE(inDomain("", "d.test", true));
}

TEST(NotInDomainFilter, KeepsOtherCaseAndWhatFollowsATrailingSlash)
{
    EXPECT_FALSE(inDomain("a@D.test", "d.test", true));
    EXPECT_FALSE(inDomain("a@d.test", "D.test", true));
    EXPECT_FALSE(inDomain("d.test/", "d.test", true));
    EXPECT_FALSE(inDomain("d.test/a/Maildir/", "d.test", true));
}

TEST(NotInDomainFilter, KeepsTheBounceOfTheDomainsUnknownRecipients)
{
    EXPECT_FALSE(inDomain("_orvek_bounce_d.test@localhost.localdomain", "d.test", true));
}

TEST(NotInDomainFilter, ComparesBytesAbove127Exactly)
{
    EXPECT_TRUE(inDomain("a@m\xc3\xbcller.test", "m\xc3\xbcller.test", false));
    EXPECT_FALSE(inDomain("a@m\xc3\x9cller.test", "m\xc3\xbcller.test", false));
}

TEST(ReplaceDomainPart, ReplacesAWholeElement)
{
    EXPECT_EQ(withDomainReplaced("d.test", "d.test", "longer.example", false), "longer.example");
}

TEST(ReplaceDomainPart, ReplacesTheTailAfterAnAt)
{
    EXPECT_EQ(withDomainReplaced("a@d.test", "d.test", "longer.example", false),
              "a@longer.example");
    EXPECT_EQ(withDomainReplaced("@d.test", "d.test", "e", false), "@e");
    EXPECT_EQ(withDomainReplaced("d.test@d.test", "d.test", "e", false), "d.test@e");
}

TEST(ReplaceDomainPart, ReplacesTheTailAfterADotOnlyWithSubdomains)
{
    EXPECT_EQ(withDomainReplaced("a@sub.d.test", "d.test", "e", false), "a@sub.d.test");
    EXPECT_EQ(withDomainReplaced("a@sub.d.test", "d.test", "e", true), "a@sub.e");
}

TEST(ReplaceDomainPart, LeavesWhatDoesNotEndAtTheDomainsBoundary)
{
    for (std::string const element : {"", "test", "notd.test", "a@notd.test", "a@D.test", "d.test/",
                                      "a@d.test.example", "\351d.test"})
        EXPECT_EQ(withDomainReplaced(element, "d.test", "e", true), element);
}

TEST(ReplaceDomainPath, ReplacesTheBeginningOfTheValueOnly)
{
    EXPECT_EQ(withPathReplaced("d.test/d.test/Maildir/", "d.test/", "longer.example/"),
              "longer.example/d.test/Maildir/");
    EXPECT_EQ(withPathReplaced("d.test", "d.test", "e"), "e");
}

TEST(ReplaceDomainPath, LooksForNoPathBoundaryAfterTheBeginning)
{
    EXPECT_EQ(withPathReplaced("domain/x/", "dom", "e"), "eain/x/");
}

TEST(ReplaceDomainPath, LeavesAnotherBeginning)
{
    EXPECT_EQ(withPathReplaced("x/d.test/", "d.test", "e"), "x/d.test/");
    EXPECT_EQ(withPathReplaced("D.test/x/", "d.test", "e"), "D.test/x/");
    EXPECT_EQ(withPathReplaced("d.tes", "d.test", "e"), "d.tes");
    EXPECT_EQ(withPathReplaced("", "d.test", "e"), "");
}
