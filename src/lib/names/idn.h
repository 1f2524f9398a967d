// idn - domain names between UTF-8 and the ASCII form in which they are stored
//
// All conversions are Libidn's, with flags 0. The strings returned are for free, except that
// of idn_url_toascii. A conversion that fails leaves Libidn's result in idn_errno, for
// idn_strerror. An allocation that fails ends the process, reported through messlog2.
//
// The _safe forms never return null: where the others do they report through messlog2, which
// ends the process with status 1.

#ifndef MAILVEK_LIB_NAMES_IDN_H
#define MAILVEK_LIB_NAMES_IDN_H

// The last result of Libidn that made a conversion fail; a success leaves it as it is.
extern int idn_errno;

// The ASCII form of a domain in UTF-8, or null.
char* idn_toascii(char const* domain);
char* idn_toascii_safe(char const* domain);

// The UTF-8 form of a domain in ASCII. After a failure whatever Libidn left, null or not.
char* idn_toutf8(char const* domain);
char* idn_toutf8_safe(char const* domain);

// The address with the part behind its first "@" in the ASCII form. Null, without a report,
// for an address that has no "@". A domain that cannot be converted comes out as "(null)".
char* idn_email_toascii(char const* email);
char* idn_email_toascii_safe(char const* email);

// The URL with its host in the ASCII form; scheme, user, port and path stay as they are. In a
// static buffer of 4096 bytes, which the next call overwrites. Null, reported through
// messlog2, when there is no host, when it cannot be converted, or when it or the result does
// not fit, which counts as a conversion of invalid length.
char* idn_url_toascii(char const* url);

#endif
