// attachment_copy - copies an upload into a mailname's store of attachments
//
// Copies source to the path copy, which may replace an attachment, with mode 0644. source must be a
// regular file with one name and at most 1 GiB, and must belong to the caller unless the caller is
// root; its mode does not matter. The mail user owns the directory of copy: no link in the path is
// followed, and an existing file there must be regular with one name. A source that is the copy
// itself succeeds at once.
//
// Result: 0, or 1 after a report through messlog2, which does not end the process; the part that
// was copied stays. A lock that cannot be released is reported and does not count. A mode that
// cannot be set does not count.

#ifndef MAILVEK_MAIL_LIB_HOME_ATTACHMENT_COPY_H
#define MAILVEK_MAIL_LIB_HOME_ATTACHMENT_COPY_H

[[nodiscard]] int copy_attachment(char const* source, char const* copy);

#endif
