#include "lib/files/line_edit.h"

#include "lib/beneath/place.h"
#include "lib/beneath/temporary_file.h"
#include "lib/report/failure.h"
#include "lib/report/form_path.h"
#include "lib/report/owned.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <sys/stat.h>

namespace {

constexpr std::size_t piece_size = 4095; // fgets gives one character less
constexpr mode_t widest_mode = 0666;
constexpr mode_t default_mode = 0644;

[[nodiscard]] int open_failure(char const* filename)
{
    return failure(1, "Unable to open file %s: %s\n", filename, strerror(errno));
}

bool form_temporary(char (&temporary)[path_size], char const* filename)
{
    if (form_path(temporary, "%s.tmp", filename))
        return true;
    errno = ENAMETOOLONG;
    return false;
}

// The file beside filename with the new content. It is always made new, and stays if it was not
// renamed over filename.
class NewContent
{
public:
    NewContent(char const* filename, struct stat const* old)
        : directory(open_parent(filename, name)),
          file(directory.get(), name ? name : "", ".tmp",
               old ? old->st_mode & widest_mode : default_mode)
    {
    }
    ~NewContent() { file.keep(); }
    NewContent(NewContent const&) = delete;
    NewContent& operator=(NewContent const&) = delete;

    OpenFile open() { return file.write_stream(); }
    [[nodiscard]] int replace() { return file.replace(); }

private:
    char const* name = nullptr;
    OpenDescriptor directory;
    TemporaryFile file;
};

bool put_line(FILE* file, char const* str)
{
    std::size_t const length = strlen(str);
    bool const ends_in_newline = length > 0 && str[length - 1] == '\n';
    return fputs(str, file) >= 0 && (ends_in_newline || fputc('\n', file) != EOF);
}

int put_strings(OpenFile const& file, char const* filename, char const* const* strs)
{
    for (; *strs; ++strs)
        if (!put_line(file.get(), *strs))
            return failure(1, "Unable to fputs to file %s: %s\n", filename, strerror(errno));
    return 0;
}

int close_file(OpenFile& file, char const* filename)
{
    if (fclose(file.release()) != 0)
        return failure(1, "Unable to close file %s: %s\n", filename, strerror(errno));
    return 0;
}

// Copies the lines that keep accepts and closes both files. A line longer than a piece is judged
// piece by piece.
template<typename Keep>
int copy_lines(OpenFile& from, char const* filename, OpenFile& to, char const* temporary, Keep keep)
{
    char piece[piece_size];
    while (fgets(piece, sizeof piece, from.get()))
        if (keep(piece) && fputs(piece, to.get()) < 0)
            fatal("cannot write a line to %s.tmp", filename);
    // After a read error the copy is incomplete and must not replace the file.
    if (ferror(from.get()))
        return failure(1, "Unable to read file %s: %s\n", filename, strerror(errno));
    if (close_file(from, filename) != 0)
        return 1;
    return close_file(to, temporary);
}

int append(char const* filename, char const* const* strs)
{
    OpenFile file(fopen(filename, "a"));
    if (!file)
        return open_failure(filename);
    if (put_strings(file, filename, strs) != 0)
        return 1;
    return close_file(file, filename);
}

int prepend(char const* filename, struct stat const* old, char const* const* strs)
{
    char temporary[path_size];
    if (!form_temporary(temporary, filename))
        return open_failure(filename);
    NewContent content(filename, old);
    OpenFile to = content.open();
    if (!to)
        return open_failure(temporary);
    if (put_strings(to, temporary, strs) != 0)
        return 1;
    OpenFile from(fopen(filename, "r"));
    if (!from)
        return open_failure(filename);
    auto const keep_all = [](char const*) { return true; };
    if (copy_lines(from, filename, to, temporary, keep_all) != 0)
        return 1;
    if (content.replace() != 0)
        return failure(1, "Error while rename file %s: %s\n", filename, strerror(errno));
    return 0;
}

using Matcher = bool (*)(char const* line, char const* str);

int remove_lines(char const* filename, struct stat const* old, char const* const* strs,
                 Matcher matches)
{
    char temporary[path_size];
    OpenFile from(form_temporary(temporary, filename) ? fopen(filename, "r") : nullptr);
    if (!from)
        return open_failure(filename);
    NewContent content(filename, old);
    OpenFile to = content.open();
    if (!to)
        return open_failure(temporary);
    auto const keep = [=](char const* line) {
        for (char const* const* str = strs; *str; ++str)
            if (matches(line, *str))
                return false;
        return true;
    };
    if (copy_lines(from, filename, to, temporary, keep) != 0)
        return 1;
    if (content.replace() != 0)
        return failure(1, "Unable to rename file %s: %s\n", filename, strerror(errno));
    return 0;
}

// The length of a line without its newline.
std::size_t text_length(char const* line)
{
    return strcspn(line, "\n");
}

bool equals(char const* line, char const* str)
{
    std::size_t const length = text_length(line);
    return strncmp(str, line, length) == 0 && (str[length] == '\0' || str[length] == '\n');
}

bool begins_with(char const* line, char const* str)
{
    return std::string_view(line).starts_with(str);
}

bool ends_with(char const* line, char const* str)
{
    return std::string_view(line, text_length(line)).ends_with(str);
}

bool contains(char const* line, char const* str)
{
    return strstr(line, str) != nullptr;
}

int add(char const* filename, struct stat const* old, char const* const* strs, file_pos_t set)
{
    switch (set) {
    case FILE_BEGIN:
        return prepend(filename, old, strs);
    case FILE_END:
        return append(filename, strs);
    case FILE_MID:
        break;
    }
    return 0;
}

int remove_equal(char const* filename, struct stat const* old, char const* const* strs)
{
    if (old)
        return remove_lines(filename, old, strs, equals);
    // Deliberate: no report. Callers remove a line from a file that need not exist.
    errno = ENOENT;
    return 1;
}

int remove_similar(char const* filename, struct stat const* old, char const* const* strs,
                   file_pos_t set)
{
    switch (set) {
    case FILE_BEGIN:
        return remove_lines(filename, old, strs, begins_with);
    case FILE_END:
        return remove_lines(filename, old, strs, ends_with);
    case FILE_MID:
        return remove_lines(filename, old, strs, contains);
    }
    return 0;
}

} // namespace

int edit_lines(char const* filename, struct stat const* old, char const* const* strs,
               file_action_t cmd, file_pos_t set)
{
    switch (cmd) {
    case FILE_ADD:
        return add(filename, old, strs, set);
    case FILE_REMOVE:
        return remove_equal(filename, old, strs);
    case FILE_REMSUB:
        return remove_similar(filename, old, strs, set);
    }
    return 0;
}
