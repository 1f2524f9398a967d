// line_edit - the edit of file_strings, without its lock and without setting the owner
//
// old is the file's stat, or null when the file is missing. The new content is in <filename>.tmp,
// which is always made new, with a mode no wider than the file's, until that is renamed over the
// file. Result and failures are those of file_strings.

#ifndef MAILVEK_LIB_FILES_LINE_EDIT_H
#define MAILVEK_LIB_FILES_LINE_EDIT_H

#include "lib/files/file_str.h"

struct stat;

int edit_lines(char const* filename, struct stat const* old, char const* const* strs,
               file_action_t cmd, file_pos_t set);

#endif
