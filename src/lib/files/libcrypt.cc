#include "lib/files/libcrypt.h"

#include "lib/report/failure.h"

#include <openssl/evp.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct FreeDigest
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

bool update(EVP_MD_CTX* context, char const* text)
{
    return !text || EVP_DigestUpdate(context, text, strlen(text)) == 1;
}

} // namespace

char* get_md5sum(char const* digest, char const* non_encrypted, char* result)
{
    unsigned char sum[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    std::unique_ptr<EVP_MD_CTX, FreeDigest> const context(EVP_MD_CTX_new());
    bool const made = context && EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) == 1 &&
                      update(context.get(), digest) && update(context.get(), non_encrypted) &&
                      EVP_DigestFinal_ex(context.get(), sum, &length) == 1;
    // Going on without a sum would let two processes lock different files for one path.
    if (!made)
        fatal("Unable to compute an MD5 sum");

    for (unsigned int i = 0; i < length; ++i)
        snprintf(result + std::size_t{2} * i, 3, "%02x", sum[i]);
    return result;
}
