#include "lib/conf/read_configuration.h"

#include "lib/report/owned.h"
#include "lib/report/product_log.h"
#include "lib/text/line_buffer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <search.h>
#include <syslog.h>

namespace {

constexpr size_t first_slots = 20;
constexpr int priority = LOG_USER | LOG_WARNING;

[[nodiscard]] int no_memory()
{
    errno = ENOMEM;
    return -1;
}

bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

bool is_name_character(char c)
{
    return c == '_' || isalnum(static_cast<unsigned char>(c)) != 0;
}

bool is_end(char c)
{
    return c == '#' || c == '\0';
}

char* skip_space(char* text)
{
    while (is_space(*text))
        ++text;
    return text;
}

char* skip_name(char* text)
{
    while (is_name_character(*text))
        ++text;
    return text;
}

// Deliberate: a white-space character clears the mark that the one before it has set. So an odd
// run at the end of the value loses its last character, and an even run loses nothing. Other
// programs read the file the same way, and every path built from the value must come out the same.
char* end_of_value(char* value)
{
    char* mark = nullptr;
    // The first character always belongs to the value.
    char* position = value + 1;
    for (; !is_end(*position); ++position)
        mark = is_space(*position) && !mark ? position : nullptr;
    return mark ? mark : position;
}

// Cuts the newline off a line before it is reported, since a report would show it as "\n". Returns
// whether there was one.
bool cut_newline(char* line)
{
    char* const end = strchrnul(line, '\n');
    bool const found = *end != '\0';
    *end = '\0';
    return found;
}

int read_line(char* line, conf_data* pconf)
{
    char* const name = skip_space(line);
    if (is_end(*name))
        return 0;
    char* const name_end = skip_name(name);
    if (!is_space(*name_end)) {
        orvek_log(priority,
                  cut_newline(name)
                      ? "Invalid variable definition %s\n\nExpected a space after variable name\n"
                      : "Invalid variable definition %s\nExpected a space after variable name\n",
                  name);
        return 0;
    }
    char* const value = skip_space(name_end);
    if (is_end(*value)) {
        orvek_log(priority,
                  cut_newline(name) ? "Invalid variable definition %s\n\nExpected a value"
                                    : "Invalid variable definition %s\nExpected a value",
                  name);
        return 0;
    }
    *end_of_value(value) = '\0';
    *name_end = '\0';
    return conf_set_r(name, value, pconf);
}

// Computes twice the size, or first_slots more where doubling gives no room. False on overflow.
bool grown_size(conf_data const* pconf, size_t* size, size_t* bytes)
{
    if (__builtin_mul_overflow(pconf->size, 2, size))
        return false;
    if (*size <= pconf->nmemb && __builtin_add_overflow(pconf->nmemb, first_slots, size))
        return false;
    return !__builtin_mul_overflow(*size, sizeof(conf_entry), bytes);
}

int first_allocation(conf_data* pconf)
{
    pconf->data = static_cast<conf_entry*>(calloc(first_slots, sizeof(conf_entry)));
    pconf->size = pconf->data ? first_slots : 0;
    if (!pconf->data)
        return no_memory();
    pconf->nmemb = 0;
    pconf->finalized = 1;
    return 0;
}

void conf_finalize_r(conf_data* pconf)
{
    if (pconf->finalized)
        return;
    if (pconf->nmemb > 0)
        qsort(pconf->data, pconf->nmemb, sizeof(conf_entry), cmp_conf);
    pconf->finalized = 1;
}

} // namespace

int cmp_conf(void const* e1, void const* e2)
{
    return strcmp(static_cast<conf_entry const*>(e1)->key, static_cast<conf_entry const*>(e2)->key);
}

int conf_init_r(conf_data* pconf)
{
    if (!pconf->data)
        return first_allocation(pconf);
    if (pconf->nmemb < pconf->size)
        return 0;

    size_t size = 0;
    size_t bytes = 0;
    void* const data = grown_size(pconf, &size, &bytes) ? realloc(pconf->data, bytes) : nullptr;
    if (!data) {
        orvek_log(priority, "Unable to read configuration: %s", strerror(ENOMEM));
        return no_memory();
    }
    pconf->data = static_cast<conf_entry*>(data);
    // conf_free_r walks the unused slots as well.
    std::fill(pconf->data + pconf->size, pconf->data + size, conf_entry{});
    pconf->size = size;
    return 0;
}

int conf_set_r(char const* name, char const* value, conf_data* pconf)
{
    if (conf_init_r(pconf) != 0)
        return -1;
    CString key_copy(strdup(name));
    CString value_copy(strdup(value));
    if (!key_copy || !value_copy) {
        orvek_log(priority, "Unable to form configuration: %s", strerror(ENOMEM));
        return no_memory();
    }

    conf_entry const entry = {key_copy.get(), value_copy.release()};
    size_t const before = pconf->nmemb;
    auto* const stored = static_cast<conf_entry*>(
        lsearch(&entry, pconf->data, &pconf->nmemb, sizeof entry, cmp_conf));
    if (pconf->nmemb != before) {
        static_cast<void>(key_copy.release());
        pconf->finalized = 0;
        return 0;
    }
    free(stored->value);
    stored->value = entry.value;
    return 0;
}

int conf_read_file_r(char const* conf_file, conf_data* pconf)
{
    OpenFile const file(fopen(conf_file, "rt"));
    if (!file) {
        ErrnoKeeper const keeper;
        orvek_log(priority, "unable to open configuration file %s: %s\n", conf_file,
                  strerror(errno));
        return -1;
    }
    LineBuffer line;
    while (getdelim(&line.text, &line.capacity, '\n', file.get()) >= 0)
        if (read_line(line.text, pconf) != 0)
            return -1;
    if (!feof(file.get()) || ferror(file.get())) {
        ErrnoKeeper const keeper;
        orvek_log(priority, "Unable to read configuration file: %s", strerror(errno));
        return -1;
    }
    conf_finalize_r(pconf);
    return 0;
}

char const* conf_get_r(char const* name, conf_data const* pconf)
{
    if (pconf->nmemb == 0)
        return nullptr;
    conf_entry const wanted = {const_cast<char*>(name), nullptr};
    size_t count = pconf->nmemb;
    void const* const found = pconf->finalized
                                  ? bsearch(&wanted, pconf->data, count, sizeof wanted, cmp_conf)
                                  : lfind(&wanted, pconf->data, &count, sizeof wanted, cmp_conf);
    return found ? static_cast<conf_entry const*>(found)->value : nullptr;
}

void conf_free_r(conf_data* pconf)
{
    if (!pconf)
        return;
    for (size_t i = 0; i < pconf->size; ++i) {
        free(pconf->data[i].key);
        free(pconf->data[i].value);
    }
    free(pconf->data);
    free(pconf);
}
