#include "mail/lib/home/mail_utilities.h"

#include "lib/conf/autoprepend.h"
#include "lib/names/idn_error.h"
#include "support/child_run.h"
#include "support/host_test.h"
#include "support/mailnames_root.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <idna.h>

namespace {

using PathFunction = int (*)(char*, std::size_t, char const*, char const*);

std::string root()
{
    return orvConfGetDefaultByIndex(_ORVEK_MAILNAMES_D_INDEX);
}

std::string pathBy(PathFunction function, std::string const& mailname, std::string const& domain)
{
    char path[4096] = "";
    EXPECT_EQ(function(path, sizeof path, mailname.c_str(), domain.c_str()), 0);
    return path;
}

// The output on each stream of a call that must fail.
std::string failureOf(PathFunction function, std::string const& mailname, std::string const& domain,
                      std::size_t size = 4096)
{
    auto const run = inChild([&] {
        char path[4096];
        errno = 0;
        return function(path, size, mailname.c_str(), domain.c_str()) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, run.err);
    return run.err;
}

class MailUtilitiesOnHost : public HostTest
{
};

} // namespace

TEST(MailUtilities, FormsTheHomeAndTheDeliveryFile)
{
    EXPECT_EQ(pathBy(get_mailhome_path, "info", "example.com"), root() + "/example.com/info");
    EXPECT_EQ(pathBy(get_dotqmail_path, "info", "example.com"),
              root() + "/example.com/info/.qmail");
}

TEST(MailUtilities, ConvertsTheDomainAndTakesTheMailnameAsItIs)
{
    EXPECT_EQ(pathBy(get_mailhome_path, "gr\xc3\xbc\xc3\x9f",
                     "b\xc3\xbc"
                     "cher.example"),
              root() + "/xn--bcher-kva.example/gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(pathBy(get_dotqmail_path, "a%s",
                     "b\xc3\xbc"
                     "cher.example")
                  .substr(root().size()),
              "/xn--bcher-kva.example/a%s/.qmail");
}

TEST(MailUtilities, TakesLetterDigitUnderscoreAndHyphenAtTheStart)
{
    for (char const* const mailname : {"a", "Z", "0", "9", "_", "-", "a.b", "_.", "-/"})
        EXPECT_EQ(pathBy(get_mailhome_path, mailname, "d"), root() + "/d/" + mailname);
}

TEST(MailUtilities, RefusesAnyOtherMailname)
{
    for (PathFunction const function : {get_mailhome_path, get_dotqmail_path})
        for (char const* const mailname : {"", ".", "..", ".a", "/a", " a", "+a", "@", "\n"})
            EXPECT_EQ(failureOf(function, mailname, "example.com"),
                      "empty mailname or maildomain\n");
}

TEST(MailUtilities, RefusesADomainWithoutAnAsciiForm)
{
    std::string const domain(64, 'x');
    for (PathFunction const function : {get_mailhome_path, get_dotqmail_path})
        EXPECT_EQ(failureOf(function, "info", domain),
                  "idn_toascii(" + domain + ") failed: " + idn_strerror(IDNA_INVALID_LENGTH) +
                      "\n");
}

TEST_F(MailUtilitiesOnHost, TakesTheLongestPathAndNoLonger)
{
    std::string const home = root() + "/d/info";
    char path[4096];
    EXPECT_EQ(get_mailhome_path(path, home.size() + 1, "info", "d"), 0);
    EXPECT_EQ(path, home);
    EXPECT_EQ(failureOf(get_mailhome_path, "info", "d", home.size()),
              "Either domain name 'd' or mailname 'info' are too long to store mailname home path "
              "in the provided buffer\n");
    EXPECT_EQ(get_dotqmail_path(path, home.size() + 8, "info", "d"), 0);
    EXPECT_EQ(path, home + "/.qmail");
    EXPECT_EQ(failureOf(get_dotqmail_path, "info", "d", home.size() + 7),
              "Either domain name 'd' or mailname 'info' are too long to store .qmail path in the "
              "provided buffer\n");
}

TEST_F(MailUtilitiesOnHost, RefusesAMailnameLongerThanAnyPath)
{
    std::string const mailname(5000, 'x');
    EXPECT_EQ(failureOf(get_dotqmail_path, mailname, "d"),
              "Either domain name 'd' or mailname '" + mailname +
                  "' are too long to store .qmail path in the provided buffer\n");
}

TEST_F(MailUtilitiesOnHost, StartsAtTheConfiguredRoot)
{
    EXPECT_EQ(pathBy(get_mailhome_path, "info", "example.com"),
              "/var/qmail/mailnames/example.com/info");
    MailnamesRoot const other("/srv/mail");
    EXPECT_EQ(pathBy(get_mailhome_path, "info", "example.com"), "/srv/mail/example.com/info");
    EXPECT_EQ(pathBy(get_dotqmail_path, "info", "example.com"),
              "/srv/mail/example.com/info/.qmail");
}
