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

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <sys/stat.h>

namespace {

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
    if (stat(path, &info) != 0)
        return log_null("No such parameter '%s' for handler '%s'", param, name);
    char value[handler_parameter_size];
    if (get_string_from_file(value, sizeof value, path) != 0)
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
