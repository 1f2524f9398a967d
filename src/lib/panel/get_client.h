// get_client - what the panel's database says of a domain's owner
//
// The rules of get.h hold.
//
// No command calls these; they are for callers to come: get_client_email, get_client_id_by_domain.

#ifndef MAILVEK_LIB_PANEL_GET_CLIENT_H
#define MAILVEK_LIB_PANEL_GET_CLIENT_H

#include <mysql.h>

// The client's address. Without one, or without such a domain, that of the panel's administrator.
// If neither is known, that is a failure.
char const* get_client_email(char const* dom_id, MYSQL* my);

// 0 also when there is no such domain.
unsigned int get_client_id_by_domain(char const* dom_id, MYSQL* my);

#endif
