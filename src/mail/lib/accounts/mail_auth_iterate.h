// mail_auth_iterate - passes the users of the mail authentication database to a visitor
//
// The visitor gets the plain password, without MAIL_AUTH_CRYPTED, if it is not empty; else the
// encrypted one with that flag; else the empty plain one. A user whose passwords are both NULL is
// reported and skipped. A disabled user and a disabled domain each set a flag.
//
// A visitor must not change the database: the read lock of the iteration would block the change.
//
// All return -1 after a failure, which orvek_log has reported.
//
// No command calls these; they are for callers to come: doIterateDB, mailAuthCheck,
// mailAuthCheckShort, mailAuthIterateAll, prepareIterateDBQuery.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_ITERATE_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_ITERATE_H

#include "mail/lib/accounts/mail_auth_flags.h"

struct sqlite3;
struct sqlite3_stmt;

// Both strings are valid only during the call. A result above 0 continues an iteration.
using MailAuthVisitor = int (*)(char const* mailAddress, char const* password, MailAuthFlagsT flags,
                                void* data);

// One user by full address, split at its first "@". The visitor's result, or 1 when the user does
// not exist.
int mailAuthCheck(char const* mailAddress, MailAuthVisitor checkerFunc, void* data);

// The users with that local part in any domain; all users, sorted by domain and name. The result
// is that of doIterateDB.
int mailAuthCheckShort(char const* mailname, MailAuthVisitor checkerFunc, void* data);
int mailAuthIterateAll(MailAuthVisitor checkerFunc, void* data);

// Opens the database and prepares the selection of all users. predicate narrows or sorts it and may
// be null or empty. 0 and a connection and statement for doIterateDB; or -1 with everything closed
// and both left as they were.
int prepareIterateDBQuery(sqlite3** pdb, sqlite3_stmt** pPStmt, char const* predicate);

// Passes each row to the visitor until it returns 0 or less. Takes ownership of connection and
// statement and closes them. The visitor's last result; 1 when there was no user.
int doIterateDB(sqlite3* db, sqlite3_stmt* pStmt, MailAuthVisitor checkerFunc, void* data);

#endif
