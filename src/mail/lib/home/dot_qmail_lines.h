// dot_qmail_lines - steps that all changes of a delivery file share
//
// mailname_delivery tells the file's form. Lines are given here without a newline.

#ifndef MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H
#define MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H

// Removes a line if it is there. Failures, such as a missing file, do not count; errno is kept.
void dotqmail_drop_line(char const* file, char const* line);

// Moves or adds a line to the end of the file, and creates a missing file. 0, or -1 after a
// report through messlog2.
[[nodiscard]] int dotqmail_put_line(char const* file, char const* line);

// Gives the file to popuser, with mode 0600. 0, or -1 after a report through messlog2.
[[nodiscard]] int dotqmail_set_rights(char const* file);

#endif
