#include "lib/conf/orv_conf_table.h"

#include <gtest/gtest.h>

#include <iterator>

TEST(OrvConfTable, HasEveryVariableAtItsIndexWithItsDefault)
{
    struct Row
    {
        size_t index;
        OrvConfVarIndexT enumerator;
        char const* name;
        char const* fallback;
    };
    constexpr Row rows[] = {
        {0, _MIN_POSSIBLE_ORV_CONF_VAR_INDEX, "_MIN_POSSIBLE_ORV_CONF_VAR_NAME",
         "_MIN_POSSIBLE_ORV_CONF_VAR_VALUE"},
        {1, _ORVEK_MAILNAMES_D_INDEX, "ORVEK_MAILNAMES_D", "/var/qmail/mailnames"},
        {2, _COURIER_IMAP_ROOT_D_INDEX, "COURIER_IMAP_ROOT_D", "/"},
        {3, _RBLSMTPD_INDEX, "RBLSMTPD", "/usr/sbin/rblsmtpd"},
        {4, _CLIENT_PHP_BIN_INDEX, "CLIENT_PHP_BIN", "/usr/local/orv/bin/php-cli"},
        {5, _LIB_CRYPTO_PATH_INDEX, "LIB_CRYPTO_PATH", "/lib/libcrypto.so"},
        {6, _LIB_SSL_PATH_INDEX, "LIB_SSL_PATH", "/lib/libssl.so"},
        {7, _AWSTATS_DOC_D_INDEX, "AWSTATS_DOC_D", "/usr/share/apache2/icons/awstats"},
        {8, _AWSTATS_TOOLS_D_INDEX, "AWSTATS_TOOLS_D", "/usr/share/awstats"},
        {9, _AWSTATS_BIN_D_INDEX, "AWSTATS_BIN_D", "/srv/www/cgi-bin/awstats"},
        {10, _AWSTATS_ETC_D_INDEX, "AWSTATS_ETC_D", "/etc/awstats"},
        {11, _CATALINA_HOME_INDEX, "CATALINA_HOME", "/usr/share/tomcat6"},
        {12, _MAILMAN_VAR_D_INDEX, "MAILMAN_VAR_D", "/var/lib/mailman"},
        {13, _MAILMAN_ROOT_D_INDEX, "MAILMAN_ROOT_D", "/usr/lib/mailman"},
        {14, _PGSQL_DATA_D_INDEX, "PGSQL_DATA_D", "/var/lib/pgsql/data"},
        {15, _PGSQL_BIN_D_INDEX, "PGSQL_BIN_D", "/usr/bin"},
        {16, _MYSQL_BIN_D_INDEX, "MYSQL_BIN_D", "/usr/bin"},
        {17, _MYSQL_VAR_D_INDEX, "MYSQL_VAR_D", "/var/lib/mysql"},
        {18, _WEB_STAT_INDEX, "WEB_STAT", "/usr/bin/webalizer"},
        {19, _DUMP_D_INDEX, "DUMP_D", "/var/lib/orv/dumps"},
        {20, _DUMP_TMP_D_INDEX, "DUMP_TMP_D", "/tmp"},
        {21, _NAMED_RUN_ROOT_D_INDEX, "NAMED_RUN_ROOT_D", "/var/lib/named"},
        {22, _FTPD_CONF_INC_INDEX, "FTPD_CONF_INC", "/etc/proftpd.include"},
        {23, _HTTPD_SERVICE_INDEX, "HTTPD_SERVICE", "apache2"},
        {24, _HTTPD_LOG_D_INDEX, "HTTPD_LOG_D", "/var/log/apache2"},
        {25, _HTTPD_INCLUDE_D_INDEX, "HTTPD_INCLUDE_D", "/etc/apache2/conf.d"},
        {26, _HTTPD_CONF_D_INDEX, "HTTPD_CONF_D", "/etc/apache2"},
        {27, _HTTPD_VHOSTS_D_INDEX, "HTTPD_VHOSTS_D", "/srv/www/vhosts"},
        {28, _PRODUCT_ROOT_D_INDEX, "PRODUCT_ROOT_D", "/usr/local/orv"},
        {29, _NAMED_OPTIONS_CONF_INDEX, "NAMED_OPTIONS_CONF",
         "/etc/named.conf.include.orvek-options"},
        {30, _NAMED_ZONES_CONF_INDEX, "NAMED_ZONES_CONF", "/etc/named.conf.include.orvek-zones"},
        {31, _MAX_POSSIBLE_ORV_CONF_VAR_INDEX, "_MAX_POSSIBLE_ORV_CONF_VAR_NAME",
         "_MAX_POSSIBLE_ORV_CONF_VAR_VALUE"},
    };
    ASSERT_EQ(theOrvConfNames.size(), std::size(rows));
    ASSERT_EQ(theOrvConfDefauls.size(), std::size(rows));
    for (Row const& row : rows) {
        EXPECT_EQ(row.enumerator, row.index) << row.name;
        EXPECT_STREQ(theOrvConfNames[row.index], row.name);
        EXPECT_STREQ(theOrvConfDefauls[row.index], row.fallback) << row.name;
    }
}
