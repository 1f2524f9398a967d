#include "mail/lib/accounts/mail_auth_users.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "mail/lib/accounts/mail_auth_connection.h"
#include "mail/lib/accounts/mail_auth_domains.h"

#include <syslog.h>

namespace {

constexpr char set_plain[] =
    "INSERT OR REPLACE INTO users (name, userPassword, status, dom_id) VALUES (?, ?, ?, ?)";
constexpr char set_crypted[] =
    "INSERT OR REPLACE INTO users (name, cmusaslsecretPLAIN, status, dom_id) VALUES (?, ?, ?, ?)";
constexpr char remove_user[] = "DELETE FROM users WHERE name=? AND dom_id=?";
constexpr char rename_user[] = "UPDATE users SET name=? WHERE name=? AND dom_id=?";

constexpr char no_such_domain[] = "No such domain '%s' in the mail authentication DB";
constexpr char mailname_not_bound[] =
    "Unable to bind parameter mailname '%s' to  SQL statement for query '%s': %s";
constexpr char domain_id_not_bound[] = "Unable to bind parameter domain ID for mail address "
                                       "'%s@%s' to  SQL statement for query '%s': %s";

} // namespace

int mailAuthSet(char const* mailName, char const* mailDomain, char const* password,
                MailAuthFlagsT flags)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0)
        return -1;
    long long const id = getDomainId(mailDomain, db, flags & MAIL_DOMAIN_AUTH_DISABLED);
    if (id == -1)
        return db.failure(no_such_domain, mailDomain);

    char const* const query = flags & MAIL_AUTH_CRYPTED ? set_crypted : set_plain;
    if (db.prepare(query) != 0)
        return -1;
    if (!db.bind(1, mailName))
        return db.failure(
            "Unable to bind parameter mailname '%s' to SQL statement for query '%s': %s", mailName,
            query, db.message());
    if (!db.bind(2, password))
        return db.failure("Unable to bind parameter password for mail address '%s@%s' to SQL "
                          "statement for query '%s': %s",
                          mailName, mailDomain, query, db.message());
    if (!db.bind(3, flags & MAIL_AUTH_DISABLED ? 1 : 0))
        return db.failure("Unable to bind parameter status for mail address '%s@%s' to  SQL "
                          "statement for query '%s': %s",
                          mailName, mailDomain, query, db.message());
    if (!db.bind(4, id))
        return db.failure(domain_id_not_bound, mailName, mailDomain, query, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the mail authorization registration query: %s",
                          db.message());
    return db.finish();
}

int mailAuthRemove(char const* mailName, char const* mailDomain)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0)
        return -1;
    long long const id = getDomainId(mailDomain, db, MAIL_AUTH_DO_NOT_CHANGE);
    // Deliberate: a failed look-up counts as a missing domain. finish fails here only after a
    // failed wait.
    if (id == -1)
        return db.finish();

    if (db.prepare(remove_user) != 0)
        return -1;
    if (!db.bind(1, mailName))
        return db.failure(mailname_not_bound, mailName, remove_user, db.message());
    if (!db.bind(2, id))
        return db.failure(domain_id_not_bound, mailName, mailDomain, remove_user, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the mail authorization removal query: %s",
                          db.message());
    return db.finish();
}

int mailAuthRename(char const* oldMailName, char const* newMailName, char const* mailDomain)
{
    MailAuthConnection db;
    if (db.openForWriting() != 0)
        return -1;
    long long const id = getDomainId(mailDomain, db, MAIL_AUTH_DO_NOT_CHANGE);
    if (id == -1)
        return db.failure(no_such_domain, mailDomain);

    if (db.prepare(rename_user) != 0)
        return -1;
    if (!db.bind(1, newMailName))
        return db.failure(
            "Unable to bind parameter new mailname '%s' to  SQL statement for query '%s': %s",
            newMailName, rename_user, db.message());
    if (!db.bind(2, oldMailName))
        return db.failure(
            "Unable to bind parameter old mailname '%s' to  SQL statement for query '%s': %s",
            oldMailName, rename_user, db.message());
    if (!db.bind(3, id))
        return db.failure(domain_id_not_bound, oldMailName, mailDomain, rename_user, db.message());
    if (db.step() != SQLITE_DONE)
        return db.failure("Unable to execute the mail authorization renaming query: %s",
                          db.message());
    return db.finish();
}

int mailAuthClone(char const* oldName, char const* oldDomain, char const* newName,
                  char const* newDomain)
{
    passwd_type_t user = {};
    if (get_user_data(&user, oldName, oldDomain) == -1) {
        orvek_log(LOG_ERR, "Unable to get users list from MTA password database");
        return -1;
    }
    CString const name(user.name);
    CString const passwd(user.passwd);
    if (!name)
        return 0;
    return mailAuthSet(newName, newDomain, passwd.get(), user.flags);
}

int set_postbox_passwd(char const* mailName, char const* mailDomain, char const* password,
                       MailAuthFlagsT flags)
{
    int const result = password && *password ? mailAuthSet(mailName, mailDomain, password, flags)
                                             : mailAuthRemove(mailName, mailDomain);
    return result == 0 ? 0 : -1;
}
