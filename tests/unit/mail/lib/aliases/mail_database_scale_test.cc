#include "lib/text/string.h"
#include "mail/lib/aliases/mail_database.h"
#include "support/panel_mail_test.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <string>

using ::testing::IsEmpty;

namespace {

constexpr int few = 250;
constexpr int many = 2000; // eight times as many

class MailDatabaseScaleOnHost : public PanelMailTest
{
protected:
    // While this lives, the panel's table has the index that a table of this size needs.
    class Indexed
    {
    public:
        explicit Indexed(PanelDatabase& panel) : panel(panel)
        {
            panel.sql("CREATE INDEX scale ON mail_aliases (mn_id)");
        }
        ~Indexed() { panel.sql("DROP INDEX scale ON mail_aliases"); }
        Indexed(Indexed const&) = delete;
        Indexed& operator=(Indexed const&) = delete;

    private:
        PanelDatabase& panel;
    };

    // Makes a domain with two domain aliases and count mailnames, each with one mail alias and a
    // user in the authentication database. One more mailname, "all", has count mail aliases.
    void fill(int count)
    {
        panel.sql("DELETE FROM mail_aliases");
        panel.sql("DELETE FROM mail");
        panel.sql("DELETE FROM domainaliases");
        panel.sql("DELETE FROM domains");
        addDomain("d.test", {"a.test", "b.test"});
        std::string const n = std::to_string(count);
        EXPECT_THAT(panel.sql("INSERT INTO mail (mail_name, dom_id) SELECT CONCAT('m', seq), id "
                              "FROM seq_1_to_" +
                              n + ", domains"),
                    IsEmpty());
        panel.sql("INSERT INTO mail_aliases (mn_id, alias) SELECT id, CONCAT(mail_name, '.alias') "
                  "FROM mail");
        addMailname("d.test", "all");
        panel.sql("INSERT INTO mail_aliases (mn_id, alias) SELECT id, CONCAT('x', seq) FROM mail, "
                  "seq_1_to_" +
                  n + " WHERE mail_name = 'all'");
        sql("DELETE FROM domains");
        EXPECT_THAT(
            sql("BEGIN; INSERT INTO domains (name) VALUES ('d.test'); "
                "WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c WHERE n < " +
                n +
                ") INSERT INTO users (dom_id, name, userPassword) SELECT d.id, 'm' || n, "
                "'secret' FROM c, domains d; COMMIT"),
            IsEmpty());
    }

    struct Cost
    {
        long connections;
        double seconds; // of this process
    };

    Cost costOf(int expected, std::function<int()> const& operation)
    {
        panel.spy.forget();
        spy.forget();
        long const before = panel.connections();
        clock_t const start = clock();
        EXPECT_EQ(operation(), expected);
        clock_t const end = clock();
        EXPECT_THAT(reports(), IsEmpty());
        // The connection that asks counts itself.
        return {panel.connections() - before - 1, double(end - start) / CLOCKS_PER_SEC};
    }

    // Expects one connection and as many queries for any number of names. Quadratic work would take
    // 64 times as long for eight times the names.
    void expectToScale(int expected, std::function<int()> const& operation)
    {
        Indexed const indexed(panel);
        fill(few);
        Cost const small = costOf(expected, operation);
        std::size_t const asked = queries().size();
        fill(many);
        Cost const large = costOf(expected, operation);
        EXPECT_EQ(small.connections, 1);
        EXPECT_EQ(large.connections, 1);
        EXPECT_EQ(queries().size(), asked);
        EXPECT_LE(asked, 3U);
        EXPECT_LT(large.seconds, 24 * small.seconds + 0.1);
        RecordProperty("seconds_for_many", std::to_string(large.seconds));
    }

    std::string countOf(char const* domain)
    {
        return sql(std::string("SELECT COUNT(*) FROM users u JOIN domains d ON u.dom_id = d.id "
                               "WHERE d.name = '") +
                   domain + "'")
            .at(0);
    }
};

} // namespace

TEST_F(MailDatabaseScaleOnHost, AddsADomainAliasOverOneConnection)
{
    expectToScale(1, [] { return add_domain_auth_alias("d.test", "a.test"); });
    EXPECT_EQ(countOf("a.test"), std::to_string(many));
}

TEST_F(MailDatabaseScaleOnHost, RemovesADomainAliasOverOneConnection)
{
    expectToScale(0, [] { return rm_domain_auth_alias("a.test"); });
}

TEST_F(MailDatabaseScaleOnHost, SetsThePasswordOfAllMailAliasesOverOneConnection)
{
    expectToScale(1, [] { return set_mass_postbox_passwd("all", "d.test", "secret", 0); });
    EXPECT_EQ(countOf("b.test"), std::to_string(many + 1));
}

TEST_F(MailDatabaseScaleOnHost, RemovesAllMailAliasesOverOneConnection)
{
    expectToScale(1, [] { return rm_mails_from_domains("all", "d.test"); });
}

TEST_F(MailDatabaseScaleOnHost, ReadsALongListInLinearTime)
{
    auto const read = [](char const* rows) {
        return [rows] {
            char** names = nullptr;
            int const result = exec_mysql_query(nullptr, rows, &names);
            free_array(names);
            return result;
        };
    };
    Cost const small = costOf(0, read("SELECT seq FROM seq_1_to_10000"));
    Cost const large = costOf(0, read("SELECT seq FROM seq_1_to_80000"));
    EXPECT_LT(large.seconds, 24 * small.seconds + 0.1);
}
