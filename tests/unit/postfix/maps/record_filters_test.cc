#include "postfix/maps/record_filters.h"

#include "postfix/maps/domain_filters.h"
#include "support/child_run.h"
#include "util/errors.h"

#include <gtest/gtest.h>

#include <string>

using orvek::mail::postfix::NotInDomainFilter;
using orvek::mail::postfix::ReplaceDomainPart;
using orvek::mail::postfix::ReplaceDomainPath;
using orvek::mail::postfix::database::ElementsFilter;
using orvek::mail::postfix::database::KeyValueFilter;
using orvek::mail::postfix::database::ReplaceElementFilterRef;
using orvek::mail::postfix::database::ReplaceElementsFilterRef;
using orvek::mail::postfix::database::Replacements;
using orvek::mail::postfix::database::ValueListFilter;

namespace {

struct KeepAll
{
    bool operator()(std::string const&) const { return true; }
};

struct Refuse
{
    std::string refused;

    bool operator()(std::string const& element) const { return element != refused; }
};

char const* const dropped = "(dropped)";

template<class Filter>
std::string through(Filter const& filter, std::string text)
{
    return filter(text) ? text : dropped;
}

std::string asIs(std::string const& line)
{
    return through(KeyValueFilter<KeepAll, KeepAll>(), line);
}

std::string asList(std::string const& line)
{
    return through(ElementsFilter<KeepAll>(KeepAll()), line);
}

std::string withoutDomain(std::string const& line, bool subdomains = false)
{
    return through(ElementsFilter<NotInDomainFilter>({"d.test", subdomains}), line);
}

} // namespace

TEST(KeyValueFilter, MakesSpaceBetweenKeyAndValueOneBlank)
{
    EXPECT_EQ(asIs("key\tvalue"), "key value");
    EXPECT_EQ(asIs("key \t  \tvalue"), "key value");
    EXPECT_EQ(asIs("key value"), "key value");
}

TEST(KeyValueFilter, TrimsTheValuesEndAndKeepsInnerSpace)
{
    EXPECT_EQ(asIs("key\ta  b\tc \t "), "key a  b\tc");
}

TEST(KeyValueFilter, RefusesABadKeyOnlyWhenItMadeIt)
{
    std::string const from = "a@d.test";
    std::string const to = "#a@d.test";
    KeyValueFilter<ReplaceElementFilterRef, KeepAll> const filter{{&from, &to}, {}};
    EXPECT_THROW(through(filter, "a@d.test 1"), orvek::mail::postfix::PostfixDatabaseError);
    EXPECT_EQ(through(filter, "#b@d.test 1"), "#b@d.test 1");
}

TEST(KeyValueFilter, TakesOnlyBlanksAndTabsForBlanks)
{
    EXPECT_EQ(asIs("key\rmore\tvalue\r"), "key\rmore value\r");
    EXPECT_EQ(asIs("key \v"), "key \v");
}

TEST(KeyValueFilter, DropsAKeyWithoutValueInSilence)
{
    ChildRun const run = printedBy([] {
        EXPECT_EQ(asIs("key "), dropped);
        EXPECT_EQ(asIs("key\t \t"), dropped);
        EXPECT_EQ(asIs(" "), dropped);
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(KeyValueFilter, DropsALineWithoutABlankWithANote)
{
    ChildRun const run = inChild([] {
        std::string line = "nokey,\rvalue";
        bool const kept = KeyValueFilter<KeepAll, KeepAll>()(line);
        std::string empty;
        return kept || KeyValueFilter<KeepAll, KeepAll>()(empty) ? 1 : 0;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "invalid key/value 'nokey,\\rvalue'\n"
                       "invalid key/value ''\n");
}

TEST(KeyValueFilter, TakesALeadingBlankForAnEmptyKey)
{
    EXPECT_EQ(asIs("\tvalue"), " value");
}

TEST(KeyValueFilter, DropsARecordWhoseKeyOrValueIsRefused)
{
    KeyValueFilter<Refuse, Refuse> const filter{{"key"}, {"a, b"}};
    EXPECT_EQ(through(filter, "key\tx"), dropped);
    EXPECT_EQ(through(filter, "x\ta, b "), dropped);
    EXPECT_EQ(through(filter, "x\tkey"), "x key");
    EXPECT_EQ(through(filter, "a\tb"), "a b");
}

TEST(KeyValueFilter, ComparesTheValueWholeNotAsAList)
{
    std::string const from = "a@d.test";
    std::string const to = "b@d.test";
    KeyValueFilter<ReplaceElementFilterRef, ReplaceElementFilterRef> const filter{{&from, &to},
                                                                                  {&from, &to}};
    EXPECT_EQ(through(filter, "x\ta@d.test,a@d.test"), "x a@d.test,a@d.test");
    EXPECT_EQ(through(filter, "a@d.test\ta@d.test"), "b@d.test b@d.test");
}

TEST(KeyValueFilter, LeavesAMailboxPathThatDiffersByItsTrailingSlash)
{
    std::string const from = "a@d.test";
    std::string const to = "b@d.test";
    std::string const fromPath = "d.test/a/Maildir";
    std::string const toPath = "d.test/b/Maildir";
    KeyValueFilter<ReplaceElementFilterRef, ReplaceElementFilterRef> const filter{
        {&from, &to}, {&fromPath, &toPath}};
    EXPECT_EQ(through(filter, "a@d.test\td.test/a/Maildir/"), "b@d.test d.test/a/Maildir/");
    EXPECT_EQ(through(filter, "a@d.test\td.test/a/Maildir"), "b@d.test d.test/b/Maildir");
}

TEST(KeyValueFilter, RenamesADomainInTheMailboxMap)
{
    std::string const from = "d.test";
    std::string const to = "e.test";
    KeyValueFilter<ReplaceDomainPart, ReplaceDomainPath> const filter{{&from, &to, false},
                                                                      {&from, &to}};
    EXPECT_EQ(through(filter, "d.test@d.test\td.test/d.test/Maildir/"),
              "d.test@e.test e.test/d.test/Maildir/");
    EXPECT_EQ(through(filter, "a@sub.d.test\tsub.d.test/a/Maildir/"),
              "a@sub.d.test sub.d.test/a/Maildir/");
}

TEST(ValueListFilter, SeparatesByCommaAndSpaceOnly)
{
    std::string const separators = ", \t\n\v\f\r";
    for (int byte = 0; byte < 256; ++byte) {
        bool const expected = separators.find(static_cast<char>(byte)) != std::string::npos;
        EXPECT_EQ(ValueListFilter<KeepAll>::isListSep(static_cast<char>(byte)), expected) << byte;
    }
}

TEST(ValueListFilter, JoinsWithACommaAndASpace)
{
    EXPECT_EQ(through(ValueListFilter<KeepAll>(), "a b,c"), "a, b, c");
}

TEST(ValueListFilter, MergesRunsOfSeparatorsAndIgnoresThoseAtEnds)
{
    EXPECT_EQ(through(ValueListFilter<KeepAll>(), " ,,a ,\t, b\r\v,"), "a, b");
}

TEST(ValueListFilter, DropsTheRefusedElements)
{
    ValueListFilter<Refuse> const filter{{"a"}};
    EXPECT_EQ(through(filter, "a,b,a,c,a"), "b, c");
    EXPECT_EQ(through(filter, "a b"), "b");
}

TEST(ValueListFilter, RefusesAValueOfWhichNothingRemains)
{
    ValueListFilter<Refuse> const filter{{"a"}};
    EXPECT_EQ(through(filter, "a,a"), dropped);
    EXPECT_EQ(through(filter, ",, "), dropped);
    EXPECT_EQ(through(filter, ""), dropped);
}

TEST(ValueListFilter, CountsAnElementThatWasMadeEmptyAsKept)
{
    std::string const from = "a";
    std::string const to;
    ValueListFilter<ReplaceElementFilterRef> const filter{{&from, &to}};
    EXPECT_EQ(through(filter, "a b"), ", b");
    EXPECT_EQ(through(filter, "a"), "");
}

TEST(ValueListFilter, SplitsInsideQuotesToo)
{
    EXPECT_EQ(through(ValueListFilter<KeepAll>(), "\"a b,c\"@d.test"), "\"a, b, c\"@d.test");
}

TEST(ElementsFilter, NormalisesALineInWhichItChangesNothing)
{
    EXPECT_EQ(asList("k@e.test\ta@e.test,b@e.test  c@e.test "),
              "k@e.test a@e.test, b@e.test, c@e.test");
}

TEST(ElementsFilter, LeavesTheKeyInOnePiece)
{
    EXPECT_EQ(asList("a,b\tc"), "a,b c");
}

TEST(ElementsFilter, DropsARecordWhoseKeyIsInTheDomain)
{
    EXPECT_EQ(withoutDomain("a@d.test\tb@e.test"), dropped);
    EXPECT_EQ(withoutDomain("d.test\t1"), dropped);
    EXPECT_EQ(withoutDomain("@d.test\tb@e.test"), dropped);
    EXPECT_EQ(withoutDomain("notd.test\t1"), "notd.test 1");
}

TEST(ElementsFilter, DropsOnlyTheElementsInTheDomain)
{
    EXPECT_EQ(withoutDomain("k@e.test\ta@d.test, b@e.test"), "k@e.test b@e.test");
    EXPECT_EQ(withoutDomain("k@e.test\ta@D.test, a@sub.d.test"), "k@e.test a@D.test, a@sub.d.test");
    EXPECT_EQ(withoutDomain("k@e.test\ta@D.test, a@sub.d.test", true), "k@e.test a@D.test");
}

TEST(ElementsFilter, DropsARecordThatLosesAllItsElements)
{
    EXPECT_EQ(withoutDomain("k@e.test\ta@d.test,d.test @d.test"), dropped);
}

TEST(ElementsFilter, RenamesADomainInKeyAndElements)
{
    std::string const from = "d.test";
    std::string const to = "e.test";
    ElementsFilter<ReplaceDomainPart> const filter({&from, &to, false});
    EXPECT_EQ(through(filter, "a@d.test\ta@d.test,b@notd.test,@d.test"),
              "a@e.test a@e.test, b@notd.test, @e.test");
    EXPECT_EQ(through(filter, "@d.test\t_orvek_bounce_d.test@localhost.localdomain"),
              "@e.test _orvek_bounce_d.test@localhost.localdomain");
}

TEST(ElementsFilter, RenamesAMailDomainsKeyAndLeavesItsPath)
{
    std::string const from = "d.test";
    std::string const to = "e.test";
    ElementsFilter<ReplaceElementFilterRef> const filter({&from, &to});
    EXPECT_EQ(through(filter, "d.test\td.test/"), "e.test d.test/");
}

TEST(ElementsFilter, PassesBytesAbove127AndZeroBytes)
{
    std::string const value("\xc3\xbc\xa0\x85\xff\0x@e.test", 14);
    EXPECT_EQ(asList("k\xe9y\t" + value), "k\xe9y " + value);
}

TEST(ReplaceElementFilterRef, ReplacesOnlyAnEqualElementAndKeepsAll)
{
    std::string const from = "a@d.test";
    std::string const to = "longer.name@d.test";
    ReplaceElementFilterRef const filter{&from, &to};
    EXPECT_EQ(through(filter, "a@d.test"), "longer.name@d.test");
    for (std::string const other : {"", "a@d.tes", "a@d.test/", "aa@d.test", "A@d.test"})
        EXPECT_EQ(through(filter, other), other);
}

TEST(ReplaceElementsFilterRef, ReplacesEachEqualElementOnce)
{
    Replacements const pairs = {{"a@d.test", "b@d.test"}, {"b@d.test", "c@d.test"}, {"d", "e"}};
    ElementsFilter<ReplaceElementsFilterRef> const filter({&pairs});
    EXPECT_EQ(through(filter, "a@d.test b@d.test, a@d.test, aa@d.test d"),
              "b@d.test c@d.test, b@d.test, aa@d.test, e");
}
