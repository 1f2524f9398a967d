// mail_database_names - lists of names from the panel's database
//
// my is an open connection, or null; then the function connects by db_connect and closes.
// Names are escaped before they go into a statement; the query of exec_mysql_query runs as it is.
//
// Result: 0, or -1 reported by orvek_log at priority 3. A list is a null-terminated array that
// the caller frees with free_array; it is null when there are no rows. A failure leaves the
// caller's variable as it was.
//
// No command calls these; they are for callers to come: exec_mysql_query, get_aliases_by_mailname,
// get_domain_by_domainalias, get_mailnames_by_domain.

#ifndef MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_NAMES_H
#define MAILVEK_MAIL_LIB_ALIASES_MAIL_DATABASE_NAMES_H

#include <mysql.h>

// The first column of all rows. A NULL is skipped.
int exec_mysql_query(MYSQL* my, char const* query, char*** names);

int get_domaliases_by_domain(MYSQL* my, char*** aliases, char const* domain);
int get_aliases_by_mailname(MYSQL* my, char*** names, char const* mailname, char const* domain);
int get_mailnames_by_domain(MYSQL* my, char*** names, char const* domain);

// The domain of an alias domain. The caller frees it with free. *domain stays as it was when there
// is none.
int get_domain_by_domainalias(MYSQL* my, char** domain, char const* alias);

#endif
