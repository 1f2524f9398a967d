// mail_auth_schema - the tables of the mail authentication database
//
// Two tables, domains and users. Triggers emulate their foreign key: deleting a domain deletes its
// users, and a user whose domain does not exist is rolled back. A status of 0 is enabled, 1 is
// disabled. users.name is only the local part of the address.

#ifndef MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_SCHEMA_H
#define MAILVEK_MAIL_LIB_ACCOUNTS_MAIL_AUTH_SCHEMA_H

// One transaction in one line, for sqlite3_exec.
extern char const mail_auth_schema[];

#endif
