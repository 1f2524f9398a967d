// get_domain - what the panel's database says of a domain
//
// The rules of get.h hold.
//
// No command calls these; they are for callers to come: get_DomainService_Parameter,
// get_case_dom_name, get_dns_zone_id, get_dom_id, get_dom_id_by_alias, get_dom_id_noerr,
// get_dom_param, get_dom_status, get_exist_case_dom_name, get_free_id, get_www_prefix.

#ifndef MAILVEK_LIB_PANEL_GET_DOMAIN_H
#define MAILVEK_LIB_PANEL_GET_DOMAIN_H

#include <mysql.h>

// Returns 0, or -1, reported, also when there is no such domain. *status changes only when the
// value begins with a number. my must be open.
int get_dom_status(char const* dom_id, unsigned int* status, MYSQL* my);

char const* get_dom_param(char const* dom_id, char const* par_name, MYSQL* my);
char const* get_DomainService_Parameter(char const* dom_id, char const* service,
                                        char const* par_name, MYSQL* my);
char const* get_dom_Limit(char const* dom_id, char const* lim_name, MYSQL* my);

// 1 when the domain's zone has an A or CNAME record of a host "www.", or the domain a subdomain
// "www"; else 0.
int get_www_prefix(char const* dom_id, MYSQL* my);

// The id of a domain named in UTF-8. A failure ends the process with status 1. So does a missing
// domain, unless noerr is set: then the result is null without a report.
char const* get_dom_id_noerr(char const* dom_name, int noerr, MYSQL* my);
char const* get_dom_id(char const* dom_name, MYSQL* my);

// The name in lower case, no matter what the database holds.
char const* get_case_dom_name(char const* dom_name);

// The database's name of the domain, in lower case and in the buffer of get_case_dom_name. Null
// when there is none. A failure ends the process with status 1.
char const* get_exist_case_dom_name(char const* dom_name, MYSQL* my);

char const* get_dns_zone_id(char const* dom_id, MYSQL* my);

// The id of the domain that has this alias. A name too long for a statement of 4095 bytes is a
// failure.
char const* get_dom_id_by_alias(char const* alias_name, MYSQL* my);

// The highest id in a table plus one: 1 for an empty table, 0 after a failure. It is a failure,
// too, when the highest id is the highest long.
long get_free_id(char const* database, MYSQL* my);

#endif
