// mailname_delivery - delivery to the mailbox, in a mailname's delivery file
//
// The delivery file is .qmail in the mailname's home: a text file with one instruction per line.
//
//   | true                              neither mailbox nor forward; dotqmail_reset leaves it
//   | /usr/bin/deliverquota ./Maildir   delivers to the mailbox, within its quota
//   ./Maildir/                          the older form; every change of delivery removes it
//   &<address>                          forwards to an address, see mailname_forward
//
// Other lines are left alone. New lines go to the end of the file; "| true" stays when lines are
// added. After a change the file belongs to popuser and has mode 0600.
//
// Result: 0, or -1 after a report through messlog2. The lock covers one line at a time, so a
// line that moves to the end is missing for a moment.
//
// No command calls these; they are for callers to come: add_mailname_delivery,
// remove_mailname_delivery.

#ifndef MAILVEK_MAIL_LIB_HOME_MAILNAME_DELIVERY_H
#define MAILVEK_MAIL_LIB_HOME_MAILNAME_DELIVERY_H

// Creates a file that is missing.
[[nodiscard]] int dotqmail_add_delivery(char const* file);
// A missing file is a failure; a missing line is not.
[[nodiscard]] int dotqmail_remove_delivery(char const* file);
// Replaces the whole file. When that fails, the file stays as it was.
[[nodiscard]] int dotqmail_reset(char const* file);

// The same for a mailname's delivery file.
[[nodiscard]] int add_mailname_delivery(char const* MailName, char const* MailDomain);
[[nodiscard]] int remove_mailname_delivery(char const* MailName, char const* MailDomain);

#endif
