#include "mail/lib/home/dot_qmail_lines.h"

#include "lib/files/file_str.h"
#include "lib/files/libfile.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

void dotqmail_drop_line(char const* file, char const* line)
{
    ErrnoKeeper const keeper;
    static_cast<void>(file_str(file, line, FILE_REMOVE, FILE_BEGIN));
}

int dotqmail_put_line(char const* file, char const* line)
{
    dotqmail_drop_line(file, line);
    if (file_str(file, line, FILE_ADD, FILE_END) != 0)
        return failure(-1, "Unable to add string to %s file.", file);
    return 0;
}

int dotqmail_set_rights(char const* file)
{
    return file_set_user_mode(file, "popuser", 0600);
}
