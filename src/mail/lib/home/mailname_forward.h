// mailname_forward - forwards to other addresses, in a mailname's delivery file
//
// The file is that of mailname_delivery; a forward is a line in it, "&" and the address with
// its domain in the ASCII form. An address is given in either form. One that holds a line
// break is refused, for what stands behind the break would be an instruction of its own.
//
// Result: 0, or -1 after a report through messlog2.

#ifndef MAILVEK_MAIL_LIB_HOME_MAILNAME_FORWARD_H
#define MAILVEK_MAIL_LIB_HOME_MAILNAME_FORWARD_H

// Creates a file that is missing; a forward that is there moves to the end.
[[nodiscard]] int dotqmail_add_forward(char const* file, char const* Email);
// A missing file is a failure; a missing line is not.
[[nodiscard]] int dotqmail_remove_forward(char const* file, char const* Email);

// The same for the delivery file of a mailname.
[[nodiscard]] int add_mn_forward(char const* MailName, char const* MailDomain, char const* Email);
[[nodiscard]] int rm_mn_forward(char const* MailName, char const* MailDomain, char const* Email);

#endif
