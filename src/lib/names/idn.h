// idn - domain names between UTF-8 and the ASCII form in which they are stored
//
// Libidn converts, with flags 0. The caller frees the results, except that of idn_url_toascii. A
// failed conversion leaves Libidn's result in idn_errno, for idn_strerror. A failed allocation is
// reported through messlog2 and ends the process.
//
// The _safe forms never return null: they report through messlog2 and end the process with
// status 1.
//
// No command calls these; they are for callers to come: idn_email_toascii_safe, idn_toascii_safe,
// idn_toutf8, idn_toutf8_safe, idn_url_toascii.

#ifndef MAILVEK_LIB_NAMES_IDN_H
#define MAILVEK_LIB_NAMES_IDN_H

// Libidn's result of the last conversion that failed. A success does not change it.
extern int idn_errno;

// The ASCII form of a domain in UTF-8, or null.
char* idn_toascii(char const* domain);
char* idn_toascii_safe(char const* domain);

// The UTF-8 form of a domain in ASCII. After a failure: what Libidn left, null or not.
char* idn_toutf8(char const* domain);
char* idn_toutf8_safe(char const* domain);

// The address with the part after its first "@" in the ASCII form. Null without a report for an
// address without "@". A domain that cannot be converted becomes "(null)".
char* idn_email_toascii(char const* email);
char* idn_email_toascii_safe(char const* email);

// The URL with its host in the ASCII form. Scheme, user, port and path stay. In a static buffer of
// 4096 bytes, which the next call overwrites. Null, reported through messlog2, without a host, for
// a host that cannot be converted, and when something does not fit, which counts as a conversion
// of invalid length.
char* idn_url_toascii(char const* url);

#endif
