// dot_qmail_lines - a mailname's delivery file, open for changes
//
// mailname_delivery.h describes the file's lines, which are passed here without a newline. The mail
// user owns the file's directory: the file must be regular, with one name and at most
// largest_delivery_file bytes, and no link in its path is followed. A rewrite writes the new
// content to .qmail.tmp, with the file's owner and mode, and renames it over the file. Each change
// holds the lock of the file's path, see op_locks.h.
//
// Failures are reported through messlog2, which does not end the process. An incomplete temporary
// file stays.

#ifndef MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H
#define MAILVEK_MAIL_LIB_HOME_DOT_QMAIL_LINES_H

#include "lib/beneath/rights.h"
#include "lib/report/owned.h"

class DotQmail
{
public:
    // file is the whole path. It must outlive the object.
    explicit DotQmail(char const* file);

    // Removes a line if it is there. Failures, such as a missing file, do not count; errno is kept.
    void drop_line(char const* line) const;

    // Moves or adds a line to the end of the file, and creates a missing file. A line that would
    // make the file too large is not added. 0 or -1.
    [[nodiscard]] int put_line(char const* line) const;

    // Removes all lines equal to this one. 0 or 1; a missing file gives 1 without a report.
    [[nodiscard]] int remove_line(char const* line) const;

    // Replaces the whole file by one line, which is written beside it and renamed over it. When
    // that fails, the file stays as it was. 0 or -1.
    [[nodiscard]] int reset_to(char const* line) const;

    // Gives the file to popuser, with mode 0600. 0 or -1.
    [[nodiscard]] int set_rights_of_mail_user() const;

private:
    // The file's directory. Below 0, with the reason in error, when it cannot be opened.
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
    int rewrite_without(char const* line) const;
    bool may_replace(Rights& rights) const;

    char const* const file;
    Home const home;
};

#endif
