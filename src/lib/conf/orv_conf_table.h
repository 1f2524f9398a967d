// orv_conf_table - the variables of the product configuration and their defaults
//
// OrvConfVarIndexT is the index of both arrays. The first and the last row mark the ends and are
// not variables of the file. The panel's other utilities have the same table; this tool reads
// four of its rows.

#ifndef MAILVEK_LIB_CONF_ORV_CONF_TABLE_H
#define MAILVEK_LIB_CONF_ORV_CONF_TABLE_H

#include <array>

enum OrvConfVarIndexT
{
    _MIN_POSSIBLE_ORV_CONF_VAR_INDEX = 0,
    _ORVEK_MAILNAMES_D_INDEX = 1,
    _COURIER_IMAP_ROOT_D_INDEX = 2,
    _RBLSMTPD_INDEX = 3,
    _CLIENT_PHP_BIN_INDEX = 4,
    _LIB_CRYPTO_PATH_INDEX = 5,
    _LIB_SSL_PATH_INDEX = 6,
    _AWSTATS_DOC_D_INDEX = 7,
    _AWSTATS_TOOLS_D_INDEX = 8,
    _AWSTATS_BIN_D_INDEX = 9,
    _AWSTATS_ETC_D_INDEX = 10,
    _CATALINA_HOME_INDEX = 11,
    _MAILMAN_VAR_D_INDEX = 12,
    _MAILMAN_ROOT_D_INDEX = 13,
    _PGSQL_DATA_D_INDEX = 14,
    _PGSQL_BIN_D_INDEX = 15,
    _MYSQL_BIN_D_INDEX = 16,
    _MYSQL_VAR_D_INDEX = 17,
    _WEB_STAT_INDEX = 18,
    _DUMP_D_INDEX = 19,
    _DUMP_TMP_D_INDEX = 20,
    _NAMED_RUN_ROOT_D_INDEX = 21,
    _FTPD_CONF_INC_INDEX = 22,
    _HTTPD_SERVICE_INDEX = 23,
    _HTTPD_LOG_D_INDEX = 24,
    _HTTPD_INCLUDE_D_INDEX = 25,
    _HTTPD_CONF_D_INDEX = 26,
    _HTTPD_VHOSTS_D_INDEX = 27,
    _PRODUCT_ROOT_D_INDEX = 28,
    _NAMED_OPTIONS_CONF_INDEX = 29,
    _NAMED_ZONES_CONF_INDEX = 30,
    _MAX_POSSIBLE_ORV_CONF_VAR_INDEX = 31,
};

constexpr int orv_conf_var_count = _MAX_POSSIBLE_ORV_CONF_VAR_INDEX + 1;
static_assert(orv_conf_var_count == 32);

extern std::array<char const*, orv_conf_var_count> const theOrvConfNames;
// Deliberate: spelled so for every utility that shares the table.
extern std::array<char const*, orv_conf_var_count> const theOrvConfDefauls;

#endif
