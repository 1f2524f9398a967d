// file_str - adding and removing lines of a file, under its lock
//
// file_strings works with each string of the null-terminated strs, file_str with the one
// given. A file that is rewritten gets its new content beside it, as <filename>.tmp, which is
// then renamed over it and gets the owner and the mode that the file had. The lock is the one
// of mk_lock(filename, 1), so that the file itself is never opened for it.
//
//   FILE_ADD, FILE_END      adds the strings at the end, each as a line; creates the file
//   FILE_ADD, FILE_BEGIN    the same before the first line; the file must exist
//   FILE_ADD, other         does nothing
//   FILE_REMOVE             removes the lines that equal a string, whether or not the string
//                           ends in a newline; a missing file fails without a report
//   FILE_REMSUB, FILE_BEGIN removes the lines that begin with a string,
//   FILE_REMSUB, FILE_END   ... that end with it, their newline not counted,
//   FILE_REMSUB, FILE_MID   ... that contain it
//
// Lines are looked at in pieces of at most 4094 characters.
//
// Result: 0 or 1. Failures are reported through messlog2 and leave the temporary file where it
// is; a line that cannot be written to it ends the process with status 1.

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
