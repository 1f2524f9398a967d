#include "lib/conf/features.h"

#include <cstdio>
#include <cstring>

namespace {

bool is_boolean(char const* value)
{
    return strcmp(value, "true") == 0 || strcmp(value, "false") == 0;
}

} // namespace

int print_feature(char const* key, char const* value)
{
    int const printed = is_boolean(value) ? printf("$features['%s'] = %s;\n", key, value)
                                          : printf("$features['%s'] = \"%s\";\n", key, value);
    return printed > 0 ? 0 : -1;
}

int print_feature_array(char const* key, int count, keyval const* values)
{
    bool printed = printf("$features['%s'] = array(", key) > 0;
    for (int i = 0; i < count; ++i)
        printed = printf("'%s'=>'%s',", values[i].key, values[i].value) > 0 && printed;
    printed = printf(");\n") > 0 && printed;
    return printed ? 0 : -1;
}
