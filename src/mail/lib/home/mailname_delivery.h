// mailname_delivery - delivery to the mailbox, in a mailname's delivery file
//
// The delivery file is .qmail in the mailname's home: a text file with one instruction a line.
//
//   | true                              neither mailbox nor forward; what a reset leaves
//   | /usr/bin/deliverquota ./Maildir   delivery to the mailbox, within its quota
//   ./Maildir/                          its older form, which is removed wherever it is found
//   &<address>                          forward to an address, see mailname_forward
//
// Other lines are left alone. New lines go to the end of the file; the line of a reset stays
// when others are added. After a change the file belongs to popuser and has mode 0600.
//
// Result: 0, or -1 after a report through messlog2. Each line that is added or removed is
// locked by itself, so that a line which moves to the end is missing for a moment.

#ifndef MAILVEK_MAIL_LIB_HOME_MAILNAME_DELIVERY_H
#define MAILVEK_MAIL_LIB_HOME_MAILNAME_DELIVERY_H

// Creates a file that is missing.
[[nodiscard]] int dotqmail_add_delivery(char const* file);
// A missing file is a failure; a missing line is not.
[[nodiscard]] int dotqmail_remove_delivery(char const* file);
// Makes the file anew. One that cannot be written to is removed.
[[nodiscard]] int dotqmail_reset(char const* file);

// The same for the delivery file of a mailname.
[[nodiscard]] int add_mailname_delivery(char const* MailName, char const* MailDomain);
[[nodiscard]] int remove_mailname_delivery(char const* MailName, char const* MailDomain);

#endif
