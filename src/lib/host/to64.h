// to64 - random characters for the salt of a password
//
// Writes n random characters of itoa64 to s and no NUL. They come from rand: seed it to get other
// characters each time.
//
// No command calls these; they are for callers to come: to64.

#ifndef MAILVEK_LIB_HOST_TO64_H
#define MAILVEK_LIB_HOST_TO64_H

inline constexpr char itoa64[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
static_assert(sizeof itoa64 == 64 + 1);

void to64(char* s, int n);

#endif
