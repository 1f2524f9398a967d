// attachments - the files that the panel keeps for a mailname's autoresponder
//
// Attachments are the plain files in @attachments in the mailname's home, <root>/<domain>/
// <mailname> with the domain in its ASCII form. Their size counts against the mailbox's quota.
//
// The lists print one line per file on standard output, in the directory's order: the name, or with
// fullname the whole path; a tab; the size in bytes, or with in_blocks the size of the blocks that
// the file takes. in_blocks and fullname are numbers used as booleans. Control bytes of names are
// made visible, even tabs and line breaks, so that a file is one line whatever its name.
// Directories are skipped.
//
// Result: 0, or -1 after a report through messlog2. A domain without an ASCII form ends the
// process with status 1. Paths are cut at 4095 characters, without a report. A mailname or an
// attachment's name that is not a file name, such as one with a "/", is an invalid argument.

#ifndef MAILVEK_MAIL_LIB_HOME_ATTACHMENTS_H
#define MAILVEK_MAIL_LIB_HOME_ATTACHMENTS_H

// A null or empty MailName ends the process with status 1. The list stops at a file whose stat
// fails.
[[nodiscard]] int list_attachments(char const* MailName, char const* DomainName, short in_blocks,
                                   short fullname);

// Lists every mailname of the domain. A list that fails is reported and does not count.
[[nodiscard]] int list_all_attachments(char const* DomainName, short in_blocks, short fullname);

// Copies FileName and replaces an attachment of that name. The copy has mode 0644.
[[nodiscard]] int add_attachment(char const* MailName, char const* DomainName, char const* FileName,
                                 char const* AttachmentFileName);

// A missing file counts as removed.
[[nodiscard]] int remove_attachment(char const* MailName, char const* DomainName,
                                    char const* AttachmentFileName);

#endif
