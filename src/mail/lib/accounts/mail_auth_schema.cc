#include "mail/lib/accounts/mail_auth_schema.h"

// Deliberate: cmusaslsecretPLAIN holds the encrypted password, in spite of its name, and
// userPassword the plain one. The mail server knows the columns by these names.
char const mail_auth_schema[] =
    "BEGIN TRANSACTION;"
    "CREATE TABLE domains (  id     INTEGER PRIMARY KEY AUTOINCREMENT, name   VARCHAR(255) UNIQUE, "
    "status INTEGER NOT NULL DEFAULT 0);"
    "CREATE INDEX domains_name ON domains(name);"
    "CREATE TRIGGER fkd_users_domains_id  BEFORE DELETE ON domains  FOR EACH ROW BEGIN    DELETE "
    "FROM users WHERE dom_id = OLD.id;  END;"
    "CREATE TABLE users(  id           INTEGER PRIMARY KEY AUTOINCREMENT, dom_id       INTEGER NOT "
    "NULL, name         VARCHAR(255) NOT NULL, userPassword VARCHAR(255), cmusaslsecretPLAIN "
    "VARCHAR(255), status INT NOT NULL DEFAULT 0, UNIQUE(name, dom_id));"
    "CREATE INDEX users_name ON users(name);"
    "CREATE INDEX users_dom_id ON users(dom_id);"
    "CREATE TRIGGER fki_users_domains_id  BEFORE INSERT ON users  FOR EACH ROW BEGIN    SELECT "
    "RAISE(ROLLBACK, 'insert on table \"users\" violates foreign key constraint "
    "\"fk_domains_id\"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;"
    "CREATE TRIGGER fku_users_domains_id  BEFORE UPDATE ON users  FOR EACH ROW BEGIN    SELECT "
    "RAISE(ROLLBACK, 'update on table \"users\" violates foreign key constraint "
    "\"fk_domains_id\"')    WHERE (SELECT id FROM domains WHERE id = NEW.dom_id) IS NULL;  END;"
    "COMMIT;";
