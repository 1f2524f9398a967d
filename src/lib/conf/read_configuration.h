// read_configuration - the reader of the product's configuration file
//
// A line of the file is a name of letters, digits and underscores, white space, and a value
// that ends at a "#" or at the end of the line. There is no quoting. Blank lines and lines
// that begin with "#" are ignored, lines of any other form are reported and skipped. The last
// definition of a name wins. Lines have no length limit.
//
// White space behind a value: an odd run, the newline counted, loses its last character, an
// even run loses nothing.
//
// Entries live in a conf_data, which the caller allocates with calloc and gives back to
// conf_free_r. The conf_data owns all its strings.
//
// All reports go through orvek_log at the priority of a user warning (12), which the console
// logger does not print by default. errno is kept for the caller after a failure.

#ifndef MAILVEK_LIB_CONF_READ_CONFIGURATION_H
#define MAILVEK_LIB_CONF_READ_CONFIGURATION_H

#include <cstddef>

struct conf_entry
{
    char* key;
    char* value;
};

// data has size slots, of which the first nmemb are used and the others are null. finalized
// is non-zero while data is sorted by key.
struct conf_data
{
    conf_entry* data;
    size_t size;
    size_t nmemb;
    int finalized;
};

// Makes room for one more entry. 0, or -1 with errno ENOMEM; a failure to grow has been
// reported, a failure to make the first 20 slots has not.
int conf_init_r(conf_data* pconf);

// Stores copies of both strings; a value that the name had before is freed. 0, or -1 with
// errno ENOMEM.
int conf_set_r(char const* name, char const* value, conf_data* pconf);

// Adds the definitions of one file. 0, or -1, when entries read so far stay in pconf.
int conf_read_file_r(char const* conf_file, conf_data* pconf);

// The value, which belongs to pconf, or null.
char const* conf_get_r(char const* name, conf_data const* pconf);

// Frees the entries, the array and pconf itself. pconf may be null.
void conf_free_r(conf_data* pconf);

// Orders two conf_entry by key, for qsort, bsearch, lsearch and lfind.
int cmp_conf(void const* e1, void const* e2);

#endif
