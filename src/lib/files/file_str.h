// file_str - adding and removing lines of a file, under its lock
//
// file_strings works with each string of the null-terminated strs, file_str with one string. A
// rewrite writes the new content to <filename>.tmp, renames that over the file, and gives it the
// file's owner and mode. The lock is that of mk_lock(filename, 1), so the file itself is never
// opened for locking.
//
//   FILE_ADD, FILE_END      adds the strings at the end, each as a line; creates the file
//   FILE_ADD, FILE_BEGIN    the same before the first line; the file must exist
//   FILE_ADD, other         does nothing
//   FILE_REMOVE             removes the lines that equal a string, whether or not the string
//                           ends in a newline; a missing file fails without a report
//   FILE_REMSUB, FILE_BEGIN removes the lines that begin with a string,
//   FILE_REMSUB, FILE_END   ... that end with it, without their newline,
//   FILE_REMSUB, FILE_MID   ... that contain it
//
// A line of more than 4094 characters is compared piece by piece.
//
// Result: 0 or 1. Failures are reported through messlog2, and the temporary file stays. A line that
// cannot be written to it ends the process with status 1.

#ifndef MAILVEK_LIB_FILES_FILE_STR_H
#define MAILVEK_LIB_FILES_FILE_STR_H

enum file_action_t
{
    FILE_ADD = 0,
    FILE_REMOVE = 1,
    FILE_REMSUB = 2,
};

enum file_pos_t
{
    FILE_BEGIN = 0,
    FILE_END = 1,
    FILE_MID = 2,
};

int file_strings(char const* filename, char const* const* strs, file_action_t cmd, file_pos_t set);
int file_str(char const* filename, char const* str, file_action_t cmd, file_pos_t set);

#endif
