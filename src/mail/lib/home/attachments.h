// attachments - the files that the panel keeps for a mailname's autoresponder
//
// They are the plain files in @attachments in the mailname's home, <root>/<domain>/<mailname>
// with the domain in its ASCII form; what they take counts against the mailbox's quota.
//
// The lists print a line for each file on standard output, in the order of the directory: its
// name, or with fullname its whole path; a tab; its size in bytes, or with in_blocks that of
// the blocks that it takes. The numbers in_blocks and fullname are read as booleans. A name is
// printed as it stands, even one that holds a tab or a line break. Directories are passed over.
//
// Result: 0, or -1 after a report through messlog2. A domain without an ASCII form ends the
// process with status 1. Paths are cut at 4095 characters, without a report. A mailname or an
// attachment's name that would lead out of its directory, one with a "/" perhaps, is refused
// as an invalid argument.

#ifndef MAILVEK_MAIL_LIB_HOME_ATTACHMENTS_H
#define MAILVEK_MAIL_LIB_HOME_ATTACHMENTS_H

// A MailName that is null or empty ends the process with status 1. A file that cannot be looked
// at ends the list.
[[nodiscard]] int list_attachments(char const* MailName, char const* DomainName, short in_blocks,
                                   short fullname);

// The list of each mailname of the domain. Lists that fail are reported and do not count.
[[nodiscard]] int list_all_attachments(char const* DomainName, short in_blocks, short fullname);

// Copies FileName, over an attachment that there may be. The copy has mode 0644.
[[nodiscard]] int add_attachment(char const* MailName, char const* DomainName, char const* FileName,
                                 char const* AttachmentFileName);

// A missing file counts as removed.
[[nodiscard]] int remove_attachment(char const* MailName, char const* DomainName,
                                    char const* AttachmentFileName);

#endif
