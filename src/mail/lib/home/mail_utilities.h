// mail_utilities - paths of a mailname's home and of its delivery file
//
// get_mailhome_path forms <root>/<domain>/<mailname>; get_dotqmail_path appends /.qmail. <root>
// is ORVEK_MAILNAMES_D of the product configuration, and the domain is put in its ASCII form.
//
// Result: 0, or -1 after a report through messlog2. These fail: a mailname that begins with
// anything but a letter, a digit, "_" or "-"; a domain without an ASCII form; a path that does
// not fit in size bytes.
//
// No command calls these; they are for callers to come: get_dotqmail_path, get_mailhome_path.

#ifndef MAILVEK_MAIL_LIB_HOME_MAIL_UTILITIES_H
#define MAILVEK_MAIL_LIB_HOME_MAIL_UTILITIES_H

#include <cstddef>

[[nodiscard]] int get_mailhome_path(char* path, std::size_t size, char const* MailName,
                                    char const* MailDomain);
[[nodiscard]] int get_dotqmail_path(char* path, std::size_t size, char const* MailName,
                                    char const* MailDomain);

#endif
