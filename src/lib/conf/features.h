// features - lines of PHP that tell the panel what the mail back end can do
//
// Each call prints one assignment to the array $features on standard output. It returns 0, or -1
// when the line could not be printed. Keys and values must not have quotes: they are printed as
// they are. Standard output is not flushed.
//
// No command calls these; they are for callers to come: print_feature_array.

#ifndef MAILVEK_LIB_CONF_FEATURES_H
#define MAILVEK_LIB_CONF_FEATURES_H

struct keyval
{
    char const* key;
    char const* value;
};

// A PHP boolean for the values "true" and "false", a PHP string for any other.
int print_feature(char const* key, char const* value);

// A PHP array of the count pairs at values.
int print_feature_array(char const* key, int count, keyval const* values);

#endif
