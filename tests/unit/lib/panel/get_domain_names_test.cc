#include "lib/panel/get_domain.h"

#include "support/report.h"
#include "unit/lib/panel/get_domain_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using GetDomainNamesOnHost = GetDomainTest;

} // namespace

TEST_F(GetDomainNamesOnHost, ReadsAnId)
{
    expectText([](MYSQL* my) { return get_dom_id("d.test", my); }, "7",
               "select id from domains where name='d.test'");
    expectText([](MYSQL* my) { return get_dom_id_noerr("d.test", 1, my); }, "7",
               "select id from domains where name='d.test'");
}

TEST_F(GetDomainNamesOnHost, AsksForTheAsciiFormOfAName)
{
    panel.sql("INSERT INTO domains (id, name) VALUES (9, 'xn--bcher-kva.test')");
    expectText(
        [](MYSQL* my) {
            return get_dom_id("b\xc3\xbc"
                              "cher.test",
                              my);
        },
        "9", "select id from domains where name='xn--bcher-kva.test'");
}

TEST_F(GetDomainNamesOnHost, EndsTheProcessForAnUnknownNameUnlessTold)
{
    EXPECT_EQ(fatalReportOf([] { return get_dom_id("50%s.test", nullptr) != nullptr; }),
              "get_dom_id(): domains record not found in DB for '50%s.test'\n");
    EXPECT_EQ(fatalReportOf([] { return get_dom_id_noerr("b\xc3\xbc.test", 0, nullptr); }),
              "get_dom_id(): domains record not found in DB for 'b\xc3\xbc.test'\n");
    expectNothing([](MYSQL* my) { return get_dom_id_noerr("unknown.test", 1, my); });
}

TEST_F(GetDomainNamesOnHost, EndsTheProcessForANameWithoutAsciiForm)
{
    auto const text = "idn_toascii() failed: Invalid length\n";
    EXPECT_EQ(fatalReportOf([] { return get_dom_id(std::string(64, 'x').c_str(), nullptr); }),
              text);
    EXPECT_EQ(
        fatalReportOf([] { return get_dom_id_noerr(std::string(64, 'x').c_str(), 1, nullptr); }),
        text);
    EXPECT_THAT(spy.connects, IsEmpty());
}

TEST_F(GetDomainNamesOnHost, EndsTheProcessWhenAnIdCannotBeRead)
{
    for (int const noerr : {0, 1}) {
        auto const finds = [=] { return get_dom_id_noerr("d.test", noerr, nullptr) != nullptr; };
        {
            WithoutTable const without(panel, "domains");
            EXPECT_EQ(fatalReportOf(finds),
                      std::string("Unable to query domain ID: ") + no_domains + "\n");
        }
        PanelDatabase::writePassword("wrong\n");
        EXPECT_EQ(fatalReportOf(finds),
                  "Unable to connect to Orvek Database: Access denied for user "
                  "'admin'@'localhost' (using password: YES)\n"
                  "Unable to connect to the mysql database\n");
        PanelDatabase::writePassword("panel-secret\n");
    }
}

TEST_F(GetDomainNamesOnHost, PutsANameInLowerCase)
{
    char name[] = "ABC.Test-\xc3\x9c_09";
    EXPECT_STREQ(get_case_dom_name(name), "abc.test-\xc3\x9c_09");
    EXPECT_STREQ(name, "ABC.Test-\xc3\x9c_09");
    EXPECT_STREQ(get_case_dom_name(""), "");
    EXPECT_EQ(std::string(get_case_dom_name(std::string(5000, 'X').c_str())),
              std::string(4095, 'x'));
}

TEST_F(GetDomainNamesOnHost, FindsTheNameThatTheDatabaseHas)
{
    expectText([](MYSQL* my) { return get_exist_case_dom_name("oTHER.tEST", my); }, "other.test",
               "select name from domains where name='oTHER.tEST'");
    EXPECT_EQ(get_exist_case_dom_name("d.test", nullptr), get_case_dom_name("x"))
        << "one buffer for both";
    expectNothing([](MYSQL* my) { return get_exist_case_dom_name("unknown.test", my); });
}

TEST_F(GetDomainNamesOnHost, EndsTheProcessWhenANameCannotBeRead)
{
    auto const finds = [] { return get_exist_case_dom_name("d.test", nullptr) != nullptr; };
    {
        WithoutTable const without(panel, "domains");
        EXPECT_EQ(fatalReportOf(finds),
                  std::string("Unable to query domain name: ") + no_domains + "\n");
    }
    panel.stop();
    EXPECT_EQ(fatalReportOf(finds), unconnected("Unable to connect to the mysql database\n"));
}

TEST_F(GetDomainNamesOnHost, ReadsTheIdOfTheZone)
{
    expectText([](MYSQL* my) { return get_dns_zone_id("7", my); }, "21",
               "select dns_zone_id from domains where id='7'");
    expectNothing([](MYSQL* my) { return get_dns_zone_id("9", my); });
}

TEST_F(GetDomainNamesOnHost, ReportsAZoneThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dns_zone_id("7", my); }, "domains",
                  std::string("Unable to query dns_zone_id: ") + no_domains + "\n",
                  "get_ip_address: Unable to connect to the mysql database");
}

TEST_F(GetDomainNamesOnHost, ReadsTheIdByAnAlias)
{
    panel.sql("INSERT INTO domainaliases (dom_id, name) VALUES (7, 'a.test')");
    expectText([](MYSQL* my) { return get_dom_id_by_alias("a.test", my); }, "7",
               "SELECT dom_id from domainaliases where name='a.test'");
    expectNothing([](MYSQL* my) { return get_dom_id_by_alias("d.test", my); });
}

TEST_F(GetDomainNamesOnHost, ReportsAnIdByAnAliasThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dom_id_by_alias("a.test", my); }, "domainaliases",
                  "SQL query error: Table 'orv.domainaliases' doesn't exist\n",
                  "get_do_id_by_alias: Unable to connect to the mysql database");
}

TEST_F(GetDomainNamesOnHost, RefusesAnAliasThatIsTooLongForItsStatement)
{
    constexpr size_t room = 4095 - (sizeof "SELECT dom_id from domainaliases where name=''" - 1);
    std::string const longest(room, 'x');
    expectNothing([&](MYSQL* my) { return get_dom_id_by_alias(longest.c_str(), my); });
    std::string const longer = longest + "y";
    spy.forget();
    EXPECT_EQ(reportOf([&] { return get_dom_id_by_alias(longer.c_str(), nullptr) != nullptr; }),
              "domain alias '" + longer + "' is too long\n");
}

TEST_F(GetDomainNamesOnHost, GivesTheHighestIdPlusOne)
{
    EXPECT_EQ(get_free_id("domains", nullptr), 9);
    EXPECT_EQ(spy.statements.back(), "SELECT max(id) FROM domains");
    OpenMysql const my(db_connect());
    EXPECT_EQ(get_free_id("mail", my.get()), 1) << "an empty table";
    EXPECT_THAT(spy.connects, SizeIs(2));
}

TEST_F(GetDomainNamesOnHost, ReportsAnIdThatCannotBeMade)
{
    EXPECT_EQ(reportOf([] { return get_free_id("gone", nullptr) != 0; }),
              "Unable to define max id: Table 'orv.gone' doesn't exist\n");
    for (char const* const highest : {"9223372036854775807", "18446744073709551615"}) {
        std::string const rows = std::string("(SELECT ") + highest + " AS id) found";
        EXPECT_EQ(reportOf([&] { return get_free_id(rows.c_str(), nullptr) != 0; }),
                  withErrno("Unable to define max id: Numerical result out of range", ERANGE));
    }
    EXPECT_EQ(get_free_id("(SELECT 9223372036854775806 AS id) found", nullptr), LONG_MAX);
    panel.stop();
    EXPECT_EQ(reportOf([] { return get_free_id("domains", nullptr) != 0; }),
              unconnected("Unable to connect to the mysql database\n"));
}
