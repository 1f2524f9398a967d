#include "lib/conf/autoprepend.h"

#include "lib/conf/read_configuration.h"
#include "lib/report/liblog.h"

#include <cstdlib>
#include <cstring>

conf_data* theOrvConfHash = nullptr;
std::array<char const*, orv_conf_var_count> theOrvConfArray;
int arrayInitialized = 0;

namespace {

constexpr char configuration_file[] = "/etc/orv/orv.conf";

void initialize_array()
{
    if (arrayInitialized)
        return;
    theOrvConfArray.fill(nullptr);
    arrayInitialized = 1;
}

} // namespace

int autoprepend()
{
    if (theOrvConfHash)
        return 0;
    initialize_array();
    auto* const conf = static_cast<conf_data*>(calloc(1, sizeof(conf_data)));
    if (!conf) {
        messlog2(0, 0, "Not enough memory to allocate Orvek runtime configuration structure\n");
        return -1;
    }
    if (conf_read_file_r(configuration_file, conf) != 0) {
        conf_free_r(conf);
        return -1;
    }
    theOrvConfHash = conf;
    return 0;
}

char const* orvConfGet(char const* name)
{
    if (!theOrvConfHash && autoprepend() != 0)
        return nullptr;
    return conf_get_r(name, theOrvConfHash);
}

char const* orvConfGetByIndex(OrvConfVarIndexT i)
{
    initialize_array();
    if (!theOrvConfArray[i])
        theOrvConfArray[i] = orvConfGet(theOrvConfNames[i]);
    return theOrvConfArray[i];
}

char const* orvConfGetDefaultByIndex(OrvConfVarIndexT i)
{
    char const* const value = orvConfGetByIndex(i);
    return value ? value : theOrvConfDefauls[i];
}

char const* orvConfGetDefault(char const* name)
{
    // Deliberate: the last row is never searched, the first one is.
    for (unsigned int i = 0; i < _MAX_POSSIBLE_ORV_CONF_VAR_INDEX; ++i)
        if (strcmp(name, theOrvConfNames[i]) == 0)
            return orvConfGetDefaultByIndex(static_cast<OrvConfVarIndexT>(i));
    messlog2(0, 0, "variable '%s' isn't found neither in %s nor in compile-time defaults\n", name,
             configuration_file);
    return nullptr;
}
