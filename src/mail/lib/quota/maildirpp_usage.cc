#include "mail/lib/quota/maildirpp_usage.h"

#include "lib/beneath/opened_file.h"
#include "lib/files/saved_directory.h"
#include "lib/report/owned.h"
#include "mail/lib/home/mail_tree.h"
#include "mail/lib/quota/maildirpp_messages.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t max_file_size = 5120;

// Has room for one byte too many, to notice a file that has grown too long.
struct Content
{
    char text[max_file_size + 1];
    std::size_t length = 0;
};

bool read_file(Content* content)
{
    OpenFile const file = read_file_beneath(AT_FDCWD, "maildirsize", max_file_size);
    if (!file)
        return false;
    content->length = fread(content->text, 1, sizeof content->text, file.get());
    return ferror(file.get()) == 0 && content->length <= max_file_size;
}

bool malformed()
{
    errno = EINVAL;
    return false;
}

bool take_size(char const** text, sizequota_t* size)
{
    char* end = nullptr;
    *size = strtoll(*text, &end, 10);
    // Deliberate: the smallest and the largest number are faults, here and in take_count.
    if (end == *text || *size == LLONG_MIN || *size == LLONG_MAX)
        return malformed();
    *text = end;
    return true;
}

bool take_count(char const** text, fcount_t* count)
{
    char* end = nullptr;
    *count = strtoull(*text, &end, 10);
    if (end == *text || *count == ULLONG_MAX)
        return malformed();
    *text = end;
    return true;
}

// line_end points to the NUL that ends the text.
bool add_line(char const* line, char const* line_end, sizequota_t* size, fcount_t* count)
{
    sizequota_t bytes = 0;
    fcount_t messages = 0;
    if (!take_size(&line, &bytes))
        return false;
    if (!isspace(static_cast<unsigned char>(*line)))
        return malformed();
    if (!take_count(&line, &messages))
        return false;
    if (line != line_end)
        return malformed();
    add_size(size, bytes);
    // Deliberate: wraps around. Mail servers write a negative count when messages go, which must
    // subtract.
    *count += messages;
    return true;
}

bool sum_up(Content* content, sizequota_t* size, fcount_t* count)
{
    char* const end = content->text + content->length;
    auto const find_line_end = [end](char* line) {
        return static_cast<char*>(memchr(line, '\n', static_cast<std::size_t>(end - line)));
    };
    char* line_end = find_line_end(content->text);
    if (!line_end)
        return malformed();
    *size = 0;
    *count = 0;
    for (char* line = line_end + 1; line != end; line = line_end + 1) {
        line_end = find_line_end(line);
        if (!line_end)
            return malformed();
        *line_end = '\0';
        if (!add_line(line, line_end, size, count))
            return false;
    }
    return true;
}

} // namespace

int get_maildirpp_usage_internal(sizequota_t* size, fcount_t* count)
{
    Content content;
    if (read_file(&content) && sum_up(&content, size, count))
        return 1;
    time_t ignored = 0;
    return get_maildirpp_messages_usage(size, count, &ignored);
}

int get_maildirpp_usage(char const* maildir, sizequota_t* size, fcount_t* count)
{
    SavedDirectory before;
    if (!before.save())
        return 0;
    OpenDescriptor const opened = open_mail_directory(maildir);
    if (opened.get() < 0 || fchdir(opened.get()) != 0)
        return 0;
    int const result = get_maildirpp_usage_internal(size, count);
    before.restore();
    return result;
}
