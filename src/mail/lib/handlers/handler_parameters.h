// handler_parameters - the files in a handler's descriptor directory
//
// The descriptor of a handler is the directory <handlers_info>/<its name>. Each parameter is a file
// of one line there: "hook", "context", "handler-type", and the value in a file named after the
// type. The symbolic link "executable" leads to the program. docs/formats.md describes the store.

#ifndef MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PARAMETERS_H
#define MAILVEK_MAIL_LIB_HANDLERS_HANDLER_PARAMETERS_H

#include <cstddef>
#include <memory>

constexpr char handlers_root[] = "/usr/local/orv/handlers";
constexpr char handlers_info[] = "/usr/local/orv/handlers/info";

// The buffer that a parameter is read into. A longer one cannot be read back.
constexpr std::size_t handler_parameter_size = 311;

// Whether the text can be a part of a path in the store and be read back from a parameter: a file
// name without control bytes and without white space at its ends.
[[nodiscard]] bool is_storable_name(char const* name);

// Whether the text is one line that can be read back. A null text is stored as none, and can.
[[nodiscard]] bool is_readable_line(char const* text);

// The value of a parameter, without white space at its ends. The caller frees it. Null, reported
// through orvek_log, when the file is missing, has more than 310 characters or cannot be read.
[[nodiscard]] char* get_handler_parameter(char const* name, char const* param);

// While one lives, each parameter is read once and kept. That is right for one command: the files
// of a descriptor do not change, and a new handler has a new name. Failures are not kept. Do not
// nest.
class HandlerStoreReading
{
public:
    HandlerStoreReading();
    ~HandlerStoreReading();
    HandlerStoreReading(HandlerStoreReading const&) = delete;
    HandlerStoreReading& operator=(HandlerStoreReading const&) = delete;

    // Forgets the parameters of a removed handler.
    static void forget(char const* name);

    class Kept;

private:
    std::unique_ptr<Kept> kept;
};

// Reads the parameter at path, which is <handlers_info>/<name>/<param>. As get_string_from_file.
[[nodiscard]] int read_handler_parameter(char (&value)[handler_parameter_size], char const* path,
                                         char const* name, char const* param);

// Writes the value and a newline to <dir>/<name>, with mode 0644. Does nothing for a null or empty
// value. 0, or -1, reported through messlog2, which may leave a part of the file.
[[nodiscard]] int string_to_file(char const* dir, char const* name, char const* value);

#endif
