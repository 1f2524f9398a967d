// libcrypt - the MD5 sum behind the names of lock files
//
// get_md5sum writes the MD5 over digest and then non_encrypted, either of which may be null
// or empty, as 32 lower-case hexadecimal digits and a NUL into result, which has room for 33
// bytes, and returns result.

#ifndef MAILVEK_LIB_FILES_LIBCRYPT_H
#define MAILVEK_LIB_FILES_LIBCRYPT_H

char* get_md5sum(char const* digest, char const* non_encrypted, char* result);

#endif
