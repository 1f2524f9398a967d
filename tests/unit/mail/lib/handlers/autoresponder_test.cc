#include "mail/lib/handlers/autoresponder.h"

#include "support/handler_store_test.h"
#include "support/memory_faults.h" // the program is linked for it

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

class AutoresponderOnHost : public HandlerStoreTest
{
protected:
    // The addresses that have an autoresponder, sorted.
    static std::vector<std::string> responders()
    {
        std::vector<std::string> all;
        for (auto const& name : names())
            all.push_back(
                std::string(CString(get_handler_parameter(name.c_str(), "recipient")).get()));
        std::sort(all.begin(), all.end());
        return all;
    }
};

} // namespace

TEST_F(AutoresponderOnHost, IsAHandlerAtItsFixedPlace)
{
    EXPECT_EQ(autoresponder_action("someone", "example.com", HOOK_ENABLE), 0);
    ASSERT_EQ(names().size(), 1U);
    auto const name = first();
    EXPECT_THAT(name, ::testing::MatchesRegex("90-autoresponder-[A-Za-z0-9]{6}"));
    EXPECT_THAT(tree(info(name)),
                ElementsAre(Pair("context", "f 0644 0:0 responder\n"),
                            Pair("executable", "l /usr/local/orv/handlers/hooks/autoresponder"),
                            Pair("handler-type", "f 0644 0:0 recipient\n"),
                            Pair("hook", "f 0644 0:0 before-local\n"),
                            Pair("recipient", "f 0644 0:0 someone@example.com\n")));
    EXPECT_TRUE(active(name));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(AutoresponderOnHost, IsAddedOnceHoweverOftenItIsEnabled)
{
    EXPECT_EQ(autoresponder_action("someone", "example.com", HOOK_ENABLE), 0);
    auto const before = store();
    EXPECT_EQ(autoresponder_action("Someone", "Example.com", HOOK_ENABLE), 0);
    EXPECT_EQ(store(), before);
}

TEST_F(AutoresponderOnHost, IsRemovedWhenDisabled)
{
    autoresponder_action("someone", "example.com", HOOK_ENABLE);
    auto const other = add("spam");
    EXPECT_EQ(autoresponder_action("someone", "example.com", HOOK_DISABLE), 0);
    EXPECT_THAT(names(), ElementsAre(other));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(AutoresponderOnHost, MayBeMissingWhenDisabled)
{
    EXPECT_EQ(autoresponder_action("someone", "example.com", HOOK_DISABLE), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(AutoresponderOnHost, IsMadeForEachMailnameInEachDomain)
{
    EXPECT_EQ(autoresponder_action("one, two", "example.com example.org", HOOK_ENABLE), 0);
    EXPECT_THAT(responders(), ElementsAre("one@example.com", "one@example.org", "two@example.com",
                                          "two@example.org"));
    EXPECT_EQ(autoresponder_action("two,one", "example.com", HOOK_DISABLE), 0);
    EXPECT_THAT(responders(), ElementsAre("one@example.org", "two@example.org"));
}

TEST_F(AutoresponderOnHost, IsKeptUnderTheDomainsAsciiForm)
{
    EXPECT_EQ(autoresponder_action("someone", "b\u00fccher.example", HOOK_ENABLE), 0);
    EXPECT_THAT(responders(), ElementsAre("someone@xn--bcher-kva.example"));
    EXPECT_EQ(autoresponder_action("someone", "b\u00fccher.example", HOOK_ENABLE), 0);
    EXPECT_EQ(names().size(), 1U);
    EXPECT_EQ(autoresponder_action("someone", "xn--bcher-kva.example", HOOK_DISABLE), 0);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AutoresponderOnHost, IsNotTouchedByAnyOtherAction)
{
    autoresponder_action("someone", "example.com", HOOK_ENABLE);
    auto const before = store();
    for (auto const action : {HOOK_ADD, HOOK_DELETE, HOOK_CHECK, HOOK_CLONE, HOOK_MOVE}) {
        EXPECT_EQ(autoresponder_action("someone", "example.com", action), 0);
        EXPECT_EQ(autoresponder_action("other", "example.com", action), 0);
    }
    EXPECT_EQ(store(), before);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(AutoresponderOnHost, NeedsAConvertibleDomainEvenToDoNothing)
{
    EXPECT_EQ(autoresponder_action("someone", "\xff", HOOK_CHECK), -1);
}

TEST_F(AutoresponderOnHost, IsNobodysForAnEmptyListOfMailnames)
{
    for (auto const* const list : {"", " ", ", ,"}) {
        EXPECT_EQ(autoresponder_action(list, "example.com", HOOK_ENABLE), 0);
        EXPECT_EQ(autoresponder_action(list, "\xff", HOOK_ENABLE), 0) << "no domain is looked at";
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(AutoresponderOnHost, IsMadeForTheEmptyNameAfterTheLastSeparator)
{
    EXPECT_EQ(autoresponder_action("one,", "example.com", HOOK_ENABLE), 0);
    EXPECT_THAT(responders(), ElementsAre("@example.com", "one@example.com"));
}

TEST_F(AutoresponderOnHost, EndsAtAnInconvertibleDomainAfterThoseBeforeIt)
{
    EXPECT_EQ(autoresponder_action("one two", "example.com \xff example.org", HOOK_ENABLE), -1);
    EXPECT_THAT(responders(), ElementsAre("one@example.com"));
    EXPECT_THAT(reports(), ElementsAre(error("idn_toascii() failed: Iconv error")));
}

TEST_F(AutoresponderOnHost, EndsAtATooLongAddressAfterThoseBeforeIt)
{
    std::string const longest(254 - strlen("@example.org"), 'x');
    EXPECT_EQ(autoresponder_action((longest + " one").c_str(), "example.org", HOOK_ENABLE), 0);
    EXPECT_EQ(names().size(), 2U);
    EXPECT_EQ(
        autoresponder_action(("two," + longest + "x three").c_str(), "example.org", HOOK_ENABLE),
        -1);
    EXPECT_THAT(responders(),
                ElementsAre("one@example.org", "two@example.org", longest + "@example.org"));
    EXPECT_THAT(reports(), ElementsAre(error("domain name too long\n")));
}

TEST_F(AutoresponderOnHost, FailsAtTheEndWhenSomeHandlersStay)
{
    autoresponder_action("one two", "example.com", HOOK_ENABLE);
    auto const one = lookup("autoresponder", "recipient", "one@example.com");
    std::string const marker = at("before-local/recipient/one@example.com/" + one);
    std::filesystem::remove(marker);
    std::filesystem::create_directory(marker);
    EXPECT_EQ(autoresponder_action("one two", "example.com", HOOK_DISABLE), -1);
    EXPECT_THAT(names(), ElementsAre(one));
    EXPECT_EQ(reports().size(), 2U);
    EXPECT_EQ(reports().back(), error("Unable to make action for some autoresponder handlers"));
}

TEST_F(AutoresponderOnHost, FailsAtTheEndWhenSomeHandlersCannotBeAdded)
{
    std::filesystem::rename("/usr/local/orv/handlers/hooks", "/usr/local/orv/hooks.away");
    EXPECT_EQ(autoresponder_action("one two", "example.com", HOOK_ENABLE), -1);
    std::filesystem::rename("/usr/local/orv/hooks.away", "/usr/local/orv/handlers/hooks");
    Report const missing = error("Unable to stat executable "
                                 "'/usr/local/orv/handlers/hooks/autoresponder': No such file or "
                                 "directory");
    EXPECT_THAT(reports(),
                ElementsAre(missing, missing,
                            error("Unable to make action for some autoresponder handlers")));
}

TEST_F(AutoresponderOnHost, ReportsAListThatCannotBeSplit)
{
    printed([] {
        {
            AllocationFailure const failure(1);
            EXPECT_EQ(autoresponder_action("one", "example.com", HOOK_ENABLE), -1);
        }
        EXPECT_THAT(reports(), ElementsAre(error("Unable to split mailnames list")));
        reports().clear();
        AllocationFailure const failure(3);
        EXPECT_EQ(autoresponder_action("one", "example.com", HOOK_ENABLE), -1);
        EXPECT_THAT(reports(), ElementsAre(error("Unable to split domains list")));
    });
    EXPECT_THAT(names(), IsEmpty());
}
