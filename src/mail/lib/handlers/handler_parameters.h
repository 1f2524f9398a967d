// handler_parameters - the files in a handler's descriptor directory
//
// A handler's descriptor is the directory <handlers_info>/<its name>. Each parameter is a file
// of one line there: "hook", "context", "handler-type", and the value in a file named as the
// type. Its program is the symbolic link "executable". docs/formats.md has the whole store.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PARAMETERS_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PARAMETERS_H

#include <cstddef>

constexpr char handlers_root[] = "/usr/local/orv/handlers";
constexpr char handlers_info[] = "/usr/local/orv/handlers/info";

// Room for a parameter as it is read; a longer one cannot be read back.
constexpr std::size_t handler_parameter_size = 311;

// The value of a parameter, without white space at its ends, as a string that the caller
// frees. Null, reported through orvek_log, when there is none, when it has more than 310
// characters or cannot be read.
[[nodiscard]] char* get_handler_parameter(char const* name, char const* param);

// Makes <dir>/<name> a file of mode 0644 that holds the value and a newline. Nothing is done
// for a value that is null or empty. 0, or -1, reported through messlog2; the file stays as
// far as it got.
[[nodiscard]] int string_to_file(char const* dir, char const* name, char const* value);

#endif
