#include "postfix/map_names.h"

#include <gtest/gtest.h>

using orvek::mail::postfix::mapPath;

TEST(MapNames, APathIsWhatFollowsTheFirstColon)
{
    EXPECT_EQ(mapPath("hash:/etc/map"), "/etc/map");
    EXPECT_EQ(mapPath("hash:/etc/a:b"), "/etc/a:b");
    EXPECT_EQ(mapPath(orvek::mail::postfix::virtual_map), "/var/spool/postfix/orvek/virtual");
}

TEST(MapNames, ANameWithoutAColonIsThePathItself)
{
    EXPECT_EQ(mapPath("/etc/map"), "/etc/map");
    EXPECT_EQ(mapPath(""), "");
}
