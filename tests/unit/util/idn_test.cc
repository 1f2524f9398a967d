#include "util/idn.h"

#include "support/child_run.h"
#include "support/idna_faults.h"
#include "util/report_exception.h"

#include <gtest/gtest.h>

#include <new>

#include <malloc.h>

using namespace orvek::idn;

namespace {

template<class Convert>
void expectIdnaError(Convert convert, int code, char const* text)
{
    try {
        convert();
        ADD_FAILURE() << "converted";
    } catch (IdnaError const& e) {
        EXPECT_EQ(e.code(), code);
        EXPECT_STREQ(e.what(), text);
    }
}

} // namespace

TEST(ToAscii, ConvertsAnInternationalisedDomain)
{
    EXPECT_EQ(toAscii("bücher.example"), "xn--bcher-kva.example");
    EXPECT_EQ(toAscii("пример.example"), "xn--e1afmkfd.example");
}

TEST(ToAscii, GivesAnAsciiDomainBack)
{
    EXPECT_EQ(toAscii("example.com"), "example.com");
    EXPECT_EQ(toAscii("xn--bcher-kva.example"), "xn--bcher-kva.example");
}

TEST(ToAscii, RaisesTheLibrarysResultWithTheToolsOwnText)
{
    expectIdnaError([] { toAscii(std::string(64, 'a') + ".example"); }, 5, "Invalid length");
    expectIdnaError([] { toAscii("\xff\xfe.example"); }, 9, "Iconv error");
    expectIdnaError([] { toAscii("xn--\xc3\xbc.example"); }, 8, "ACE prefix found");
}

TEST(ToUtf8, ConvertsAnAsciiDomainBack)
{
    EXPECT_EQ(toUtf8("xn--bcher-kva.example"), "bücher.example");
    EXPECT_EQ(toUtf8("example.com"), "example.com");
}

TEST(ToUtf8, RaisesOnBytesThatAreNoUtf8)
{
    expectIdnaError([] { toUtf8("\xff.example"); }, 9, "Iconv error");
}

TEST(EmailToAscii, ConvertsTheDomainAndKeepsTheLocalPart)
{
    EXPECT_EQ(emailToAscii("J\xc3\xbcrgen@bücher.example"), "J\xc3\xbcrgen@xn--bcher-kva.example");
    EXPECT_EQ(emailToAscii("\xff\xfe@bücher.example"), "\xff\xfe@xn--bcher-kva.example");
}

TEST(EmailToAscii, SplitsAtTheFirstAt)
{
    EXPECT_EQ(emailToAscii("\xc3\xbc@\xc3\xbc@c.example"),
              "\xc3\xbc@" + toAscii("\xc3\xbc@c.example"));
}

TEST(EmailToAscii, GivesATextWithoutAtBack)
{
    EXPECT_EQ(emailToAscii("bücher"), "bücher");
    EXPECT_EQ(emailToAscii(""), "");
}

TEST(EmailToAscii, ConvertsAnEmptyDomainAfterALastAt)
{
    EXPECT_EQ(emailToAscii("local@"), "local@" + toAscii(""));
}

TEST(Idn, RaisesBadAllocForASuccessWithoutAResult)
{
    ForcedAnswer const answer(0, nullptr);
    EXPECT_THROW(toAscii("example.com"), std::bad_alloc);
    EXPECT_THROW(toUtf8("example.com"), std::bad_alloc);
    EXPECT_THROW(emailToAscii("local@example.com"), std::bad_alloc);
    EXPECT_EQ(emailToAscii("example.com"), "example.com");
}

TEST(Idn, RaisesAnyFailureAndFreesWhatIsLeft)
{
    // Far more than the allocator keeps for itself.
    std::string const rest(100000, 'r');
    ForcedAnswer const answer(201, rest.c_str());
    size_t const before = mallinfo2().uordblks;
    expectIdnaError([] { toAscii("example.com"); }, 201, "Cannot allocate buffer");
    expectIdnaError([] { toUtf8("example.com"); }, 201, "Cannot allocate buffer");
    expectIdnaError([] { emailToAscii("local@example.com"); }, 201, "Cannot allocate buffer");
    EXPECT_LT(mallinfo2().uordblks, before + rest.size());
}

TEST(Idn, EndsCleanlyOnEveryKindOfBadInput)
{
    std::string const label(100000, 'a');
    expectIdnaError([&] { toAscii(label); }, 5, "Invalid length");
    expectIdnaError([&] { emailToAscii("local@" + label); }, 5, "Invalid length");
    expectIdnaError([] { toAscii(std::string(100000, '\xff')); }, 9, "Iconv error");
    EXPECT_EQ(toUtf8(label), label);
    EXPECT_EQ(toAscii("a\nb.example\n"), "a\nb.example\n");
    EXPECT_EQ(toAscii(""), "");
}

TEST(IdnaError, IsUnknownForACodeOutsideTheTable)
{
    EXPECT_STREQ(IdnaError(77).what(), "Unknown error");
    EXPECT_STREQ(IdnaError(201).what(), "Cannot allocate buffer");
}

TEST(IdnaError, KeepsItsBareTypeInAReport)
{
    auto const run = printedBy([] {
        try {
            toAscii(std::string(64, 'a'));
        } catch (std::exception const& e) {
            orvek::reportException<std::exception>(e);
        }
    });
    EXPECT_EQ(run.err, "Fatal error: orvek::idn::IdnaError(Invalid length)\n");
}
