#include "mail/lib/aliases/panel_names.h"

#include "support/panel_mail_test.h"
#include "support/strings_of.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

namespace {

constexpr char not_connected[] = "Unable to connect to mysql database";
constexpr char not_read[] = "Unable to get data from mysql database";

using PanelNamesOnHost = PanelMailTest;

} // namespace

TEST_F(PanelNamesOnHost, MakeNoConnectionBeforeTheFirstStatement)
{
    PanelNames const panel_names(nullptr);
    EXPECT_THAT(panel.spy.connects, IsEmpty());
}

TEST_F(PanelNamesOnHost, ShareOneConnection)
{
    PanelNames panel_names(nullptr);
    StringArray list;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    EXPECT_EQ(panel.spy.connects.size(), 1U);
}

TEST_F(PanelNamesOnHost, ShareTheConnectionOfASession)
{
    StringArray list;
    {
        PanelSession const session;
        EXPECT_THAT(panel.spy.connects, IsEmpty());
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(PanelNames(nullptr).get_mailnames_by_domain("d.test", &list), 0);
        EXPECT_EQ(panel.spy.connects.size(), 1U);
        panel.killConnections();
        EXPECT_EQ(PanelNames(nullptr).get_mailnames_by_domain("d.test", &list), 0);
        EXPECT_EQ(panel.spy.connects.size(), 2U);
    }
    EXPECT_THAT(panel.spy.open, IsEmpty());
    EXPECT_EQ(PanelNames(nullptr).get_mailnames_by_domain("d.test", &list), 0);
    EXPECT_EQ(panel.spy.connects.size(), 3U);
}

TEST_F(PanelNamesOnHost, LeaveTheirConnectionToNoOtherProgram)
{
    PanelSession const session;
    StringArray list;
    ASSERT_EQ(PanelNames(nullptr).get_mailnames_by_domain("d.test", &list), 0);
    ASSERT_EQ(panel.spy.open.size(), 1U);
    int const socket = static_cast<int>(mysql_get_socket(*panel.spy.open.begin()));
    EXPECT_EQ(fcntl(socket, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(PanelNamesOnHost, ReadTheMailAliasesOfADomainByMailname)
{
    addDomain("d.test");
    addMailname("d.test", "joe", {"j", "jo"});
    addMailname("d.test", "ann", {"a"});
    addMailname("d.test", "none");
    addDomain("e.test");
    addMailname("e.test", "joe", {"other"});
    PanelNames::NamesByName aliases;
    EXPECT_EQ(PanelNames(nullptr).get_aliases_by_domain("joe", "d.test", &aliases), 0);
    EXPECT_THAT(aliases, UnorderedElementsAre(Pair("joe", UnorderedElementsAre("j", "jo")),
                                              Pair("ann", ElementsAre("a"))));
}

TEST_F(PanelNamesOnHost, AreReadOnANewConnectionWhenTheirsIsBroken)
{
    PanelNames panel_names(nullptr);
    StringArray list;
    ASSERT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    panel.killConnections();
    addDomain("d.test");
    addMailname("d.test", "joe");
    panel.spy.before = [this](int) {
        EXPECT_EQ(panel.spy.open.size(), 1U) << "the broken one is closed first";
    };
    ASSERT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    EXPECT_THAT(stringsOf(list), ElementsAre("joe"));
    EXPECT_EQ(panel.spy.connects.size(), 2U);
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(PanelNamesOnHost, LeaveErrnoAloneOnANewConnection)
{
    PanelNames panel_names(nullptr);
    StringArray list;
    ASSERT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    panel.killConnections();
    errno = ENOSPC;
    EXPECT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    EXPECT_EQ(errno, ENOSPC) << "the broken one's failure has been mended";
    EXPECT_EQ(panel.spy.connects.size(), 2U);
}

TEST_F(PanelNamesOnHost, ReportABrokenConnectionAsOneNeverMade)
{
    PanelNames panel_names(nullptr);
    StringArray list;
    ASSERT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    panel.stop();
    EXPECT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), -1);
    EXPECT_THAT(texts(), ElementsAre(not_connected, "Unable to get mailnames from domain: d.test"));
    EXPECT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), -1);
    EXPECT_EQ(texts().size(), 4U);
}

TEST_F(PanelNamesOnHost, ReportAFailureOnceDespiteANewConnection)
{
    PanelNames panel_names(nullptr);
    StringArray list;
    ASSERT_EQ(panel_names.get_mailnames_by_domain("d.test", &list), 0);
    EXPECT_EQ(panel_names.read("SELECT 'o'hara'", &list), -1);
    EXPECT_THAT(texts(), ElementsAre(not_read));
}
