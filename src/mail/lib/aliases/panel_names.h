// panel_names - the statements of mail_database on one connection
//
// The connection is the caller's or, when that is null, one of db_connect's: it is made at the
// first statement and kept for those that follow. Each statement fares as if it had a connection
// of its own: one that fails on a connection kept from another statement is repeated on a new
// one, and only what becomes of it there is reported.
//
// Result: 0, or -1 reported by orvek_log at priority 3, with the caller's variable left alone. A
// list is null when there are no rows.

#ifndef MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H
#define MAILVEK_MAIL_LIB_ALIASES_PANEL_NAMES_H

#include "lib/panel/dbconnect.h"
#include "lib/report/owned.h"
#include "lib/text/string.h"

class PanelNames
{
public:
    explicit PanelNames(MYSQL* my) : given(my) {}

    // The first column of all rows, but for NULLs.
    [[nodiscard]] int read(char const* query, StringArray* names);

    [[nodiscard]] int domain_aliases(char const* domain, StringArray* aliases);
    [[nodiscard]] int mail_aliases(char const* mailname, char const* domain, StringArray* aliases);
    [[nodiscard]] int mailnames(char const* domain, StringArray* names);
    // *domain stays as it was when there is none.
    [[nodiscard]] int domain_of_alias(char const* alias, CString* domain);

private:
    // Null after a failure, which has been reported.
    MysqlResult run(char const* query);

    MYSQL* const given;
    OpenMysql own;
};

#endif
