#include "lib/host/enviroment.h"

#include "lib/host/to64.h"
#include "support/child_run.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include <crypt.h>

namespace {

bool crypt_is_broken = false;

} // namespace

extern "C" {

char* __real_crypt(char const* phrase, char const* setting);

char* __wrap_crypt(char const* phrase, char const* setting)
{
    return crypt_is_broken ? nullptr : __real_crypt(phrase, setting);
}

} // extern "C"

namespace {

// Runs code in a child with these two variables; null means unset.
ChildRun withPasswords(char const* plain, char const* crypted, std::function<int()> const& code)
{
    return inChild([&] {
        unsetenv("ORV_PASSWORD");
        unsetenv("ORV_CRYPTED_PASSWORD");
        if (plain)
            setenv("ORV_PASSWORD", plain, 1);
        if (crypted)
            setenv("ORV_CRYPTED_PASSWORD", crypted, 1);
        return code();
    });
}

bool noneIsLeft()
{
    return !getenv("ORV_PASSWORD") && !getenv("ORV_CRYPTED_PASSWORD");
}

bool isEncryptionOf(std::string const& crypted, char const* password)
{
    return crypted.compare(0, 3, "$1$") == 0 && crypted.find_first_not_of(itoa64, 3) == 11 &&
           crypted[11] == '$' && crypted == __real_crypt(password, crypted.c_str());
}

} // namespace

TEST(GetEnvPassword, GivesThePlainPasswordAndRemovesIt)
{
    auto const run = withPasswords("secret", nullptr, [] {
        char const* password = nullptr;
        int isEncrypted = 7;
        int const result = get_env_password(&password, &isEncrypted);
        return result == 0 && std::string(password) == "secret" && isEncrypted == 0 && noneIsLeft()
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(GetEnvPassword, GivesTheEncryptedPasswordAndRemovesIt)
{
    auto const run = withPasswords(nullptr, "$1$hash", [] {
        char const* password = nullptr;
        int isEncrypted = 7;
        int const result = get_env_password(&password, &isEncrypted);
        return result == 0 && std::string(password) == "$1$hash" && isEncrypted == 1 && noneIsLeft()
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvPassword, PrefersThePlainOneAndLeavesTheOther)
{
    auto const run = withPasswords("secret", "$1$hash", [] {
        char const* password = nullptr;
        int isEncrypted = 7;
        get_env_password(&password, &isEncrypted);
        return std::string(password) == "secret" && isEncrypted == 0 && !getenv("ORV_PASSWORD") &&
                       std::string(getenv("ORV_CRYPTED_PASSWORD")) == "$1$hash"
                   ? 0
                   : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvPassword, TakesAnEmptyPlainPasswordAsUnset)
{
    auto const run = withPasswords("", "$1$hash", [] {
        char const* password = nullptr;
        int isEncrypted = 7;
        get_env_password(&password, &isEncrypted);
        return std::string(password) == "$1$hash" && isEncrypted == 1 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvPassword, FailsWhenBothAreUnsetOrEmpty)
{
    for (char const* const value : {static_cast<char const*>(nullptr), ""}) {
        auto const run = withPasswords(value, value, [] {
            char const* password = nullptr;
            int isEncrypted = 7;
            int const result = get_env_password(&password, &isEncrypted);
            return result == -1 && !password && isEncrypted == 7 ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "");
    }
}

TEST(GetEnvNoncryptedPassword, CopiesThePlainPasswordAndRemovesIt)
{
    auto const run = withPasswords("secret", "$1$hash", [] {
        char const* const first = get_env_noncrypted_password();
        if (std::string(first) != "secret" || getenv("ORV_PASSWORD") ||
            !getenv("ORV_CRYPTED_PASSWORD"))
            return 1;
        return get_env_noncrypted_password() == first && std::string(first) == "secret" ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvNoncryptedPassword, IsEmptyWithoutAPlainPassword)
{
    for (char const* const value : {static_cast<char const*>(nullptr), ""}) {
        auto const run = withPasswords(value, "$1$hash", [] {
            return *get_env_noncrypted_password() == '\0' && !getenv("ORV_PASSWORD") ? 0 : 1;
        });
        EXPECT_EQ(run.status, 0);
    }
}

TEST(GetEnvNoncryptedPassword, CutsAPasswordThatDoesNotFit)
{
    std::string const password(5000, 'p');
    auto const run = withPasswords(password.c_str(), nullptr, [] {
        return strlen(get_env_noncrypted_password()) == 4095 ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, EncryptsThePlainPasswordWithAnEightCharacterSalt)
{
    auto const run = withPasswords("secret", "$1$hash", [] {
        return isEncryptionOf(get_env_crypted_password(), "secret") && noneIsLeft() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
}

TEST(GetEnvCryptedPassword, DrawsTheSaltFromTheTime)
{
    auto const run = withPasswords("secret", nullptr, [] {
        time_t const begin = time(nullptr);
        std::string const crypted = get_env_crypted_password();
        for (time_t seed = begin; seed <= time(nullptr); ++seed) {
            char salt[9] = {};
            // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the test is that the seed is the time
            srand(static_cast<unsigned int>(seed));
            to64(salt, 8);
            if (crypted.compare(3, 8, salt) == 0)
                return 0;
        }
        return 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, StoresAnEncryptedPasswordAsItIs)
{
    auto const run = withPasswords("", "$1$hash", [] {
        return std::string(get_env_crypted_password()) == "$1$hash" && noneIsLeft() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, CutsAnEncryptedPasswordThatDoesNotFit)
{
    std::string const password(5000, 'p');
    auto const run = withPasswords(nullptr, password.c_str(), [] {
        return strlen(get_env_crypted_password()) == 4095 && noneIsLeft() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, EncryptsTheEmptyPasswordWhenThereIsNone)
{
    auto const run = withPasswords("", nullptr, [] {
        return isEncryptionOf(get_env_crypted_password(), "") && noneIsLeft() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, ReturnsWhatItMadeBefore)
{
    auto const run = withPasswords("secret", nullptr, [] {
        char const* const first = get_env_crypted_password();
        std::string const before = first;
        setenv("ORV_PASSWORD", "other", 1);
        return get_env_crypted_password() == first && first == before ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}

TEST(GetEnvCryptedPassword, MatchesNoPasswordWhenTheSystemCannotEncrypt)
{
    auto const run = withPasswords("secret", nullptr, [] {
        crypt_is_broken = true;
        return std::string(get_env_crypted_password()) == "*0" && noneIsLeft() ? 0 : 1;
    });
    EXPECT_EQ(run.status, 0);
}
