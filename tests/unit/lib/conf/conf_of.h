// conf_of - configurations for tests, with owners

#ifndef MAILVEK_TESTS_UNIT_LIB_CONF_CONF_OF_H
#define MAILVEK_TESTS_UNIT_LIB_CONF_CONF_OF_H

#include "lib/conf/read_configuration.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

struct FreeConf
{
    void operator()(conf_data* conf) const { conf_free_r(conf); }
};
using Conf = std::unique_ptr<conf_data, FreeConf>;

inline Conf newConf()
{
    return Conf(static_cast<conf_data*>(calloc(1, sizeof(conf_data))));
}

inline std::optional<std::string> lookup(Conf const& conf, char const* name)
{
    char const* const value = conf_get_r(name, conf.get());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

// The configuration read from a file with this text.
inline Conf confOf(std::string const& text)
{
    TempDir const dir;
    writeFile(dir / "conf", text);
    Conf conf = newConf();
    EXPECT_EQ(conf_read_file_r((dir / "conf").c_str(), conf.get()), 0);
    return conf;
}

#endif
