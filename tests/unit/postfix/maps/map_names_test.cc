#include "postfix/maps/map_names.h"

#include <gtest/gtest.h>

using namespace orvek::mail::postfix;

TEST(MapNames, APathIsWhatFollowsTheFirstColon)
{
    EXPECT_EQ(mapPath("hash:/etc/map"), "/etc/map");
    EXPECT_EQ(mapPath("hash:/etc/a:b"), "/etc/a:b");
    EXPECT_EQ(mapPath(virtual_map), "/var/spool/postfix/orvek/virtual");
}

TEST(MapNames, AreThoseThatTheMailServerIsToldOf)
{
    EXPECT_STREQ(virtual_domains_map, "hash:/var/spool/postfix/orvek/virtual_domains");
    EXPECT_STREQ(vmailbox_map, "hash:/var/spool/postfix/orvek/vmailbox");
    EXPECT_STREQ(virtual_map, "hash:/var/spool/postfix/orvek/virtual");
    EXPECT_STREQ(aliases_map, "hash:/var/spool/postfix/orvek/aliases");
    EXPECT_STREQ(blacklists_map, "hash:/var/spool/postfix/orvek/blacklists");
}

TEST(MapNames, ANameWithoutAColonIsThePathItself)
{
    EXPECT_EQ(mapPath("/etc/map"), "/etc/map");
    EXPECT_EQ(mapPath(""), "");
}
