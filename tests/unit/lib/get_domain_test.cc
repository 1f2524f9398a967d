#include "lib/get_domain.h"

#include "lib/dbconnect.h"
#include "lib/get.h"
#include "support/child_run.h"
#include "support/panel_database_test.h"
#include "support/report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

constexpr char no_server[] = "Unable to connect to Orvek Database: Can't connect to local server "
                             "through socket '/run/mysqld/mysqld.sock' (2)";

// For a report that begins with an error of the server's.
constexpr char no_domains[] = "Table 'orv.domains' doesn't exist";

class GetDomainOnHost : public PanelDatabaseTest
{
protected:
    void SetUp() override
    {
        PanelDatabaseTest::SetUp();
        panel.sql("INSERT INTO domains (id, name, status, dns_zone_id, limits_id) VALUES "
                  "(7, 'd.test', 66, 21, 31), (8, 'Other.Test', 0, 22, 32)");
    }

    // Runs a call that is expected to return with this result; what it prints on both streams.
    static std::string printed(bool expected, std::function<bool()> const& call)
    {
        auto const run = inChild([&] { return call() == expected ? 42 : 43; });
        EXPECT_EQ(run.status, 42) << run.err;
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    static std::string reportOf(std::function<bool()> const& call) { return printed(false, call); }

    static std::string fatalReportOf(std::function<bool()> const& call)
    {
        auto const run = inChild([&] { return call() ? 42 : 43; });
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.out, run.err);
        return run.err;
    }

    static std::string unconnected(std::string const& text)
    {
        return withErrno(no_server, ENOENT) + withErrno(text, ENOENT);
    }

    // The reader gives text, by this statement, and reads on the caller's connection as well as
    // on one of its own.
    using Reader = std::function<char const*(MYSQL*)>;
    void expectText(Reader const& reader, std::string const& text, std::string const& statement)
    {
        spy.forget();
        EXPECT_EQ(std::string(reader(nullptr)), text);
        EXPECT_EQ(spy.statements.back(), statement);
        EXPECT_THAT(spy.open, IsEmpty());
        OpenMysql const my(db_connect());
        EXPECT_EQ(std::string(reader(my.get())), text);
        EXPECT_THAT(spy.connects, SizeIs(2));
    }

    // The reader has no text for such a row, and says nothing of it.
    void expectNothing(Reader const& reader)
    {
        EXPECT_EQ(reportOf([&] { return reader(nullptr) != nullptr; }), "");
    }

    // What the reader reports without its table, and without a server.
    void expectReports(Reader const& reader, std::string const& table, std::string const& failed,
                       std::string const& not_connected)
    {
        auto const gives_text = [&] { return reader(nullptr) != nullptr; };
        {
            WithoutTable const without(panel, table);
            EXPECT_EQ(reportOf(gives_text), failed);
        }
        panel.stop();
        EXPECT_EQ(reportOf(gives_text), unconnected(not_connected));
    }
};

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

TEST_F(GetDomainOnHost, ReadsAnId)
{
    expectText([](MYSQL* my) { return get_dom_id("d.test", my); }, "7",
               "select id from domains where name='d.test'");
    expectText([](MYSQL* my) { return get_dom_id_noerr("d.test", 1, my); }, "7",
               "select id from domains where name='d.test'");
}

TEST_F(GetDomainOnHost, AsksForTheAsciiFormOfAName)
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

TEST_F(GetDomainOnHost, EndsTheProcessForAnUnknownNameUnlessTold)
{
    EXPECT_EQ(fatalReportOf([] { return get_dom_id("50%s.test", nullptr) != nullptr; }),
              "get_dom_id(): domains record not found in DB for '50%s.test'\n");
    EXPECT_EQ(fatalReportOf([] { return get_dom_id_noerr("b\xc3\xbc.test", 0, nullptr); }),
              "get_dom_id(): domains record not found in DB for 'b\xc3\xbc.test'\n");
    expectNothing([](MYSQL* my) { return get_dom_id_noerr("unknown.test", 1, my); });
}

TEST_F(GetDomainOnHost, EndsTheProcessForANameThatHasNoAsciiForm)
{
    auto const text = "idn_toascii() failed: Invalid length\n";
    EXPECT_EQ(fatalReportOf([] { return get_dom_id(std::string(64, 'x').c_str(), nullptr); }),
              text);
    EXPECT_EQ(
        fatalReportOf([] { return get_dom_id_noerr(std::string(64, 'x').c_str(), 1, nullptr); }),
        text);
    EXPECT_THAT(spy.connects, IsEmpty());
}

TEST_F(GetDomainOnHost, EndsTheProcessWhenAnIdCannotBeRead)
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

TEST_F(GetDomainOnHost, PutsANameInLowerCase)
{
    char name[] = "ABC.Test-\xc3\x9c_09";
    EXPECT_STREQ(get_case_dom_name(name), "abc.test-\xc3\x9c_09");
    EXPECT_STREQ(name, "ABC.Test-\xc3\x9c_09");
    EXPECT_STREQ(get_case_dom_name(""), "");
    EXPECT_EQ(std::string(get_case_dom_name(std::string(5000, 'X').c_str())),
              std::string(4095, 'x'));
}

TEST_F(GetDomainOnHost, FindsTheNameThatTheDatabaseHas)
{
    expectText([](MYSQL* my) { return get_exist_case_dom_name("oTHER.tEST", my); }, "other.test",
               "select name from domains where name='oTHER.tEST'");
    EXPECT_EQ(get_exist_case_dom_name("d.test", nullptr), get_case_dom_name("x"))
        << "one buffer for both";
    expectNothing([](MYSQL* my) { return get_exist_case_dom_name("unknown.test", my); });
}

TEST_F(GetDomainOnHost, EndsTheProcessWhenANameCannotBeRead)
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

TEST_F(GetDomainOnHost, ReadsTheIdOfTheZone)
{
    expectText([](MYSQL* my) { return get_dns_zone_id("7", my); }, "21",
               "select dns_zone_id from domains where id='7'");
    expectNothing([](MYSQL* my) { return get_dns_zone_id("9", my); });
}

TEST_F(GetDomainOnHost, ReportsAZoneThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dns_zone_id("7", my); }, "domains",
                  std::string("Unable to query dns_zone_id: ") + no_domains + "\n",
                  "get_ip_address: Unable to connect to the mysql database");
}

TEST_F(GetDomainOnHost, ReadsTheIdByAnAlias)
{
    panel.sql("INSERT INTO domainaliases (dom_id, name) VALUES (7, 'a.test')");
    expectText([](MYSQL* my) { return get_dom_id_by_alias("a.test", my); }, "7",
               "SELECT dom_id from domainaliases where name='a.test'");
    expectNothing([](MYSQL* my) { return get_dom_id_by_alias("d.test", my); });
}

TEST_F(GetDomainOnHost, ReportsAnIdByAnAliasThatCannotBeRead)
{
    expectReports([](MYSQL* my) { return get_dom_id_by_alias("a.test", my); }, "domainaliases",
                  "SQL query error: Table 'orv.domainaliases' doesn't exist\n",
                  "get_do_id_by_alias: Unable to connect to the mysql database");
}

TEST_F(GetDomainOnHost, RefusesAnAliasThatIsTooLongForItsStatement)
{
    constexpr size_t room = 4095 - (sizeof "SELECT dom_id from domainaliases where name=''" - 1);
    std::string const longest(room, 'x');
    expectNothing([&](MYSQL* my) { return get_dom_id_by_alias(longest.c_str(), my); });
    std::string const longer = longest + "y";
    spy.forget();
    EXPECT_EQ(reportOf([&] { return get_dom_id_by_alias(longer.c_str(), nullptr) != nullptr; }),
              "domain alias '" + longer + "' is too long\n");
}

TEST_F(GetDomainOnHost, GivesTheHighestIdPlusOne)
{
    EXPECT_EQ(get_free_id("domains", nullptr), 9);
    EXPECT_EQ(spy.statements.back(), "SELECT max(id) FROM domains");
    OpenMysql const my(db_connect());
    EXPECT_EQ(get_free_id("mail", my.get()), 1) << "an empty table";
    EXPECT_THAT(spy.connects, SizeIs(2));
}

TEST_F(GetDomainOnHost, ReportsAnIdThatCannotBeMade)
{
    EXPECT_EQ(reportOf([] { return get_free_id("gone", nullptr) != 0; }),
              "Unable to define max id: Table 'orv.gone' doesn't exist\n");
    panel.stop();
    EXPECT_EQ(reportOf([] { return get_free_id("domains", nullptr) != 0; }),
              unconnected("Unable to connect to the mysql database\n"));
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

TEST_F(GetDomainOnHost, PastesNamesIntoTheStatementAsTheyAre)
{
    EXPECT_STREQ(get_dns_zone_id("x' UNION SELECT 'pasted", nullptr), "pasted");
    EXPECT_EQ(reportOf([] { return get_dom_param("7", "back\\", nullptr) != nullptr; })
                  .find("Unable to query domain parameter back\\: You have an error in your SQL "
                        "syntax"),
              0U);
    EXPECT_EQ(reportOf([] { return get_dns_zone_id("\xff\xfe", nullptr) != nullptr; }), "");
}
