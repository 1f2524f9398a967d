#include "lib/names/idn.h"

#include "support/child_run.h"
#include "support/idna_faults.h"
#include "support/memory_faults.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include <regex.h>

namespace {

bool regcomp_fails = false;
bool host_takes_no_part = false;

} // namespace

extern "C" {

int __real_regexec(regex_t const* compiled, char const* text, size_t count, regmatch_t* parts,
                   int flags);
int __real_regcomp(regex_t* compiled, char const* pattern, int flags);

int __wrap_regcomp(regex_t* compiled, char const* pattern, int flags)
{
    return regcomp_fails ? REG_ESPACE : __real_regcomp(compiled, pattern, flags);
}

int __wrap_regexec(regex_t const* compiled, char const* text, size_t count, regmatch_t* parts,
                   int flags)
{
    int const result = __real_regexec(compiled, text, count, parts, flags);
    if (host_takes_no_part && count > 3)
        parts[3] = {-1, -1};
    return result;
}

} // extern "C"

namespace {

constexpr char buecher[] = "b\xc3\xbc"
                           "cher.example";
constexpr char buecher_ascii[] = "xn--bcher-kva.example";

std::string longLabel()
{
    return std::string(64, 'a') + ".example";
}

std::optional<std::string> taken(char* text)
{
    std::optional<std::string> result;
    if (text)
        result = text;
    free(text);
    return result;
}

std::optional<std::string> asciiUrl(std::string const& url)
{
    char const* const result = idn_url_toascii(url.c_str());
    return result ? std::optional<std::string>(result) : std::nullopt;
}

} // namespace

TEST(IdnToascii, ConvertsADomain)
{
    EXPECT_EQ(taken(idn_toascii(buecher)), buecher_ascii);
}

TEST(IdnToascii, GivesAnAsciiDomainBack)
{
    EXPECT_EQ(taken(idn_toascii("mail.example.com")), "mail.example.com");
    EXPECT_EQ(taken(idn_toascii("")), "");
}

TEST(IdnToascii, GivesNullAndTheResultForARefusedDomain)
{
    auto const run = inChild([] {
        return idn_toascii(longLabel().c_str()) == nullptr && idn_errno == 5 &&
                       idn_toascii("\xff\xfe") == nullptr && idn_errno == 9
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST(IdnToascii, KeepsTheLastFailureThroughASuccess)
{
    auto const run = inChild([] {
        bool const clear = idn_errno == 0;
        idn_toascii(longLabel().c_str());
        free(idn_toascii("example.com"));
        return clear && idn_errno == 5 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(IdnToascii, NeverGivesWhatAFailedConversionLeft)
{
    auto const run = inChild([] {
        ForcedAnswer const answer(4, "rest");
        return idn_toascii("example.com") == nullptr && idn_errno == 4 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(IdnToascii, EndsTheProcessWhenTheLibraryHasNoMemory)
{
    auto const run = inChild([] {
        ForcedAnswer const answer(201, nullptr);
        idn_toascii("example.com");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Allocation failed\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnToascii, EndsCleanlyOnEveryKindOfBadInput)
{
    EXPECT_EQ(taken(idn_toascii(std::string(100000, 'a').c_str())), std::nullopt);
    EXPECT_EQ(taken(idn_toascii(std::string(100000, '\xff').c_str())), std::nullopt);
    EXPECT_EQ(taken(idn_toascii("a\nb.example\n")), "a\nb.example\n");
}

TEST(IdnToasciiSafe, ConvertsADomain)
{
    EXPECT_EQ(taken(idn_toascii_safe(buecher)), buecher_ascii);
}

TEST(IdnToasciiSafe, EndsTheProcessForADomainThatIsRefused)
{
    auto const run = inChild([] {
        idn_toascii_safe(longLabel().c_str());
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "idn_toascii_safe(" + longLabel() + ") failed: Invalid length\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnToutf8, ConvertsADomain)
{
    EXPECT_EQ(taken(idn_toutf8(buecher_ascii)), buecher);
    EXPECT_EQ(taken(idn_toutf8("example.com")), "example.com");
}

TEST(IdnToutf8, GivesNullAndTheResultForInvalidUtf8)
{
    auto const run =
        inChild([] { return idn_toutf8("\xff\xfe") == nullptr && idn_errno == 9 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
}

TEST(IdnToutf8, GivesWhatAFailedConversionLeft)
{
    auto const run = inChild([] {
        ForcedAnswer const answer(7, "rest");
        return taken(idn_toutf8("xn--x")) == "rest" && idn_errno == 7 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
}

TEST(IdnToutf8, EndsTheProcessWhenTheLibraryHasNoMemory)
{
    auto const run = inChild([] {
        ForcedAnswer const answer(201, nullptr);
        idn_toutf8("example.com");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Allocation failed\n");
}

TEST(IdnToutf8Safe, EndsTheProcessOnlyWhenNothingIsLeft)
{
    auto const left = inChild([] {
        ForcedAnswer const answer(7, "rest");
        return taken(idn_toutf8_safe("xn--x")) == "rest" ? 0 : 1;
    });
    EXPECT_EQ(left.status, 0);
    EXPECT_EQ(left.err, "");

    auto const nothing = inChild([] {
        ForcedAnswer const answer(7, nullptr);
        idn_toutf8_safe("xn--x");
        return 0;
    });
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.err, "idn_toutf8_safe(xn--x) failed: Verify error\n");
    EXPECT_EQ(nothing.out, nothing.err);
}

TEST(IdnEmailToascii, KeepsTheLocalPartByteForByte)
{
    EXPECT_EQ(taken(idn_email_toascii((std::string("J\xc3\xbcrg \xff@") + buecher).c_str())),
              std::string("J\xc3\xbcrg \xff@") + buecher_ascii);
}

TEST(IdnEmailToascii, SplitsAtTheFirstAt)
{
    EXPECT_EQ(taken(idn_email_toascii("a@b@c")), "a@b@c");
    EXPECT_EQ(taken(idn_email_toascii((std::string("a@") + buecher + "@c").c_str())),
              "a@xn--bcher-kva.example@c");
    EXPECT_EQ(taken(idn_email_toascii("@")), "@");
}

TEST(IdnEmailToascii, GivesNullWithoutAReportForAnAddressWithoutAt)
{
    auto const run = inChild([] { return idn_email_toascii("example.com") ? 1 : 0; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, "");
}

TEST(IdnEmailToascii, WritesNullForADomainThatIsRefused)
{
    EXPECT_EQ(taken(idn_email_toascii(("a@" + longLabel()).c_str())), "a@(null)");
}

TEST(IdnEmailToascii, EndsTheProcessWithoutMemory)
{
    auto const run = inChild([] {
        AllocationFailure const failure(1);
        idn_email_toascii("a@example.com");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "Allocation failed\nSystem error 12: Cannot allocate memory\n");
}

TEST(IdnEmailToasciiSafe, EndsTheProcessForAnAddressWithoutAt)
{
    EXPECT_EQ(taken(idn_email_toascii_safe("a@example.com")), "a@example.com");
    EXPECT_EQ(taken(idn_email_toascii_safe(("a@" + longLabel()).c_str())), "a@(null)");
    auto const run = inChild([] {
        idn_errno = 0;
        idn_email_toascii_safe("example.com");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "idn_email_toascii_safe(example.com) failed: Success\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnUrlToascii, ConvertsTheHostAndKeepsTheRest)
{
    std::string const host = buecher;
    std::string const ascii = buecher_ascii;
    EXPECT_EQ(asciiUrl(host), ascii);
    for (char const* const scheme : {"http://", "https://", "ftp://"})
        EXPECT_EQ(asciiUrl(scheme + host + "/"), scheme + ascii + "/");
    EXPECT_EQ(asciiUrl("http://\xc3\xbc:pass@" + host + ":8080/p\xc3\xbc?q#f"),
              "http://\xc3\xbc:pass@" + ascii + ":8080/p\xc3\xbc?q#f");
}

TEST(IdnUrlToascii, KeepsAHostThatIsAnAddressAndItsPort)
{
    EXPECT_EQ(asciiUrl("http://192.0.2.1:8443/x"), "http://192.0.2.1:8443/x");
    EXPECT_EQ(asciiUrl("192.0.2.1"), "192.0.2.1");
}

TEST(IdnUrlToascii, GivesAStaticBufferThatTheNextCallOverwrites)
{
    char const* const first = idn_url_toascii("http://one.example/");
    EXPECT_EQ(idn_url_toascii(buecher), first);
    EXPECT_STREQ(first, buecher_ascii);
    EXPECT_EQ(idn_url_toascii(first), first);
    EXPECT_STREQ(first, buecher_ascii);
}

TEST(IdnUrlToascii, ReportsAUrlWithoutAHost)
{
    for (char const* const url : {"", "/path", ":80"}) {
        auto const run = inChild([=] { return idn_url_toascii(url) ? 1 : 0; });
        EXPECT_EQ(run.status, 0) << url;
        EXPECT_EQ(run.err, "regexec() failed: No match\n") << url;
        EXPECT_EQ(run.out, run.err);
    }
}

TEST(IdnUrlToascii, ReportsAMatchInWhichTheHostTakesNoPart)
{
    auto const run = inChild([] {
        host_takes_no_part = true;
        return idn_url_toascii("http://example.com/") ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "no hostname found in URL\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnUrlToascii, ReportsAHostThatIsRefused)
{
    auto const run =
        inChild([] { return idn_url_toascii(("http://" + longLabel()).c_str()) ? 1 : 0; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "idn_toascii() failed: Invalid length\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnUrlToascii, AcceptsAUrlThatFillsTheBufferAndNoLonger)
{
    std::string const url = "http://example.com/" + std::string(4095 - 19, 'p');
    EXPECT_EQ(asciiUrl(url), url);
    auto const run = inChild(
        [&] { return idn_url_toascii((url + "p").c_str()) == nullptr && idn_errno == 5 ? 0 : 1; });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "idn_toascii() failed: Invalid length\n");
}

TEST(IdnUrlToascii, ReportsAUrlThatIsMuchTooLong)
{
    for (char const filler : {'a', '/', '@', ':'}) {
        auto const run = inChild([=] {
            return idn_url_toascii(("http://h" + std::string(100000, filler)).c_str()) ? 1 : 0;
        });
        EXPECT_EQ(run.status, 0) << filler;
        EXPECT_EQ(run.err, "idn_toascii() failed: Invalid length\n") << filler;
    }
}

TEST(IdnUrlToascii, EndsTheProcessWhenItsPatternCannotBeCompiled)
{
    auto const run = inChild([] {
        regcomp_fails = true;
        idn_url_toascii("http://example.com/");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "regcomp() failed: Memory exhausted\n");
    EXPECT_EQ(run.out, run.err);
}

TEST(IdnUrlToascii, EndsTheProcessWithoutMemoryForTheHost)
{
    auto const run = inChild([] {
        AllocationFailure const failure(1);
        idn_url_toascii("http://example.com/");
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err.find("Allocation failed\n"), 0U);
}
