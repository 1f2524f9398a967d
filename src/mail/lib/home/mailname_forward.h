// mailname_forward - forwards to other addresses, in a mailname's delivery file
//
// The file is mailname_delivery's. A forward is one line: "&" and the address, its domain in the
// ASCII form. Callers give an address in either form. An address with a line break is refused,
// since the text after the break would be an instruction of its own.
//
// Result: 0, or -1 after a report through messlog2.
//
// No command calls these; they are for callers to come: add_mn_forward, rm_mn_forward.

#ifndef MAILVEK_MAIL_LIB_HOME_MAILNAME_FORWARD_H
#define MAILVEK_MAIL_LIB_HOME_MAILNAME_FORWARD_H

// Creates a missing file. An existing forward moves to the end.
[[nodiscard]] int dotqmail_add_forward(char const* file, char const* Email);
// A missing file is a failure; a missing line is not.
[[nodiscard]] int dotqmail_remove_forward(char const* file, char const* Email);

// The same for a mailname's delivery file.
[[nodiscard]] int add_mn_forward(char const* MailName, char const* MailDomain, char const* Email);
[[nodiscard]] int rm_mn_forward(char const* MailName, char const* MailDomain, char const* Email);

#endif
