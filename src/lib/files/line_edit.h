// line_edit - the edit itself of file_strings, without the lock and the owner
//
// old is what stat says of the file, null when it is missing. The new content lies in
// <filename>.tmp, made new, with no wider a mode than the file had, until it is renamed over the
// file. Result and failures are those of file_strings.

#ifndef MAILVEK_LIB_FILES_LINE_EDIT_H
#define MAILVEK_LIB_FILES_LINE_EDIT_H

#include "lib/files/file_str.h"

struct stat;

int edit_lines(char const* filename, struct stat const* old, char const* const* strs,
               file_action_t cmd, file_pos_t set);

#endif
