// file_name - words that name one entry of a directory
//
// is_file_name is true for a word that names an entry of its directory and cannot lead out of it:
// it is not empty, not "." or "..", and has no "/".
// unforeseeable_characters are six letters and digits that nobody can guess.

#ifndef MAILVEK_LIB_BENEATH_FILE_NAME_H
#define MAILVEK_LIB_BENEATH_FILE_NAME_H

#include <string>
#include <string_view>

[[nodiscard]] bool is_file_name(std::string_view word);
[[nodiscard]] std::string unforeseeable_characters();

#endif
