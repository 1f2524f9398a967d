#include "support/main_cf_test.h"
#include "support/syscall_faults.h"

#include <gtest/gtest.h>

#include <iostream>

#include <sys/socket.h>

using MainCfNetworksOnHost = MainCfTest;
using orvek::mail::postfix::MainCfManager;

TEST_F(MainCfNetworksOnHost, ReadsTheDefaultOfMynetworksAsTheHostsOwnNetworks)
{
    giveAddress();
    pretend("10.0.0.0/8\n", "10.0.0.0/8 \n");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
    EXPECT_EQ(postconf.journal(), "-h config_directory\n-h mynetworks\n-h -d mynetworks\n");
}

TEST_F(MainCfNetworksOnHost, TakesTheFirstOfSeveralAddresses)
{
    giveAddress("198.51.100.9");
    giveAddress("192.0.2.7");
    pretend("10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 198.51.100.9/32");
}

TEST_F(MainCfNetworksOnHost, BendsTheDefaultOfMynetworksTooWhenAskedForIt)
{
    giveAddress();
    pretend("1.2.3.4", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks", true), "127.0.0.0/8, 192.0.2.7/32");
    EXPECT_EQ(postconf.journal(), "-h config_directory\n-h -d mynetworks\n-h -d mynetworks\n");
}

TEST_F(MainCfNetworksOnHost, BendsOnlyThatParameter)
{
    pretend("10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks_style"), "10.0.0.0/8");
    EXPECT_EQ(read("Mynetworks"), "10.0.0.0/8");
}

TEST_F(MainCfNetworksOnHost, ReadsMynetworksOfTheTruePostconf)
{
    giveAddress();
    shellRun("postconf -X mynetworks");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
    EXPECT_EQ(append("mynetworks", "198.51.100.0/24"), "");
    EXPECT_EQ(trueSetting("mynetworks"), "127.0.0.0/8, 192.0.2.7/32, 198.51.100.0/24\n");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32, 198.51.100.0/24");
}

TEST_F(MainCfNetworksOnHost, LosesAMynetworksShorterThanItsDefault)
{
    giveAddress();
    pretend("10.0.0.1", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
    pretend("", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
}

TEST_F(MainCfNetworksOnHost, KeepsAMynetworksWithoutTheDefaultInIt)
{
    pretend("10.0.0.2/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "10.0.0.2/8");
}

TEST_F(MainCfNetworksOnHost, KeepsWhatFollowsTheDefaultAndDropsWhatPrecedes)
{
    giveAddress();
    pretend("1.1.1.1, 10.0.0.0/8 , 2.2.2.2 10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32 , 2.2.2.2 10.0.0.0/8");
    pretend("1.1.1.1 10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
}

TEST_F(MainCfNetworksOnHost, FindsAnEmptyDefaultInFrontOfAnyValue)
{
    giveAddress();
    pretend("1.1.1.1", "\n");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/321.1.1.1");
    pretend("", "");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32");
}

TEST_F(MainCfNetworksOnHost, ReadsMynetworksOfAHostWithoutAnAddress)
{
    pretend("10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, /32");
}

TEST_F(MainCfNetworksOnHost, ReadsMynetworksWithoutAddressesWhenInterfacesFail)
{
    giveAddress();
    pretend("10.0.0.0/8, x", "10.0.0.0/8");
    ChildRun const run = printedBy([] {
        MainCfManager const& manager = MainCfManager::getInstance();
        failSystemCallWith(SYS_socket, 0, AF_INET, EMFILE);
        std::cout << "<" << manager.getStringValue("mynetworks", false) << ">";
    });
    EXPECT_NE(run.out.find("127.0.0.0/8, x>"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("Can't create socket"), std::string::npos) << "the library's report";
}

TEST_F(MainCfNetworksOnHost, RaisesWhenTheDefaultOfMynetworksCannotBeRead)
{
    postconf.run("case $2 in config_directory) echo /etc/postfix ;; "
                 "-d) echo 'postconf: no' >&2; exit 1 ;; *) echo a ;; esac");
    EXPECT_EQ(read("mynetworks"), "!PostfixConfigurationError: postconf: no\n");
    postconf.run("case $2 in config_directory) echo /etc/postfix ;; "
                 "-d) kill -9 $$ ;; *) echo a ;; esac");
    EXPECT_EQ(read("mynetworks"), "!PostfixConfigurationError: unknown error");
}

TEST_F(MainCfNetworksOnHost, IgnoresDiagnosticsOfAReadableDefault)
{
    giveAddress();
    postconf.run("case $2 in config_directory) echo /etc/postfix ;; "
                 "-d) echo 'postconf: fatal: no' >&2 ;; *) echo ,a ;; esac");
    EXPECT_EQ(read("mynetworks"), "127.0.0.0/8, 192.0.2.7/32,a");
}

TEST_F(MainCfNetworksOnHost, StoresMynetworksForAnExistingWordUnbent)
{
    pretend("10.0.0.2/8, x", "10.0.0.0/8");
    EXPECT_EQ(append("mynetworks", "x"), "");
    EXPECT_TRUE(wrote());
    EXPECT_EQ(pretended(), "10.0.0.2/8, x\n");
}

TEST_F(MainCfNetworksOnHost, StoresTheBentMynetworksForAWordThatIsThere)
{
    giveAddress();
    pretend("10.0.0.0/8, x", "10.0.0.0/8");
    EXPECT_EQ(append("mynetworks", "x"), "");
    EXPECT_EQ(pretended(), "127.0.0.0/8, 192.0.2.7/32, x\n");
    pretend("10.0.0.0/8", "10.0.0.0/8");
    EXPECT_EQ(append("mynetworks", "192.0.2.7/32"), "");
    EXPECT_EQ(pretended(), "127.0.0.0/8, 192.0.2.7/32\n");
}

TEST_F(MainCfNetworksOnHost, RemovesWordsFromTheBentMynetworks)
{
    giveAddress();
    pretend("10.0.0.0/8, x", "10.0.0.0/8");
    EXPECT_EQ(removeElement("mynetworks", "y"), "");
    EXPECT_EQ(pretended(), "10.0.0.0/8, x") << "nothing is written";
    EXPECT_EQ(removeElement("mynetworks", "x"), "");
    EXPECT_EQ(pretended(), "127.0.0.0/8, 192.0.2.7/32\n");
}
