#include "mail/lib/handlers/handler_name.h"

#include "lib/report/log_failure.h"
#include "lib/text/string.h"

#include <cstdlib>
#include <cstring>

namespace {

// The first three fields of a name. A missing field is empty.
class Fields
{
public:
    explicit Fields(char const* name) : all(string_split(name, "-"))
    {
        for (std::size_t i = 0; all && i < std::size(first) && all[i]; ++i)
            first[i] = all[i];
    }
    explicit operator bool() const { return static_cast<bool>(all); }

    // Base 0: "010" is octal and "0x10" hexadecimal.
    int number() const { return static_cast<int>(strtol(first[0], nullptr, 0)); }
    char const* operator[](std::size_t i) const { return first[i]; }

private:
    StringArray all;
    char const* first[3] = {"", "", ""};
};

int compare_entries(void const* a, void const* b)
{
    return handlers_compare(*static_cast<char const* const*>(a),
                            *static_cast<char const* const*>(b));
}

} // namespace

int split_handler_name(char const* name, HandlerNameParts& parts)
{
    char const* const first = strchr(name, '-');
    char const* const last = strrchr(name, '-');
    if (!first)
        return log_failure("Invalid handler name '%s': missing priority section", name);
    if (first == last)
        return log_failure("Invalid handler name '%s': missing random part", name);
    if (first + 1 == last)
        return log_failure("Invalid handler name '%s': empty template part", name);
    parts.priority = {name, static_cast<std::size_t>(first - name)};
    parts.name_template = {first + 1, static_cast<std::size_t>(last - first - 1)};
    parts.random = last + 1;
    return 0;
}

int handlers_compare(char const* a, char const* b)
{
    Fields const left(a);
    Fields const right(b);
    if (!left || !right) {
        static_cast<void>(
            log_failure("Unable to split handlers name. Skipping sorting handlers.."));
        return 0;
    }
    if (left.number() != right.number())
        return left.number() < right.number() ? -1 : 1;
    int const second = strcoll(left[1], right[1]);
    return second != 0 ? second : strcoll(left[2], right[2]);
}

void handlers_sort(char const** names, std::size_t count)
{
    // qsort must not be given a null list.
    if (count > 0)
        qsort(names, count, sizeof *names, compare_entries);
}
