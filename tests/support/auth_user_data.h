// auth_user_data - the result of get_user_data, as one text

#ifndef MAILVEK_TESTS_SUPPORT_AUTH_USER_DATA_H
#define MAILVEK_TESTS_SUPPORT_AUTH_USER_DATA_H

#include "lib/report/owned.h"
#include "mail/lib/accounts/mail_auth_users.h"

#include <gtest/gtest.h>

#include <string>

// Name, password and flags, separated by "|". Only the result when that is not 1.
inline std::string dataOf(char const* name, char const* domain)
{
    passwd_type_t data = {};
    int const result = get_user_data(&data, name, domain);
    CString const owned_name(data.name);
    CString const owned_passwd(data.passwd);
    if (result != 1) {
        EXPECT_EQ(data.name, nullptr);
        EXPECT_EQ(data.passwd, nullptr);
        return std::to_string(result);
    }
    return std::string(data.name) + "|" + (data.passwd ? data.passwd : "(null)") + "|" +
           std::to_string(data.flags);
}

#endif
