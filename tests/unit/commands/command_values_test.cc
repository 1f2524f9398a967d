#include "commands/command_values.h"

#include "command_line.h"
#include "support/child_run.h"
#include "util/idn.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace orvek::mail::postfix::mailvek_commands;
using orvek::idn::IdnaError;

namespace {

ProgramOptionsHelper given(std::initializer_list<std::string> words)
{
    CommandLine line(words);
    return parsedOptions(line.argc(), line.argv());
}

ProgramOptionsHelper domainGiven(std::string const& domain)
{
    return given({"--remove-domain", "--domain-name", domain});
}

ProgramOptionsHelper mailnameGiven(std::string const& mailname)
{
    return given({"--remove-mailname", "--domain-name=example.com", "--mailname", mailname});
}

ProgramOptionsHelper emailGiven(std::string const& address)
{
    return given({"--set-catchall", "--domain-name=example.com", "--email", address});
}

// The text of the refusal, or empty when the name was accepted.
template<class Error, class Reader>
std::string refusal(Reader const& read)
{
    try {
        read();
        return "";
    } catch (Error const& e) {
        return e.what();
    }
}

std::string domainRefusal(std::string const& domain)
{
    return refusal<IdnaError>([&] { domainOf(domainGiven(domain)); });
}

} // namespace

TEST(ParsedOptions, AreThoseOfTheCommandThatIsNamedFirst)
{
    EXPECT_EQ(domainOf(domainGiven("bücher.example")), "xn--bcher-kva.example");
    auto const refused = inChild([] {
        given({"--remove-domain", "--mailname=x"});
        return 0;
    });
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "unrecognised option '--mailname=x'\n");
    EXPECT_THROW(given({"--no-such-command"}), std::logic_error);
}

TEST(DomainOf, RefusesWhatNoDomainHas)
{
    for (std::string const name :
         {"a,b.test", "a b.test", "a\nb", "x' OR '1", "a\"b", "a/b", "a@b", "$x", "#x", "-x"})
        EXPECT_EQ(domainRefusal(name), "Contains non-LDH characters") << name;
    EXPECT_EQ(domainRefusal(""), "Invalid length");
    EXPECT_EQ(domainRefusal(".."), "Invalid length");
    EXPECT_EQ(domainRefusal("A-b_1.test"), "");
}

TEST(DomainListOf, ChecksEachNameOfTheList)
{
    auto const options = domainGiven("a.test, b.test");
    EXPECT_EQ(domainListOf(options, ", "), "a.test, b.test");
    EXPECT_THROW(domainListOf(options, ","), IdnaError) << "the blank is part of a name then";
    EXPECT_THROW(domainListOf(domainGiven("a.test,../x"), ","), IdnaError);
}

TEST(LocalPartOf, RefusesWithTheNameAsItsText)
{
    for (std::string const name : {"a b", "a\n", "a@b", "a,b", "a/b", "|a", "#a", ".", "", "a..b"})
        EXPECT_EQ(refusal<std::invalid_argument>([&] { localPartOf(mailnameGiven(name)); }), name);
    EXPECT_THROW(localPartOf(mailnameGiven("")), std::invalid_argument);
    EXPECT_EQ(localPartOf(mailnameGiven("o'brien")), "o'brien");
}

TEST(KnownLocalPartOf, TakesTwoDotsInARowButNoSeparator)
{
    EXPECT_EQ(knownLocalPartOf(mailnameGiven("a..b")), "a..b");
    EXPECT_THROW(knownLocalPartOf(mailnameGiven("..")), std::invalid_argument);
    EXPECT_THROW(knownLocalPartOf(mailnameGiven("ceo@victim.test x")), std::invalid_argument);
}

TEST(LocalPartListOf, ChecksEachNameOfTheList)
{
    EXPECT_EQ(localPartListOf(mailnameGiven("a,b c"), ", "), "a,b c");
    EXPECT_THROW(localPartListOf(mailnameGiven("a,../b"), ", "), std::invalid_argument);
}

TEST(EmailOf, TakesAnAddressOrAUserOfThisHost)
{
    EXPECT_EQ(emailOf(emailGiven("o'brien@bücher.example"), "email"),
              "o'brien@xn--bcher-kva.example");
    EXPECT_EQ(emailOf(emailGiven("root"), "email"), "root");
}

TEST(EmailOf, RefusesWhatIsNoAddress)
{
    for (std::string const address :
         {"", "@", "a@", "@b.test", "a b@c.test", "a@b.test c", "a@b.test\n|true", "|true",
          "|true@b.test", ":include:/etc/passwd", "/etc/passwd", "#a@b.test", "a@b.test,c@d.test",
          "\"a\"@b.test", "a@b@c.test"})
        EXPECT_THROW(emailOf(emailGiven(address), "email"), std::invalid_argument) << address;
}
