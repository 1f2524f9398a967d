// dot_qmail_lines - what the changes of a delivery file have in common
//
// A delivery file is made of lines; see mailname_delivery. A line given here has no newline.

#ifndef MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H
#define MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H

// Removes a line if it is there. That it cannot be removed, for want of a file perhaps, does
// not count and leaves no trace in errno.
void dotqmail_drop_line(char const* file, char const* line);

// Puts a line at the end of the file, which is created if it is missing; where the line stood
// before, it is removed. 0, or -1 after a report through messlog2.
[[nodiscard]] int dotqmail_put_line(char const* file, char const* line);

// Gives the file to popuser, with mode 0600. 0, or -1 after a report through messlog2.
[[nodiscard]] int dotqmail_set_rights(char const* file);

#endif
