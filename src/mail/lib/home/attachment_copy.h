// attachment_copy - copies an upload into a mailname's store of attachments
//
// Copies source to the path copy, over an attachment of that name, with mode 0644. source must be
// a regular file with one name and at most 1 GiB, and the caller's own unless the caller is root;
// none of its mode comes over. copy lies in a
// directory of the mail user's: no link on the way is followed, and a file that is there must be
// regular with one name. A source that is the copy itself is done at once.
//
// Result: 0, or 1 after a report through messlog2, which does not end the process; what was copied
// until then stays. A lock that cannot be released is reported and does not count; a mode that
// cannot be set does not count.

#ifndef MAILVEK_MAIL_LIB_HOME_ATTACHMENT_COPY_H
#define MAILVEK_MAIL_LIB_HOME_ATTACHMENT_COPY_H

[[nodiscard]] int copy_attachment(char const* source, char const* copy);

#endif
