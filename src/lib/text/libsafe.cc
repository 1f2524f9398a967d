#include "lib/text/libsafe.h"

#include "lib/report/owned.h"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The closing square bracket and the braces are safe.
constexpr unsigned char unsafe_bytes[] = {
    '\t', '\n', ' ', '"', '#', '$', '&',  '\'', '(', ')',
    '*',  ';',  '<', '>', '?', '[', '\\', '`',  '|', '~',
};

constexpr std::array<char, 256> make_table()
{
    std::array<char, 256> table{};
    table.fill('-');
    for (unsigned char const byte : unsafe_bytes)
        table[byte] = '*';
    table['\n'] = 'n';
    return table;
}

bool is_safe(char c)
{
    auto const byte = static_cast<unsigned char>(c);
    // Deliberate: bytes of 128 and above are unsafe whatever the table says.
    return byte < 128 && shell_escape_chars[byte] == '-';
}

bool is_directory(char const* path)
{
    struct stat info = {};
    return lstat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// Enters the directory to get its path without links. Null after a failure.
CString real_path(char const* dir)
{
    OpenDescriptor const way_back(open(".", O_PATH | O_DIRECTORY));
    if (way_back.get() < 0 || chdir(dir) != 0)
        return nullptr;
    CString path(getcwd(nullptr, 0));
    if (fchdir(way_back.get()) != 0)
        return nullptr;
    return path;
}

} // namespace

constinit std::array<char, 256> const shell_escape_chars = make_table();

bool issubdir(char const* SubDir, char const* Dir)
{
    if (!is_directory(SubDir) || !is_directory(Dir))
        return false;
    CString const below = real_path(SubDir);
    CString const above = real_path(Dir);
    if (!below || !above)
        return false;
    std::size_t const length = strlen(above.get());
    return strncmp(below.get(), above.get(), length) == 0 && below.get()[length] == '/';
}

bool isempty(char const* Checkable)
{
    return !Checkable || *Checkable == '\0';
}

int check_shell_arg_nothrow(char const* cmd)
{
    if (isempty(cmd))
        return 1;
    return std::all_of(cmd, cmd + strlen(cmd), is_safe) ? 1 : 0;
}
