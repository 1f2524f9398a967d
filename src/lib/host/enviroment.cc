#include "lib/host/enviroment.h"

#include "lib/host/to64.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>

#include <crypt.h>

namespace {

constexpr char plain_variable[] = "ORV_PASSWORD";
constexpr char crypted_variable[] = "ORV_CRYPTED_PASSWORD";
constexpr size_t buffer_size = 4096;

// The values that take_env_passwords() took out of the environment, or null.
char const* taken_plain = nullptr;
char const* taken_crypted = nullptr;

char const*& taken(char const* variable)
{
    return variable == plain_variable ? taken_plain : taken_crypted;
}

// The variable's value, or null when it is unset or empty.
char const* value_of(char const* variable)
{
    char const* const kept = taken(variable);
    char const* const value = kept ? kept : getenv(variable);
    return value && *value ? value : nullptr;
}

// The value's string stays valid.
void forget(char const* variable)
{
    taken(variable) = nullptr;
    unsetenv(variable);
}

bool take(char const* variable, char const** password)
{
    char const* const value = value_of(variable);
    if (!value)
        return false;
    *password = value;
    forget(variable);
    return true;
}

// Encrypts with a new salt. The result is crypt's static storage.
char const* encrypted(char const* password)
{
    constexpr int drawn = 8;
    char salt[] = "$1$........";
    to64(salt + sizeof salt - 1 - drawn, drawn);
    char const* const result = crypt(password, salt);
    return result ? result : "*0";
}

} // namespace

void take_env_passwords()
{
    for (char const* const variable : {plain_variable, crypted_variable}) {
        char const* const value = value_of(variable);
        forget(variable);
        taken(variable) = value;
    }
}

int get_env_password(char const** password, int* isEncrypted)
{
    // Deliberate: a plain password that is found leaves the encrypted one where it is.
    if (take(plain_variable, password)) {
        *isEncrypted = 0;
        return 0;
    }
    if (take(crypted_variable, password)) {
        *isEncrypted = 1;
        return 0;
    }
    return -1;
}

char* get_env_noncrypted_password()
{
    static char buffer[buffer_size];
    if (*buffer)
        return buffer;
    char const* const password = value_of(plain_variable);
    snprintf(buffer, sizeof buffer, "%s", password ? password : "");
    forget(plain_variable);
    return buffer;
}

char* get_env_crypted_password()
{
    static char buffer[buffer_size];
    if (*buffer)
        return buffer;

    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): a salt has to differ, not to be secret
    srand(static_cast<unsigned int>(time(nullptr)));
    char const* const plain = value_of(plain_variable);
    char const* const crypted = value_of(crypted_variable);
    char const* const result = plain ? encrypted(plain) : crypted ? crypted : encrypted("");
    snprintf(buffer, sizeof buffer, "%s", result);
    forget(plain_variable);
    forget(crypted_variable);
    return buffer;
}
