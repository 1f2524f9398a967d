// read_configuration - the reader of the product's configuration file
//
// A line has a name of letters, digits and underscores, white space, and a value. The value ends
// at a "#" or at the end of the line. There is no quoting. Blank lines and lines that begin with
// "#" are ignored. Other lines are reported and skipped. The last definition of a name wins.
// A line may have any length.
//
// White space after a value: an odd run, with the newline, loses its last character. An even run
// loses nothing.
//
// Entries live in a conf_data. The caller allocates it with calloc and passes it to conf_free_r
// in the end. The conf_data owns all its strings.
//
// All reports go through orvek_log at the priority of a user warning (12), which the console
// logger does not print by default. After a failure errno tells its reason.

#ifndef MAILVEK_LIB_CONF_READ_CONFIGURATION_H
#define MAILVEK_LIB_CONF_READ_CONFIGURATION_H

#include <cstddef>

struct conf_entry
{
    char* key;
    char* value;
};

// data has size slots: the first nmemb are used, the others are null. finalized is not 0 while
// data is sorted by key.
struct conf_data
{
    conf_entry* data;
    size_t size;
    size_t nmemb;
    int finalized;
};

// Makes room for one more entry. Returns 0, or -1 with errno ENOMEM. A failure to grow has been
// reported; a failure to make the first 20 slots has not.
int conf_init_r(conf_data* pconf);

// Stores copies of both strings and frees an earlier value of the name. Returns 0, or -1 with
// errno ENOMEM.
int conf_set_r(char const* name, char const* value, conf_data* pconf);

// Adds the definitions of one file. Returns 0, or -1; the entries read until then stay in pconf.
int conf_read_file_r(char const* conf_file, conf_data* pconf);

// The value, which belongs to pconf, or null.
char const* conf_get_r(char const* name, conf_data const* pconf);

// Frees the entries, the array and pconf itself. pconf may be null.
void conf_free_r(conf_data* pconf);

// Orders two conf_entry by key, for qsort, bsearch, lsearch and lfind.
int cmp_conf(void const* e1, void const* e2);

#endif
