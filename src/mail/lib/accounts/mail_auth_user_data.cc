#include "lib/report/owned.h"
#include "mail/lib/accounts/mail_auth_connection.h"
#include "mail/lib/accounts/mail_auth_users.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr char select_domain[] = "SELECT id, status FROM domains WHERE name=?";
constexpr char select_user[] =
    "SELECT name, userPassword, cmusaslsecretPLAIN, status FROM users WHERE dom_id=? AND name=?";

struct DomainRow
{
    long long id;
    bool disabled;
};

struct UserRow
{
    CString name;
    CString passwd;
    int flags = 0;
};

// Returns 1, 0 or -1 as get_user_data does. Finalizes the statement except after a failure.
int find_domain(DomainRow* row, MailAuthConnection& db, char const* domain)
{
    if (db.prepare(select_domain) != 0)
        return -1;
    if (!db.bind(1, domain))
        return db.failure("Unable to bind parameter domain id for: %s: %s", domain, db.message());
    int const result = db.step();
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        db.stepFailure("Unable to get domain id: %s", db.message());
        return db.failure("Unable to get mail domain id for: %s", domain);
    }
    if (result == SQLITE_ROW)
        *row = {db.number(0), db.number(1) != 0};
    db.finalize();
    return result == SQLITE_ROW ? 1 : 0;
}

// Succeeds without a copy for a NULL column.
bool copy_column(CString* copy, char const* text)
{
    if (text)
        copy->reset(strdup(text));
    return !text || *copy;
}

bool copy_row(UserRow* row, MailAuthConnection const& db)
{
    char const* const secret = db.text(2);
    if (db.number(3) != 0)
        row->flags |= MAIL_AUTH_DISABLED;
    if (secret)
        row->flags |= MAIL_AUTH_CRYPTED;
    return copy_column(&row->name, db.text(0)) &&
           copy_column(&row->passwd, secret ? secret : db.text(1));
}

// Returns 1, 0 or -1 as get_user_data does. Closes the connection.
int find_user(UserRow* row, MailAuthConnection& db, DomainRow const& domain_row, char const* name,
              char const* domain)
{
    if (db.prepare(select_user) != 0)
        return -1;
    if (!db.bind(1, domain_row.id))
        return db.failure("Unable to bind parameter bind domain id for: %s: %s", domain,
                          db.message());
    if (!db.bind(2, name))
        return db.failure("Unable to bind parameter bind mailname %s: %s", name, db.message());
    int const result = db.step();
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        return db.failure("Unable to get passwd for mailname: %s: %s", name, db.message());
    if (result == SQLITE_ROW && !copy_row(row, db))
        return db.failure("System error: %s", strerror(errno));
    if (db.finish() != 0)
        return -1;
    return result == SQLITE_ROW ? 1 : 0;
}

} // namespace

int get_user_data(passwd_type_t* data, char const* name, char const* domain)
{
    *data = {};
    MailAuthConnection db;
    if (db.openForReading() != 0)
        return -1;
    DomainRow domain_row = {};
    int found = find_domain(&domain_row, db, domain);
    if (found == 0)
        return db.finish();
    if (found == -1)
        return -1;

    UserRow row;
    if (domain_row.disabled)
        row.flags |= MAIL_DOMAIN_AUTH_DISABLED;
    found = find_user(&row, db, domain_row, name, domain);
    if (found == 1)
        *data = {row.name.release(), row.passwd.release(), static_cast<MailAuthFlagsT>(row.flags)};
    return found;
}
