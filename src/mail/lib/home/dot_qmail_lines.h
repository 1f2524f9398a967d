// dot_qmail_lines - a mailname's delivery file, open for changes
//
// mailname_delivery tells the file's form. Lines are given here without a newline. The file lies
// in a directory of the mail user's: it counts only when it is a regular file with one name and
// at most largest_delivery_file bytes, and no link on the way to it is followed. A file that is
// rewritten gets its new content beside it, as .qmail.tmp with its owner and mode, which is then
// renamed over it. Each change is made under the lock of the file's path, see op_locks.
//
// Failures are reported through messlog2, which does not end the process. A temporary file that
// could not be completed is left where it is.

#ifndef MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H
#define MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H

#include "lib/report/owned.h"

class DotQmail
{
public:
    // file is the whole path and has to live as long as the object.
    explicit DotQmail(char const* file);

    // Removes a line if it is there. Failures, such as a missing file, do not count; errno is kept.
    void drop_line(char const* line) const;

    // Moves or adds a line to the end of the file, and creates a missing file. A line that would
    // make the file too large is not added. 0 or -1.
    [[nodiscard]] int put_line(char const* line) const;

    // Removes all lines that equal this one. 0 or 1; a missing file gives 1 without a report.
    [[nodiscard]] int remove_line(char const* line) const;

    // Makes the file anew with one line, and removes it when that fails. 0 or -1.
    [[nodiscard]] int reset_to(char const* line) const;

    // Gives the file to popuser, with mode 0600. 0 or -1.
    [[nodiscard]] int set_rights_of_mail_user() const;

private:
    // Where the file lies; below 0, with the reason in error, when that cannot be opened.
    struct Home
    {
        explicit Home(char const* file);

        char const* name = nullptr;
        OpenDescriptor const directory;
        int const error;
    };

    template<typename Change>
    int under_lock(Change change) const;
    int look_at(struct stat& info, bool& exists) const;
    int append(char const* line) const;
    int rewrite_without(char const* line, struct stat const& old) const;
    OpenDescriptor open_for_reset() const;

    char const* const file;
    Home const home;
};

#endif
