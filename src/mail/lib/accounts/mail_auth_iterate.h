// mail_auth_iterate - showing the users of the mail authentication database to a visitor
//
// The visitor gets the plain password without MAIL_AUTH_CRYPTED if there is one that is not
// empty, else the encrypted one with that flag, else the empty plain one. Users whose passwords
// are both NULL are not shown, which is reported. A disabled user and a disabled domain have a
// flag each.
//
// The database is read while the visitor runs, so a visitor must not change it: its own read
// lock would hold the change off.
//
// All return -1 after a failure, which has been reported by orvek_log.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_ITERATE_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_ITERATE_H

#include "mail/lib/accounts/mail_auth_flags.h"

struct sqlite3;
struct sqlite3_stmt;

// Both strings live only during the call. In an iteration a result above 0 asks for the next user.
using MailAuthVisitor = int (*)(char const* mailAddress, char const* password, MailAuthFlagsT flags,
                                void* data);

// One user by full address, which is cut at its first "@". The visitor's result, or 1 when there
// is no such user.
int mailAuthCheck(char const* mailAddress, MailAuthVisitor checkerFunc, void* data);

// Every domain's user of that local part; all users, by domain and name. The result is that of
// doIterateDB.
int mailAuthCheckShort(char const* mailname, MailAuthVisitor checkerFunc, void* data);
int mailAuthIterateAll(MailAuthVisitor checkerFunc, void* data);

// Opens the database and prepares the selection of all users, narrowed or sorted by predicate
// unless that is null or empty. 0 with a connection and a statement for doIterateDB, or -1 with
// everything closed and both left alone.
int prepareIterateDBQuery(sqlite3** pdb, sqlite3_stmt** pPStmt, char const* predicate);

// Shows each row to the visitor until its result is not above 0, and owns and closes connection
// and statement. The visitor's last result; 1 when nobody was shown.
int doIterateDB(sqlite3* db, sqlite3_stmt* pStmt, MailAuthVisitor checkerFunc, void* data);

#endif
