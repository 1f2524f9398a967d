// mail_auth_schema - what an empty mail authentication database is made of
//
// domains and users, with their foreign key emulated by triggers: to delete a domain deletes
// its users, and a user whose domain does not exist is rolled back. A status of 0 is enabled,
// 1 is disabled. users.name is the local part of the address alone.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_SCHEMA_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_SCHEMA_H

// One transaction in one line, for sqlite3_exec.
extern char const mail_auth_schema[];

#endif
