#include "lib/panel/get_domain.h"

#include "lib/panel/get.h"
#include "unit/lib/panel/get_domain_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using ::testing::SizeIs;

namespace {

using GetDomainOnHost = GetDomainTest;

} // namespace

TEST_F(GetDomainOnHost, ReadsTheStatus)
{
    OpenMysql const my(db_connect());
    unsigned int status = 1;
    EXPECT_EQ(get_dom_status("7", &status, my.get()), 0);
    EXPECT_EQ(status, 66U);
    EXPECT_EQ(spy.statements.back(), "select status from domains where id=\"7\"");
    EXPECT_EQ(get_dom_status("8", &status, my.get()), 0);
    EXPECT_EQ(status, 0U);
}

TEST_F(GetDomainOnHost, LeavesTheStatusAloneWhenTheValueIsNoNumber)
{
    OpenMysql const my(db_connect());
    unsigned int status = 5;
    for (char const* const other : {"SELECT NULL", "SELECT 'x'"}) {
        spy.replace("select status from domains where id=\"7\"", other);
        EXPECT_EQ(get_dom_status("7", &status, my.get()), 0);
        EXPECT_EQ(status, 5U);
    }
}

TEST_F(GetDomainOnHost, ReportsTheStatusOfAnUnknownDomain)
{
    OpenMysql const my(db_connect());
    unsigned int status = 5;
    EXPECT_EQ(reportOf([&] { return get_dom_status("9", &status, my.get()) != -1; }),
              "Unable to get status for domain with id=\"9\": such domain is not exist.\n");
}

TEST_F(GetDomainOnHost, ReportsAStatusThatCannotBeRead)
{
    OpenMysql const my(db_connect());
    unsigned int status = 5;
    WithoutTable const without(panel, "domains");
    EXPECT_EQ(reportOf([&] { return get_dom_status("7", &status, my.get()) != -1; }),
              std::string("Unable to get status for domain with id=\"7\": ") + no_domains + "\n");
}

TEST_F(GetDomainOnHost, ReadsAParameter)
{
    panel.sql("INSERT INTO dom_param VALUES (7, 'colour', 'green'), (7, 'void', NULL), "
              "(7, 'empty', '')");
    expectText([](MYSQL* my) { return get_dom_param("7", "colour", my); }, "green",
               "select val from dom_param where dom_id='7' and param='colour'");
    expectNothing([](MYSQL* my) { return get_dom_param("8", "colour", my); });
    expectNothing([](MYSQL* my) { return get_dom_param("7", "void", my); });
    EXPECT_STREQ(get_dom_param("7", "empty", nullptr), "");
}

TEST_F(GetDomainOnHost, ReportsAParameterThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dom_param("7", "50%s", my); }, "dom_param",
                  "Unable to query domain parameter 50%s: Table 'orv.dom_param' doesn't exist\n",
                  "Unable to connect to mysql database\n");
}

TEST_F(GetDomainOnHost, ReadsAParameterOfAService)
{
    panel.sql("INSERT INTO DomainServices (dom_id, type, parameters_id) VALUES (7, 'mail', 41)");
    panel.sql("INSERT INTO Parameters VALUES (41, 'nonexist_mail', 'bounce'), (41, 'void', NULL)");
    expectText(
        [](MYSQL* my) { return get_DomainService_Parameter("7", "mail", "nonexist_mail", my); },
        "bounce",
        "select r.value from DomainServices s, Parameters r \t\t\t\t where s.dom_id='7' and "
        "s.type='mail' and s.parameters_id=r.id  and r.parameter='nonexist_mail'");
    expectNothing([](MYSQL* my) { return get_DomainService_Parameter("7", "web", "x", my); });
    expectNothing([](MYSQL* my) { return get_DomainService_Parameter("7", "mail", "void", my); });
}

TEST_F(GetDomainOnHost, ReportsAParameterOfAServiceThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_DomainService_Parameter("7", "mail", "par", my); },
                  "Parameters",
                  "Unable to query domain parameter par: Table 'orv.Parameters' doesn't exist\n",
                  "Unable to connect to the mysql database\n");
}

TEST_F(GetDomainOnHost, ReadsALimit)
{
    panel.sql("INSERT INTO Limits VALUES (31, 'mbox_quota', 1048576), (32, 'mbox_quota', -1)");
    expectText([](MYSQL* my) { return get_dom_Limit("7", "mbox_quota", my); }, "1048576",
               "select l.value from domains d, Limits l \t\t\t\t where d.id='7' and "
               "d.limits_id=l.id  and l.limit_name='mbox_quota'");
    EXPECT_STREQ(get_dom_Limit("8", "mbox_quota", nullptr), "-1");
    expectNothing([](MYSQL* my) { return get_dom_Limit("7", "unknown", my); });
}

TEST_F(GetDomainOnHost, ReportsALimitThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dom_Limit("7", "mbox_quota", my); }, "Limits",
                  "Unable to query domain limit mbox_quota: Table 'orv.Limits' doesn't exist\n",
                  "Unable to connect to the mysql database\n");
}

TEST_F(GetDomainOnHost, HasAWwwPrefixByARecordOfItsZone)
{
    panel.sql("INSERT INTO dns_zone (id, name) VALUES (21, 'd.test'), (22, 'other.test')");
    panel.sql("INSERT INTO dns_recs (dns_zone_id, type, host) VALUES (21, 'CNAME', 'www.d.test.'), "
              "(22, 'MX', 'www.other.test.'), (22, 'A', 'web.other.test.')");
    EXPECT_EQ(get_www_prefix("7", nullptr), 1);
    EXPECT_EQ(spy.statements.back(),
              "select * from domains d, dns_zone z, dns_recs r \t\twhere d.id='7' and "
              "d.dns_zone_id=z.id and r.dns_zone_id=z.id \t\tand ((r.type='A') or "
              "(r.type='CNAME')) \t\tand left(r.host,4)='www.'");
    EXPECT_EQ(get_www_prefix("8", nullptr), 0);
    panel.sql("UPDATE dns_recs SET type = 'A' WHERE type = 'MX'");
    EXPECT_EQ(get_www_prefix("8", nullptr), 1);
}

TEST_F(GetDomainOnHost, HasAWwwPrefixByASubdomain)
{
    panel.sql("INSERT INTO subdomains (dom_id, name) VALUES (7, 'www'), (8, 'web')");
    OpenMysql const my(db_connect());
    EXPECT_EQ(get_www_prefix("7", my.get()), 1);
    EXPECT_EQ(spy.statements.back(),
              "select * from subdomains \t\t\twhere dom_id='7' and name='www'");
    EXPECT_EQ(printed(false, [&] { return get_www_prefix("8", nullptr) != 0; }), "");
    EXPECT_THAT(spy.connects, SizeIs(1));
}

TEST_F(GetDomainOnHost, ReportsAWwwPrefixThatCannotBeRead)
{
    auto const has_prefix = [] { return get_www_prefix("7", nullptr) != 0; };
    {
        WithoutTable const without(panel, "dns_recs");
        EXPECT_EQ(reportOf(has_prefix),
                  "Unable to query www prefix: Table 'orv.dns_recs' doesn't exist\n");
    }
    {
        WithoutTable const without(panel, "subdomains");
        EXPECT_EQ(reportOf(has_prefix),
                  "Unable to query www subdomain: Table 'orv.subdomains' doesn't exist\n");
    }
    panel.stop();
    EXPECT_EQ(reportOf(has_prefix), unconnected("Unable to connect to the mysql database\n"));
}

TEST_F(GetDomainOnHost, CutsALongValueAtTheBuffer)
{
    panel.sql("INSERT INTO dom_param VALUES (7, 'long', REPEAT('x', 5000))");
    EXPECT_EQ(std::string(get_dom_param("7", "long", nullptr)), std::string(4095, 'x'));
}

TEST_F(GetDomainOnHost, KeepsResultsOfDifferentFunctionsApart)
{
    panel.sql("INSERT INTO dom_param VALUES (7, 'colour', 'green')");
    char const* const id = get_dom_id("d.test", nullptr);
    char const* const zone = get_dns_zone_id(id, nullptr);
    char const* const colour = get_dom_param(id, "colour", nullptr);
    EXPECT_STREQ(id, "7");
    EXPECT_STREQ(zone, "21");
    EXPECT_STREQ(colour, "green");
}

TEST_F(GetDomainOnHost, TakesANameForWhatItIsInAStatement)
{
    EXPECT_EQ(get_dns_zone_id("x' UNION SELECT 'pasted", nullptr), nullptr);
    EXPECT_EQ(get_dom_id_noerr("o'brien.test", 1, nullptr), nullptr);
    EXPECT_EQ(reportOf([] { return get_dom_param("7", "back\\", nullptr) != nullptr; }), "");
    EXPECT_EQ(reportOf([] { return get_dns_zone_id("\xff\xfe", nullptr) != nullptr; }), "");
}
