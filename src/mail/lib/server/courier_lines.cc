#include "mail/lib/server/courier_lines.h"

#include "lib/report/liblog.h"
#include "lib/text/line_buffer.h"

#include <cstdint>
#include <cstring>

namespace {

// Each change has a bit in the mask of the changes that matched. The last bit is unused.
constexpr unsigned int most_changes = 31;

bool sets_variable(char const* line, char const* var)
{
    size_t const length = strlen(var);
    return strncmp(line, var, length) == 0 && line[length] == '=';
}

// The index of the first change for the line's variable, or most_changes.
unsigned int change_of(char const* line, EnvChange const* env)
{
    for (unsigned int i = 0; env[i].var; ++i) {
        if (i == most_changes) {
            messlog2(0, 0, "Too many variables specified, tail is ignored\n");
            break;
        }
        if (sets_variable(line, env[i].var))
            return i;
    }
    return most_changes;
}

void write_variable(FILE* to, EnvChange const& change)
{
    fprintf(to, "%s=%s\n", change.var, change.value ? change.value : "");
}

} // namespace

void copy_changed_lines(FILE* from, FILE* to, EnvChange const* env)
{
    uint32_t met = 0;
    bool ended = true;
    LineBuffer line;
    ssize_t length = 0;
    while ((length = getdelim(&line.text, &line.capacity, '\n', from)) > 0) {
        ended = line.text[length - 1] == '\n';
        unsigned int const i = change_of(line.text, env);
        if (i == most_changes) {
            fwrite(line.text, 1, static_cast<size_t>(length), to);
            continue;
        }
        uint32_t const bit = uint32_t{1} << i;
        if (env[i].action == ENV_ADD && !(met & bit))
            write_variable(to, env[i]);
        met |= bit;
    }
    // Deliberate: also after a last line that was replaced or dropped.
    if (!ended)
        fputc('\n', to);
    for (unsigned int i = 0; i < most_changes && env[i].var; ++i)
        if (env[i].action == ENV_ADD && !(met & uint32_t{1} << i))
            write_variable(to, env[i]);
}
