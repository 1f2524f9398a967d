// plain_names - names that are only names in every language that they reach
//
// A name from the command line becomes a directory, a key or a value of a map, a line of a
// delivery file, a text in SQL or a parameter of main.cf. A plain name has no byte that any of
// them reads as more than a part of the name: no blank, no control byte, no quote, no separator.
// A name with such a byte is valid nowhere in a panel.

#ifndef MAILVEK_LIB_NAMES_PLAIN_NAMES_H
#define MAILVEK_LIB_NAMES_PLAIN_NAMES_H

#include <string_view>

// Letters, digits, "-", "_" and ".", as a domain has in its ASCII form. Not empty, at most 255
// bytes, and no empty label: ".." and a dot at either end are refused. A hyphen at the beginning is
// refused too, because programs take it for an option.
bool is_plain_domain(std::string_view name);

// Everything but control bytes, the blank, and @ , / " \ | ` < > ( ) [ ] : ; . Bytes from 128 on
// are plain. Not empty, not "." or "..", and "#" is not its first byte, which begins a comment.
bool is_plain_local_part(std::string_view name);

// A plain local part, "@" and a plain domain.
bool is_plain_address(std::string_view address);

#endif
