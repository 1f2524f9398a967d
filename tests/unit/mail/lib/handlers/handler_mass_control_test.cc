#include "mail/lib/handlers/handler_mass_control.h"

#include "support/call_faults.h"
#include "support/handler_store_test.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

using ByTemplateOnHost = HandlerStoreTest;

class ByMailnameOnHost : public HandlerStoreTest
{
protected:
    static int act(char const* name, char const* newName, handler_control_t action)
    {
        return mass_control_handler_by_mailname(name, newName, action);
    }

    // Each handler's type and value, sorted.
    static std::vector<std::string> values()
    {
        std::vector<std::string> all;
        for (auto const& name : names()) {
            CString const type(get_handler_parameter(name.c_str(), "handler-type"));
            CString const value(get_handler_parameter(name.c_str(), type.get()));
            all.push_back(std::string(type.get()) + " " + value.get());
        }
        std::sort(all.begin(), all.end());
        return all;
    }
};

Report errors(int count)
{
    return {3, "Some errors was occured in mass hook operation. errors: " + std::to_string(count)};
}

} // namespace

TEST_F(ByTemplateOnHost, WorksOnTheHandlersOfExactlyThisTemplate)
{
    auto const spam = add("spam");
    auto const other_spam = add("spam", "sender", "other@example.com", "before-queue");
    auto const antispam = add("antispam");
    auto const spam_too = add("spam-too");
    auto const capital = add("Spam");
    EXPECT_EQ(mass_control_handler_queue("spam", HOOK_DISABLE), 0);
    EXPECT_FALSE(active(spam));
    EXPECT_FALSE(active(other_spam));
    EXPECT_TRUE(active(antispam));
    EXPECT_TRUE(active(spam_too));
    EXPECT_TRUE(active(capital));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByTemplateOnHost, WorksOnAllHandlersForAll)
{
    add("spam");
    add("virus", "global", nullptr, "before-queue");
    add("all");
    EXPECT_EQ(mass_control_handler_queue("all", HOOK_DELETE), 0);
    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByTemplateOnHost, SucceedsWithoutAnyHandler)
{
    EXPECT_EQ(mass_control_handler_queue("spam", HOOK_DELETE), 0);
    EXPECT_EQ(mass_control_handler_queue("all", HOOK_DELETE), 0);
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByTemplateOnHost, CountsAnUnparsableNameAndGoesOn)
{
    descriptor("stray");
    descriptor("10-stray");
    descriptor("10--a1B2c3");
    add("spam");
    EXPECT_EQ(mass_control_handler_queue("spam", HOOK_DELETE), -1);
    EXPECT_THAT(names(), UnorderedElementsAre("stray", "10-stray", "10--a1B2c3"));
    EXPECT_THAT(reports(),
                UnorderedElementsAre(
                    error("Invalid handler name 'stray': missing priority section"),
                    error("Invalid handler name '10-stray': missing random part"),
                    error("Invalid handler name '10--a1B2c3': empty template part"), errors(3)));
    EXPECT_EQ(reports().back(), errors(3));
}

TEST_F(ByTemplateOnHost, TakesAnyNameForAll)
{
    descriptor("stray");
    descriptor("10-stray");
    EXPECT_EQ(mass_control_handler_queue("all", HOOK_ENABLE), 0);
    EXPECT_TRUE(active("stray"));
    EXPECT_TRUE(active("10-stray"));
}

TEST_F(ByTemplateOnHost, CountsEachDamagedHandlerAndGoesOn)
{
    for (int i = 0; i < 5; ++i)
        descriptor("10-spam-a1B2c" + std::to_string(i));
    descriptor("10-spam-broken", {}, {"hook"});
    descriptor("10-spam-strang", {{"handler-type", "strange"}});
    EXPECT_EQ(mass_control_handler_queue("spam", HOOK_ENABLE), -1);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(active("10-spam-a1B2c" + std::to_string(i)));
    EXPECT_EQ(reports().back(), errors(2));
}

TEST_F(ByTemplateOnHost, CountsTheOneOfACheckAsAnError)
{
    add("spam");
    EXPECT_EQ(mass_control_handler_queue("spam", HOOK_CHECK), -1);
    EXPECT_THAT(reports(), ElementsAre(errors(1)));
}

TEST_F(ByTemplateOnHost, ReportsAStoreThatCannotBeOpened)
{
    std::filesystem::remove(handlers_info);
    Report const missing = error("Unable to open directory /usr/local/orv/handlers/info: "
                                 "No such file or directory");
    EXPECT_EQ(mass_control_handler_queue("all", HOOK_ENABLE), -1);
    EXPECT_EQ(mass_control_handler_by_mailname(address, nullptr, HOOK_ENABLE), -1);
    EXPECT_THAT(reports(), ElementsAre(missing, missing));
}

TEST_F(ByTemplateOnHost, TouchesNothingInAStoreThatCannotBeRead)
{
    auto const first = add("spam");
    auto const second = add("spam", "sender", "other@example.com");
    {
        CallFailure const failing("readdir", EIO, 4);
        EXPECT_EQ(mass_control_handler_queue("all", HOOK_DISABLE), -1);
    }
    EXPECT_TRUE(active(first) && active(second));
    EXPECT_THAT(reports(),
                ElementsAre(error("Unable to read directory /usr/local/orv/handlers/info: "
                                  "Input/output error")));
}

TEST_F(ByMailnameOnHost, WorksOnTheHandlersOfExactlyThisValue)
{
    auto const mine = add("spam");
    auto const sent = add("virus", "sender", address, "before-queue");
    auto const other = add("spam", "recipient", "else@example.com");
    auto const domain = add("spam", "recipient-domain", "example.com");
    EXPECT_EQ(act(address, nullptr, HOOK_DISABLE), 0);
    EXPECT_FALSE(active(mine));
    EXPECT_FALSE(active(sent));
    EXPECT_TRUE(active(other));
    EXPECT_TRUE(active(domain));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, MindsTheLettersOfAValue)
{
    auto const mine = add("spam");
    EXPECT_EQ(act("Someone@example.com", nullptr, HOOK_DISABLE), 0);
    EXPECT_EQ(act("Example.com", nullptr, HOOK_DISABLE), 0);
    EXPECT_TRUE(active(mine));
}

TEST_F(ByMailnameOnHost, TakesADomainWithAllItsAddresses)
{
    auto const domain = add("spam", "sender-domain", "example.com");
    auto const mine = add("spam");
    auto const other = add("virus", "sender", "else@example.com");
    auto const elsewhere = add("spam", "recipient", "someone@sub.example.com");
    auto const global = add("spam", "global", nullptr);
    EXPECT_EQ(act("example.com", nullptr, HOOK_DELETE), 0);
    EXPECT_THAT(names(), UnorderedElementsAre(elsewhere, global));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, TakesNoAddressForADomain)
{
    auto const name = add("spam", "recipient", "list@someone@example.com");
    EXPECT_EQ(act(address, nullptr, HOOK_DELETE), 0);
    EXPECT_THAT(names(), ElementsAre(name));
}

TEST_F(ByMailnameOnHost, ClonesEachAddressActiveWhateverTheHandlersState)
{
    auto const name = add("spam", "recipient", address, "before-local", HOOK_DISABLE);
    add("spam", "sender-domain", "example.com");
    EXPECT_EQ(act("example.com", "example.org", HOOK_CLONE), 0);
    EXPECT_THAT(values(),
                ElementsAre("recipient someone@example.com", "recipient someone@example.org",
                            "sender-domain example.com", "sender-domain example.org"));
    EXPECT_FALSE(active(name));
    EXPECT_TRUE(active(lookup("spam", "recipient", "someone@example.org")));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, MovesEachAddressToItsNameInTheNewDomain)
{
    add("spam");
    add("spam", "sender", "else@example.com");
    add("spam", "recipient-domain", "example.com");
    add("spam", "recipient", "someone@example.net");
    EXPECT_EQ(act("example.com", "example.org", HOOK_MOVE), 0);
    EXPECT_THAT(values(),
                ElementsAre("recipient someone@example.net", "recipient someone@example.org",
                            "recipient-domain example.org", "sender else@example.org"));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, ClonesAnAddresssHandlersOnlyOnce)
{
    add("spam");
    add("virus");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(act(address, "alias@example.com", HOOK_CLONE), 0);
        EXPECT_THAT(values(),
                    ElementsAre("recipient alias@example.com", "recipient alias@example.com",
                                "recipient someone@example.com", "recipient someone@example.com"));
    }
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, ClonesOnlyTheHandlersPresentAtTheStart)
{
    for (int i = 0; i < 5; ++i)
        descriptor("10-spam" + std::to_string(i) + "-a1B2c3");
    // A lookup ends at this descriptor, so no copy is ever found.
    descriptor("10-spam0spam1spam2spam3spam4-broken", {}, {"hook"});
    auto const before = names().size();
    auto const run = printed([] { act(address, address, HOOK_CLONE); });
    EXPECT_EQ(run.signal, 0);
    EXPECT_LE(names().size(), 2 * before);
}

TEST_F(ByMailnameOnHost, CountsDamagedHandlersAndGoesOn)
{
    descriptor("10-spam-notype", {}, {"handler-type"});
    descriptor("10-spam-novalu", {}, {"recipient"});
    descriptor("10-spam-nohook", {}, {"hook"});
    for (int i = 0; i < 5; ++i)
        descriptor("10-spam-a1B2c" + std::to_string(i));
    EXPECT_EQ(act(address, nullptr, HOOK_ENABLE), -1);
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(active("10-spam-a1B2c" + std::to_string(i)));
    EXPECT_THAT(reports(),
                UnorderedElementsAre(
                    error("No such parameter 'handler-type' for handler '10-spam-notype'"),
                    error("Unable to get type of handler: 10-spam-notype\n"),
                    error("No such parameter 'recipient' for handler '10-spam-novalu'"),
                    error("Unable to get mailname from handler: 10-spam-novalu\n"),
                    error("No such parameter 'hook' for handler '10-spam-nohook'"),
                    error("Unable to fetch 'hook' parameter value for handler '10-spam-nohook'"),
                    error("Unable to exec action for handler: 10-spam-nohook\n"), errors(3)));
    EXPECT_EQ(reports().back(), errors(3));
}

TEST_F(ByMailnameOnHost, NeverWorksOnAGlobalHandler)
{
    auto const name = add("spam", "global", "example.com");
    EXPECT_EQ(act("example.com", nullptr, HOOK_DELETE), 0);
    EXPECT_THAT(names(), ElementsAre(name));
}

TEST_F(ByMailnameOnHost, ReadsADescriptorOnceInARun)
{
    HandlerStoreReading const reading;
    auto const name = add("spam", "recipient", address);
    add("virus", "recipient", "other@example.com");
    EXPECT_EQ(act("first@example.com", nullptr, HOOK_DISABLE), 0);
    writeFile(info(name) + "/recipient", "first@example.com\n");
    EXPECT_EQ(act("first@example.com", nullptr, HOOK_DISABLE), 0);
    EXPECT_TRUE(active(name)) << "it is known by its first value";
    EXPECT_EQ(act(address, nullptr, HOOK_DISABLE), 0);
    EXPECT_FALSE(active(name));
    EXPECT_THAT(reports(), IsEmpty());
}

TEST_F(ByMailnameOnHost, ReadsADamagedDescriptorAgain)
{
    auto const name = add("spam", "recipient", address);
    HandlerStoreReading const reading;
    unlink((info(name) + "/recipient").c_str());
    EXPECT_EQ(act(address, nullptr, HOOK_DISABLE), -1);
    writeFile(info(name) + "/recipient", std::string(address) + "\n");
    EXPECT_EQ(act(address, nullptr, HOOK_DISABLE), 0);
    EXPECT_FALSE(active(name));
}

TEST_F(ByMailnameOnHost, ForgetsARemovedHandler)
{
    HandlerStoreReading const reading;
    auto const name = add("spam", "recipient", address);
    EXPECT_EQ(act(address, nullptr, HOOK_DELETE), 0);
    EXPECT_EQ(CString(get_handler_parameter(name.c_str(), "hook")), nullptr);
}
