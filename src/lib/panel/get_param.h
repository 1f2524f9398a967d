// get_param - parameters and other single values of the panel's database
//
// The rules of get.h hold, with one exception: a missing row and a NULL value give the empty text,
// so null is always a failure. The three functions that take no statement use the buffer of
// get_param_query.
//
// No command calls these; they are for callers to come: get_htype, get_param_from_bigquery,
// get_param_query.

#ifndef MAILVEK_LIB_PANEL_GET_PARAM_H
#define MAILVEK_LIB_PANEL_GET_PARAM_H

#include <mysql.h>

// The first column of the statement's first row.
char const* get_param_query(char const* query, MYSQL* my);

// Column val_col of the table's first row whose param_col equals param_name.
char const* get_param_simple(char const* param_name, char const* table, char const* param_col,
                             char const* val_col, MYSQL* my);

// A parameter of the panel: table misc.
char const* get_param(char const* par_name, MYSQL* my);

// Column num, counted from 0, of the statement's first row; a column that the row does not have
// is NULL.
char const* get_param_from_bigquery(char const* query, MYSQL* my, unsigned int num);

// How a domain is hosted.
char const* get_htype(char const* dom_id, MYSQL* my);

#endif
