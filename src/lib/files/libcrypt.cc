// The functions for MD5 alone, which OpenSSL calls deprecated. Its general ones set up the whole
// library first and read its configuration, which takes 0.8 ms: more than the rest of a start.
#define OPENSSL_API_COMPAT 10100

#include "lib/files/libcrypt.h"

#include "lib/report/failure.h"

#include <openssl/md5.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

bool update(MD5_CTX& context, char const* text)
{
    return !text || MD5_Update(&context, text, strlen(text)) == 1;
}

} // namespace

char* get_md5sum(char const* digest, char const* non_encrypted, char* result)
{
    unsigned char sum[MD5_DIGEST_LENGTH];
    MD5_CTX context;
    bool const made = MD5_Init(&context) == 1 && update(context, digest) &&
                      update(context, non_encrypted) && MD5_Final(sum, &context) == 1;
    // Going on without a sum would let two processes lock different files for one path.
    if (!made)
        fatal("Unable to compute an MD5 sum");

    for (std::size_t i = 0; i < sizeof sum; ++i)
        snprintf(result + std::size_t{2} * i, 3, "%02x", sum[i]);
    return result;
}
