#include "postfix/maps/map_lookup.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/place.h"
#include "postfix/maps/key_bytes.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/record_text.h"
#include "postfix/maps/saved_map.h"
#include "postfix/tools/postmap_output.h"
#include "postfix/tools/tool_result.h"
#include "util/errors.h"

#include <cerrno>
#include <sstream>

#include <sys/stat.h>
#include <sys/wait.h>

namespace orvek::mail::postfix {

namespace {

TextSource linesOf(std::vector<std::string> const& keys)
{
    return [&keys, next = keys.begin()](std::vector<char>& text) mutable {
        text.insert(text.end(), next->begin(), next->end());
        text.push_back('\n');
        return ++next != keys.end();
    };
}

bool isMissing(std::string const& map)
{
    std::string const path = mapPath(map) + ".db";
    char const* name = nullptr;
    OpenDescriptor const directory = open_parent(path.c_str(), name);
    struct stat info = {};
    return directory.get() >= 0 && look_beneath(directory.get(), name, info) != 0 &&
           errno == ENOENT;
}

// postmap exits non-zero, and says nothing, when it has found none of the keys.
void requireAnswer(ToolResult const& result, std::string const& map)
{
    if (WIFSIGNALED(result.status) ||
        (hasFailed(result.status) && !checkOutput(result.diagnostics, /*strict=*/false) &&
         !isMissing(map)))
        throw PostfixDatabaseError(result.diagnostics);
}

// A line is a key, a tab and the value.
FoundRecords recordsOf(std::string const& output)
{
    FoundRecords records;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        if (size_t const tab = line.find('\t'); tab != std::string::npos)
            records.emplace(line.substr(0, tab), line.substr(tab + 1));
    return records;
}

} // namespace

FoundRecords findRecords(std::string const& map, std::vector<std::string> const& wanted)
{
    for (std::string const& key : wanted)
        requireKey(key);
    if (wanted.empty())
        return {};
    LockedRoom locked(map);
    std::vector<std::string> const keys = keysToAsk(map, wanted);
    if (keys.empty())
        return {};
    MapRoom& room = locked.room;
    room.borrow(MapUse::read);
    ToolResult const result =
        room.run({"-q", "-", map}, ToolStreams::fedBy(linesOf(keys)).collected());
    requireAnswer(result, map);
    return recordsOf(result.output);
}

} // namespace orvek::mail::postfix
