#include "lib/orv_conf_table.h"

#include <gtest/gtest.h>

TEST(OrvConfTable, IsFramedByTwoRowsThatAreNoVariables)
{
    EXPECT_STREQ(theOrvConfNames.front(), "_MIN_POSSIBLE_ORV_CONF_VAR_NAME");
    EXPECT_STREQ(theOrvConfDefauls.front(), "_MIN_POSSIBLE_ORV_CONF_VAR_VALUE");
    EXPECT_STREQ(theOrvConfNames.back(), "_MAX_POSSIBLE_ORV_CONF_VAR_NAME");
    EXPECT_STREQ(theOrvConfDefauls.back(), "_MAX_POSSIBLE_ORV_CONF_VAR_VALUE");
}

TEST(OrvConfTable, HasTheVariablesOfTheMailToolAtTheirFixedIndices)
{
    EXPECT_STREQ(theOrvConfNames[1], "ORVEK_MAILNAMES_D");
    EXPECT_STREQ(theOrvConfDefauls[1], "/var/qmail/mailnames");
    EXPECT_STREQ(theOrvConfNames[2], "COURIER_IMAP_ROOT_D");
    EXPECT_STREQ(theOrvConfDefauls[2], "/");
    EXPECT_STREQ(theOrvConfNames[23], "HTTPD_SERVICE");
    EXPECT_STREQ(theOrvConfDefauls[23], "apache2");
    EXPECT_STREQ(theOrvConfNames[28], "PRODUCT_ROOT_D");
    EXPECT_STREQ(theOrvConfDefauls[28], "/usr/local/orv");
}

TEST(OrvConfTable, NumbersItsRowsByTheirEnumerators)
{
    EXPECT_EQ(_ORVEK_MAILNAMES_D_INDEX, 1);
    EXPECT_EQ(_PRODUCT_ROOT_D_INDEX, 28);
    EXPECT_EQ(_NAMED_ZONES_CONF_INDEX, 30);
    EXPECT_STREQ(theOrvConfNames[_NAMED_ZONES_CONF_INDEX], "NAMED_ZONES_CONF");
    EXPECT_STREQ(theOrvConfDefauls[_NAMED_ZONES_CONF_INDEX], "/etc/named.conf.include.orvek-zones");
}
