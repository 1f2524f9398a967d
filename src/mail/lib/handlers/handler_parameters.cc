#include "mail/lib/handlers/handler_parameters.h"

#include "lib/beneath/file_name.h"
#include "lib/files/file_str.h"
#include "lib/files/libfile.h"
#include "lib/report/asprintf_safe.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/log_failure.h"
#include "lib/report/owned.h"
#include "lib/text/libsafe.h"
#include "lib/text/strlcpy.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include <sys/stat.h>

class HandlerStoreReading::Kept
{
public:
    using Parameters = std::unordered_map<std::string, std::string>;

    std::unordered_map<std::string, Parameters> handlers;

    // Null for a parameter that has not been read.
    std::string const* find(char const* name, char const* param) const
    {
        auto const handler = handlers.find(name);
        if (handler == handlers.end())
            return nullptr;
        auto const value = handler->second.find(param);
        return value == handler->second.end() ? nullptr : &value->second;
    }
};

namespace {

HandlerStoreReading::Kept* kept_parameters = nullptr;

std::string const* find_kept(char const* name, char const* param)
{
    return kept_parameters ? kept_parameters->find(name, param) : nullptr;
}

bool is_control_byte(unsigned char byte)
{
    return byte < 0x20 || byte == 0x7f;
}

bool is_blank(char byte)
{
    return isspace(static_cast<unsigned char>(byte)) != 0;
}

} // namespace

bool is_storable_name(char const* name)
{
    std::string_view const text = name ? name : "";
    return is_file_name(name ? name : "") && !is_blank(text.front()) && !is_blank(text.back()) &&
           std::ranges::none_of(text, is_control_byte);
}

bool is_readable_line(char const* text)
{
    return !text || (strlen(text) < handler_parameter_size && !strchr(text, '\n'));
}

HandlerStoreReading::HandlerStoreReading() : kept(std::make_unique<Kept>())
{
    kept_parameters = kept.get();
}

HandlerStoreReading::~HandlerStoreReading()
{
    kept_parameters = nullptr;
}

void HandlerStoreReading::forget(char const* name)
{
    if (kept_parameters)
        kept_parameters->handlers.erase(name);
}

int read_handler_parameter(char (&value)[handler_parameter_size], char const* path,
                           char const* name, char const* param)
{
    if (std::string const* const known = find_kept(name, param)) {
        strlcpy(value, known->c_str(), sizeof value);
        return 0;
    }
    int const result = get_string_from_file(value, sizeof value, path);
    if (result == 0 && kept_parameters)
        kept_parameters->handlers[name][param] = value;
    return result;
}

char* get_handler_parameter(char const* name, char const* param)
{
    char path[path_size];
    if (!is_file_name(name) || !is_file_name(param))
        return log_null("No such parameter '%s' for handler '%s'", param, name);
    if (!form_path(path, "%s/%s/%s", handlers_info, name, param)) {
        return log_null("either handler name '%s' or param '%s' are too long to be stored in the "
                        "filesystem",
                        name, param);
    }
    struct stat info = {};
    if (!find_kept(name, param) && stat(path, &info) != 0)
        return log_null("No such parameter '%s' for handler '%s'", param, name);
    char value[handler_parameter_size];
    if (read_handler_parameter(value, path, name, param) != 0)
        return log_null("Unable to get string from file: %s\n", strerror(errno));
    CString copy(strdup(value));
    if (!copy)
        return log_null("Unable to allocate sufficient memory: %s", strerror(errno));
    return copy.release();
}

int string_to_file(char const* dir, char const* name, char const* value)
{
    if (isempty(value))
        return 0;
    CString const path(asprintf_safe("%s/%s", dir, name));
    if (create_empty_file(path.get()) != 0)
        return failure(-1, "Unable to create file '%s'", path.get());
    if (file_str(path.get(), value, FILE_ADD, FILE_END) != 0)
        return failure(-1, "Unable to add string '%s' to '%s'", value, path.get());
    ErrnoKeeper const keeper;
    chmod(path.get(), 0644);
    return 0;
}
