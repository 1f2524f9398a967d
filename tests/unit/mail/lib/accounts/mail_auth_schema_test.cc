#include "mail/lib/accounts/mail_auth_schema.h"

#include "support/auth_database_test.h"

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

class MailAuthSchema : public AuthDatabaseTest
{
protected:
    void SetUp() override
    {
        AuthDatabaseTest::SetUp();
        sql("INSERT INTO domains (id, name) VALUES (1, 'a.com')");
    }
};

} // namespace

TEST_F(MailAuthSchema, IsOneTransactionInOneLine)
{
    EXPECT_THAT(mail_auth_schema, StartsWith("BEGIN TRANSACTION;CREATE TABLE domains (  id     "));
    EXPECT_THAT(mail_auth_schema, EndsWith(" IS NULL;  END;COMMIT;"));
    EXPECT_THAT(mail_auth_schema, Not(HasSubstr("\n")));
}

// clang-format off
TEST_F(MailAuthSchema, HasItsEightStatementsInOrderAndWordForWord)
{
    std::string script = "BEGIN TRANSACTION;";
    for (char const* const statement : {
        R"(CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, status INTEGER NOT NULL DEFAULT 0);)",
        R"(CREATE INDEX domains_name ON domains(name);)",
        R"(CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW BEGIN    DELETE FROM users WHERE dom_id = OLD.id;  END;)",
        R"(CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT NULL, name         VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN VARCHAR(255), status INT NOT NULL DEFAULT 0, UNIQUE(name, dom_id));)",
        R"(CREATE INDEX users_name ON users(name);)",
        R"(CREATE INDEX users_dom_id ON users(dom_id);)",
        R"(CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, 'insert on table "users" violates foreign key constraint "fk_domains_id"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;)",
        R"(CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN    SELECT RAISE(ROLLBACK, 'update on table "users" violates foreign key constraint "fk_domains_id"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;)"})
        script += statement;
    EXPECT_EQ(mail_auth_schema, script + "COMMIT;");
}
// clang-format on

TEST_F(MailAuthSchema, HasItsEightObjectsInOrder)
{
    EXPECT_THAT(sql("SELECT type, name, tbl_name FROM sqlite_master WHERE sql NOT NULL AND name "
                    "NOT LIKE 'sqlite%' ORDER BY rowid"),
                ElementsAre("table|domains|domains", "index|domains_name|domains",
                            "trigger|fkd_users_domains_id|domains", "table|users|users",
                            "index|users_name|users", "index|users_dom_id|users",
                            "trigger|fki_users_domains_id|users",
                            "trigger|fku_users_domains_id|users"));
}

TEST_F(MailAuthSchema, HasItsColumnsWithTheirDefaults)
{
    EXPECT_THAT(
        sql("SELECT name, type, \"notnull\", dflt_value, pk FROM pragma_table_info"
            "('domains')"),
        ElementsAre("id|INTEGER|0|NULL|1", "name|VARCHAR(255)|0|NULL|0", "status|INTEGER|1|0|0"));
    EXPECT_THAT(sql("SELECT name, type, \"notnull\", dflt_value, pk FROM pragma_table_info"
                    "('users')"),
                ElementsAre("id|INTEGER|0|NULL|1", "dom_id|INTEGER|1|NULL|0",
                            "name|VARCHAR(255)|1|NULL|0", "userPassword|VARCHAR(255)|0|NULL|0",
                            "cmusaslsecretPLAIN|VARCHAR(255)|0|NULL|0", "status|INT|1|0|0"));
}

TEST_F(MailAuthSchema, RefusesAUserWithoutADomain)
{
    EXPECT_THAT(sql("INSERT INTO users (name, dom_id) VALUES ('joe', 2)"),
                ElementsAre("error: insert on table \"users\" violates foreign key constraint "
                            "\"fk_domains_id\""));
    sql("INSERT INTO users (name, dom_id) VALUES ('joe', 1)");
    EXPECT_THAT(sql("UPDATE users SET dom_id=2"),
                ElementsAre("error: update on table \"users\" violates foreign key constraint "
                            "\"fk_domains_id\""));
    EXPECT_THAT(sql("SELECT name, dom_id FROM users"), ElementsAre("joe|1"));
}

TEST_F(MailAuthSchema, DeletesTheUsersOfADeletedDomain)
{
    sql("INSERT INTO domains (id, name) VALUES (2, 'b.com');"
        "INSERT INTO users (name, dom_id) VALUES ('joe', 1), ('joe', 2)");
    EXPECT_THAT(sql("DELETE FROM domains WHERE id=1"), IsEmpty());
    EXPECT_THAT(sql("SELECT name, dom_id FROM users"), ElementsAre("joe|2"));
}

TEST_F(MailAuthSchema, RefusesTheSameDomainOrUserTwice)
{
    EXPECT_THAT(sql("INSERT INTO domains (name) VALUES ('a.com')"),
                ElementsAre("error: UNIQUE constraint failed: domains.name"));
    EXPECT_THAT(sql("INSERT INTO users (name, dom_id) VALUES ('joe', 1), ('joe', 1)"),
                ElementsAre("error: UNIQUE constraint failed: users.name, users.dom_id"));
}
