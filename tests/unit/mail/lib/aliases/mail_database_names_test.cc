#include "mail/lib/aliases/mail_database_names.h"

#include "lib/panel/dbconnect.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"
#include "support/child_run.h"
#include "support/memory_faults.h"
#include "support/panel_mail_test.h"
#include "support/strings_of.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <string>
#include <vector>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

bool no_query_can_be_formed = false;

constexpr char not_connected[] = "Unable to connect to mysql database";
constexpr char not_read[] = "Unable to get data from mysql database";

using List = std::vector<std::string>;

class MailDatabaseNamesOnHost : public PanelMailTest
{
protected:
    // A query's names, or "failed" and the reports.
    List read(std::string const& query, MYSQL* my = nullptr)
    {
        LogRecorder::reports().clear();
        char** names = nullptr;
        if (exec_mysql_query(my, query.c_str(), &names) == 0)
            return stringsOf(StringArray(names));
        EXPECT_EQ(names, nullptr);
        List all = texts();
        all.insert(all.begin(), "failed");
        return all;
    }

    struct Getter
    {
        std::function<int()> call;
        std::string report;
    };

    // Each getter for the given names, with its own report.
    std::vector<Getter> getters()
    {
        return {
            {[this] { return get_domaliases_by_domain(nullptr, &names, "d.test"); },
             "Unable to get domain aliases from database for: d.test"},
            {[this] { return get_aliases_by_mailname(nullptr, &names, "joe", "d.test"); },
             "Unable to get aliases for mailname: joe@d.test"},
            {[this] { return get_mailnames_by_domain(nullptr, &names, "d.test"); },
             "Unable to get mailnames from domain: d.test"},
            {[this] { return get_domain_by_domainalias(nullptr, &domain, "a.test"); },
             "Unable to get domain by domainalias: a.test"},
        };
    }

    void expectEachToReport(List const& first)
    {
        for (Getter const& getter : getters()) {
            LogRecorder::reports().clear();
            EXPECT_EQ(getter.call(), -1);
            List expected = first;
            expected.push_back(getter.report);
            EXPECT_EQ(texts(), expected);
        }
        EXPECT_EQ(names, nullptr);
        EXPECT_EQ(domain, nullptr);
    }

    char** names = nullptr;
    char* domain = nullptr;
};

} // namespace

extern "C" [[gnu::used, gnu::format(printf, 1, 2)]] char*
__wrap__Z13asprintf_safePKcz(char const* fmt, ...)
{
    if (no_query_can_be_formed)
        return nullptr;
    va_list args;
    va_start(args, fmt);
    char* const text = vasprintf_safe(fmt, args);
    va_end(args);
    return text;
}

TEST_F(MailDatabaseNamesOnHost, CollectTheFirstColumnOfAllRows)
{
    EXPECT_THAT(read("SELECT 'a', 'x' UNION SELECT 'b', 'y' UNION SELECT '', 'z'"),
                ElementsAre("a", "b", ""));
}

TEST_F(MailDatabaseNamesOnHost, AreANullListWithoutRows)
{
    char** list = nullptr;
    EXPECT_EQ(exec_mysql_query(nullptr, "SELECT name FROM domains", &list), 0);
    EXPECT_EQ(list, nullptr);
}

TEST_F(MailDatabaseNamesOnHost, PassOverWhatIsNull)
{
    EXPECT_THAT(read("SELECT NULL UNION SELECT 'b' UNION SELECT 'c'"), ElementsAre("b", "c"));
}

TEST_F(MailDatabaseNamesOnHost, ReadOnAConnectionOfTheirOwnAndCloseIt)
{
    EXPECT_THAT(read("SELECT 'a'"), ElementsAre("a"));
    EXPECT_EQ(panel.spy.connects.size(), 1U);
    EXPECT_THAT(panel.spy.open, IsEmpty());
    EXPECT_THAT(queries(), ElementsAre("SELECT 'a'"));
}

TEST_F(MailDatabaseNamesOnHost, ReadOnTheCallersConnectionAndLeaveItOpen)
{
    OpenMysql const my(db_connect());
    EXPECT_THAT(read("SELECT 'a'", my.get()), ElementsAre("a"));
    EXPECT_THAT(read("SELECT 'b'", my.get()), ElementsAre("b"));
    EXPECT_EQ(panel.spy.connects.size(), 1U);
}

TEST_F(MailDatabaseNamesOnHost, ReportThatThereIsNoConnection)
{
    panel.stop();
    EXPECT_THAT(read("SELECT 'a'"), ElementsAre("failed", not_connected));
}

TEST_F(MailDatabaseNamesOnHost, ReportAConnectionsFailureOnBothStreamsBeforeTheirOwn)
{
    PanelDatabase::writePassword("wrong\n");
    auto const run = inChild([] {
        orvek_log = _orvek_utility_log;
        orvek_logv = _orvek_utility_logv;
        char** list = nullptr;
        return exec_mysql_query(nullptr, "SELECT 1", &list) == -1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.err, "Unable to connect to Orvek Database: Access denied for user "
                       "'admin'@'localhost' (using password: YES)\n" +
                           std::string(not_connected) + "\n");
    EXPECT_EQ(run.out, run.err);
}

TEST_F(MailDatabaseNamesOnHost, ReportAQueryThatFailsOrHasNoResult)
{
    EXPECT_THAT(read("SELECT * FROM gone"), ElementsAre("failed", not_read));
    EXPECT_THAT(read("SET @x = 1"), ElementsAre("failed", not_read));
    panel.spy.forget();
    panel.spy.fault("store_result", 3); // the first two are those of the connection
    EXPECT_THAT(read("SELECT 1"), ElementsAre("failed", not_read));
    EXPECT_EQ(panel.spy.connects.size(), 1U);
}

TEST_F(MailDatabaseNamesOnHost, NeverReplaceTheCallersConnection)
{
    OpenMysql const my(db_connect());
    panel.killConnections();
    EXPECT_THAT(read("SELECT 1", my.get()), ElementsAre("failed", not_read));
    EXPECT_EQ(panel.spy.connects.size(), 1U);
}

TEST_F(MailDatabaseNamesOnHost, ReportAListThatThereIsNoMemoryFor)
{
    OpenMysql const my(db_connect());
    std::vector<List> seen;
    for (int number = 1; number < 40; ++number) {
        auto const run = inChild([&] {
            List got;
            {
                AllocationFailure const failure(number);
                got = read("SELECT 'a'", my.get());
            }
            return got == List{"failed", "Query error: "} ? 7 : 0;
        });
        if (run.status == 7) {
            EXPECT_EQ(run.err, "System error: Cannot allocate memory\n\nSystem error 12: Cannot "
                               "allocate memory\n");
            seen.emplace_back();
        }
    }
    EXPECT_EQ(seen.size(), 2U) << "one for the copy of the name, one for the array";
}

TEST_F(MailDatabaseNamesOnHost, AreAskedForByTheirStatements)
{
    for (Getter const& getter : getters())
        EXPECT_EQ(getter.call(), 0);
    EXPECT_THAT(
        queries(),
        ElementsAre(
            "SELECT da.name FROM domainaliases da JOIN domains d WHERE da.dom_id=d.id and "
            "d.name='d.test'",
            "SELECT ma.alias FROM mail_aliases ma JOIN mail m, domains d WHERE ma.mn_id=m.id AND "
            "m.mail_name='joe' AND m.dom_id=d.id AND d.name='d.test'",
            "SELECT m.mail_name FROM mail m JOIN domains d WHERE m.dom_id=d.id AND "
            "d.name='d.test'",
            "SELECT d.name FROM domains d JOIN domainaliases da WHERE d.id=da.dom_id AND "
            "da.name='a.test'"));
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(domain, nullptr);
}

TEST_F(MailDatabaseNamesOnHost, AreThoseOfTheDomainAskedFor)
{
    addDomain("d.test", {"a.test", "b.test"});
    addDomain("other.test", {"c.test"});
    addMailname("d.test", "joe", {"j", "jo"});
    addMailname("d.test", "ann");
    addMailname("other.test", "joe", {"x"});

    char** list = nullptr;
    ASSERT_EQ(get_domaliases_by_domain(nullptr, &list, "d.test"), 0);
    EXPECT_THAT(stringsOf(StringArray(list)), UnorderedElementsAre("a.test", "b.test"));
    ASSERT_EQ(get_aliases_by_mailname(nullptr, &list, "joe", "d.test"), 0);
    EXPECT_THAT(stringsOf(StringArray(list)), UnorderedElementsAre("j", "jo"));
    ASSERT_EQ(get_mailnames_by_domain(nullptr, &list, "d.test"), 0);
    EXPECT_THAT(stringsOf(StringArray(list)), UnorderedElementsAre("joe", "ann"));
    ASSERT_EQ(get_domain_by_domainalias(nullptr, &domain, "c.test"), 0);
    EXPECT_STREQ(CString(domain).get(), "other.test");
}

TEST_F(MailDatabaseNamesOnHost, AreThoseOfTheCallersConnection)
{
    addDomain("d.test", {"a.test"});
    OpenMysql const my(db_connect());
    char** list = nullptr;
    ASSERT_EQ(get_domaliases_by_domain(my.get(), &list, "d.test"), 0);
    EXPECT_THAT(stringsOf(StringArray(list)), ElementsAre("a.test"));
    ASSERT_EQ(get_domain_by_domainalias(my.get(), &domain, "a.test"), 0);
    EXPECT_STREQ(CString(domain).get(), "d.test");
    EXPECT_EQ(panel.spy.connects.size(), 1U);
}

TEST_F(MailDatabaseNamesOnHost, LeaveTheDomainAloneWhenTheAliasIsUnknown)
{
    char here[] = "here";
    domain = here;
    EXPECT_EQ(get_domain_by_domainalias(nullptr, &domain, "unknown.test"), 0);
    EXPECT_EQ(domain, here);
}

TEST_F(MailDatabaseNamesOnHost, TakeTheFirstOfSeveralDomains)
{
    addDomain("first", {"a.test"});
    addDomain("second");
    ASSERT_THAT(panel.sql("ALTER TABLE domainaliases DROP INDEX name"), IsEmpty());
    ASSERT_THAT(panel.sql("INSERT INTO domainaliases (dom_id, name) SELECT id, 'a.test' FROM "
                          "domains WHERE name = 'second'"),
                IsEmpty());
    ASSERT_EQ(get_domain_by_domainalias(nullptr, &domain, "a.test"), 0);
    panel.sql("DELETE FROM domainaliases");
    panel.sql("ALTER TABLE domainaliases ADD UNIQUE name (name)");
    EXPECT_STREQ(CString(domain).get(), "first");
}

TEST_F(MailDatabaseNamesOnHost, ReportAfterAFailedConnectionWhatTheyWere)
{
    panel.stop();
    expectEachToReport({not_connected});
}

TEST_F(MailDatabaseNamesOnHost, ReportAfterAFailedQueryWhatTheyWere)
{
    WithoutTable const without(panel, "domains");
    expectEachToReport({not_read});
}

TEST_F(MailDatabaseNamesOnHost, ReportAStatementThatCannotBeFormed)
{
    no_query_can_be_formed = true;
    for (Getter const& getter : getters()) {
        LogRecorder::reports().clear();
        EXPECT_EQ(getter.call(), -1);
        EXPECT_THAT(texts(), ElementsAre("Unable to create database query"));
    }
    no_query_can_be_formed = false;
}

TEST_F(MailDatabaseNamesOnHost, GoIntoTheStatementEscaped)
{
    std::vector<std::pair<std::string, std::string>> const escaped = {
        {"50%s%n", "50%s%n"},
        {"caf\xc3\xa9", "caf\xc3\xa9"},
        {"o'hara.test", "o\\'hara.test"},
        {"slash\\", "slash\\\\"},
        {"\"x\"", "\\\"x\\\""},
        {"x' UNION SELECT 'y", "x\\' UNION SELECT \\'y"},
    };
    for (auto const& [name, text] : escaped) {
        panel.spy.forget();
        EXPECT_EQ(get_mailnames_by_domain(nullptr, &names, name.c_str()), 0) << name;
        EXPECT_THAT(queries(), ElementsAre("SELECT m.mail_name FROM mail m JOIN domains d WHERE "
                                           "m.dom_id=d.id AND d.name='" +
                                           text + "'"));
    }
    EXPECT_EQ(names, nullptr);
}
