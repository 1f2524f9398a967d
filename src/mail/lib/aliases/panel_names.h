// panel_names - the statements of mail_database on one connection
//
// The connection is the caller's. When that is null, the first statement connects by db_connect and
// the connection is kept for the next ones. A statement that fails on a kept connection is repeated
// on a new one, and only the second result is reported: so each statement behaves as if it had its
// own connection. Names are escaped for the connection before they go into a statement.
//
// Result: 0, or -1 reported by orvek_log at priority 3, with the caller's variable left as it was.
// A list is null when there are no rows.

#ifndef MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H
#define MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H

#include "lib/panel/dbconnect.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"

class PanelNames
{
public:
    explicit PanelNames(MYSQL* my) : given(my) {}

    // The first column of all rows, without NULLs.
    [[nodiscard]] int read(char const* query, StringArray* names);

    [[nodiscard]] int get_domaliases_by_domain(char const* domain, StringArray* aliases);
    [[nodiscard]] int get_aliases_by_mailname(char const* mailname, char const* domain,
                                              StringArray* aliases);
    [[nodiscard]] int get_mailnames_by_domain(char const* domain, StringArray* names);
    // *domain stays as it was when there is none.
    [[nodiscard]] int get_domain_by_domainalias(char const* alias, CString* domain);

private:
    // Null, reported, without a connection.
    MYSQL* connect();
    MYSQL* connection();
    CString escaped(char const* name);
    // Null, reported, after a failure.
    MysqlResult run(char const* query);

    MYSQL* const given;
    OpenMysql own;
    bool used = false; // by a statement, since which it may have broken
};

#endif
