#include "lib/conf/orv_conf_table.h"

#include <algorithm>

namespace {

struct Variable
{
    OrvConfVarIndexT index;
    char const* name;
    char const* fallback;
};

constexpr Variable variables[] = {
    {_MIN_POSSIBLE_ORV_CONF_VAR_INDEX, "_MIN_POSSIBLE_ORV_CONF_VAR_NAME",
     "_MIN_POSSIBLE_ORV_CONF_VAR_VALUE"},
    {_ORVEK_MAILNAMES_D_INDEX, "ORVEK_MAILNAMES_D", "/var/qmail/mailnames"},
    {_COURIER_IMAP_ROOT_D_INDEX, "COURIER_IMAP_ROOT_D", "/"},
    {_RBLSMTPD_INDEX, "RBLSMTPD", "/usr/sbin/rblsmtpd"},
    {_CLIENT_PHP_BIN_INDEX, "CLIENT_PHP_BIN", "/usr/local/orv/bin/php-cli"},
    {_LIB_CRYPTO_PATH_INDEX, "LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
    {_LIB_SSL_PATH_INDEX, "LIB_SSL_PATH", "/lib/libssl.so"},
    {_AWSTATS_DOC_D_INDEX, "AWSTATS_DOC_D", "/usr/share/apache2/icons/awstats"},
    {_AWSTATS_TOOLS_D_INDEX, "AWSTATS_TOOLS_D", "/usr/share/awstats"},
    {_AWSTATS_BIN_D_INDEX, "AWSTATS_BIN_D", "/srv/www/cgi-bin/awstats"},
    {_AWSTATS_ETC_D_INDEX, "AWSTATS_ETC_D", "/etc/awstats"},
    {_CATALINA_HOME_INDEX, "CATALINA_HOME", "/usr/share/tomcat6"},
    {_MAILMAN_VAR_D_INDEX, "MAILMAN_VAR_D", "/var/lib/mailman"},
    {_MAILMAN_ROOT_D_INDEX, "MAILMAN_ROOT_D", "/usr/lib/mailman"},
    {_PGSQL_DATA_D_INDEX, "PGSQL_DATA_D", "/var/lib/pgsql/data"},
    {_PGSQL_BIN_D_INDEX, "PGSQL_BIN_D", "/usr/bin"},
    {_MYSQL_BIN_D_INDEX, "MYSQL_BIN_D", "/usr/bin"},
    {_MYSQL_VAR_D_INDEX, "MYSQL_VAR_D", "/var/lib/mysql"},
    {_WEB_STAT_INDEX, "WEB_STAT", "/usr/bin/webalizer"},
    {_DUMP_D_INDEX, "DUMP_D", "/var/lib/orv/dumps"},
    {_DUMP_TMP_D_INDEX, "DUMP_TMP_D", "/tmp"},
    {_NAMED_RUN_ROOT_D_INDEX, "NAMED_RUN_ROOT_D", "/var/lib/named"},
    {_FTPD_CONF_INC_INDEX, "FTPD_CONF_INC", "/etc/proftpd.include"},
    {_HTTPD_SERVICE_INDEX, "HTTPD_SERVICE", "apache2"},
    {_HTTPD_LOG_D_INDEX, "HTTPD_LOG_D", "/var/log/apache2"},
    {_HTTPD_INCLUDE_D_INDEX, "HTTPD_INCLUDE_D", "/etc/apache2/conf.d"},
    {_HTTPD_CONF_D_INDEX, "HTTPD_CONF_D", "/etc/apache2"},
    {_HTTPD_VHOSTS_D_INDEX, "HTTPD_VHOSTS_D", "/srv/www/vhosts"},
    {_PRODUCT_ROOT_D_INDEX, "PRODUCT_ROOT_D", "/usr/local/orv"},
    {_NAMED_OPTIONS_CONF_INDEX, "NAMED_OPTIONS_CONF", "/etc/named.conf.include.orvek-options"},
    {_NAMED_ZONES_CONF_INDEX, "NAMED_ZONES_CONF", "/etc/named.conf.include.orvek-zones"},
    {_MAX_POSSIBLE_ORV_CONF_VAR_INDEX, "_MAX_POSSIBLE_ORV_CONF_VAR_NAME",
     "_MAX_POSSIBLE_ORV_CONF_VAR_VALUE"},
};
static_assert(std::size(variables) == orv_conf_var_count);

constexpr bool in_order()
{
    for (int i = 0; i < orv_conf_var_count; ++i)
        if (variables[i].index != i)
            return false;
    return true;
}
static_assert(in_order());

constexpr std::array<char const*, orv_conf_var_count> column(char const* Variable::*field)
{
    std::array<char const*, orv_conf_var_count> texts{};
    std::transform(std::begin(variables), std::end(variables), texts.begin(),
                   [field](Variable const& variable) { return variable.*field; });
    return texts;
}

} // namespace

constinit std::array<char const*, orv_conf_var_count> const theOrvConfNames =
    column(&Variable::name);
constinit std::array<char const*, orv_conf_var_count> const theOrvConfDefauls =
    column(&Variable::fallback);
