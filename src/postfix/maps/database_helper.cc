#include "postfix/maps/database_helper.h"

#include "postfix/maps/data_stream_filter.h"
#include "postfix/maps/map_dump.h"
#include "postfix/maps/map_names.h"
#include "postfix/maps/saved_map.h"
#include "postfix/tools/postmap_output.h"
#include "postfix/tools/tool_result.h"
#include "util/autoclean_ofstream.h"
#include "util/errors.h"
#include "util/mapped_output.h"

#include <ostream>

#include <sys/wait.h>

namespace orvek::mail::postfix {

namespace {

// How often a change begins anew because somebody else has changed the map meanwhile.
constexpr int most_attempts = 5;

[[noreturn]] void raiseChanged(std::string const& map)
{
    throw PostfixDatabaseError("another program has changed " + mapPath(map) + ".db meanwhile");
}

// Changes single records: work has postmap change what is borrowed, and returns false when there
// was nothing to change.
template<class Work>
void changeRecords(std::string const& map, Work const& work)
{
    LockedRoom change(map);
    for (int i = 0; i < most_attempts; ++i) {
        change.room.borrow(MapUse::change);
        if (!work(change.room) || change.room.install())
            return;
        change.room.giveBack();
    }
    raiseChanged(map);
}

// postmap exits non-zero and prints nothing for a missing key, which is not a failure.
void requireRemoval(ToolResult const& result)
{
    if (WIFSIGNALED(result.status) ||
        (hasFailed(result.status) && !checkOutput(result.diagnostics, /*strict=*/false)))
        throw PostfixDatabaseError(result.diagnostics);
}

// Whether the map has the key with a value that is not the record's.
bool hasOther(MapRoom const& room, std::pair<std::string, std::string> const& record)
{
    ToolResult const result =
        room.run({"-q", record.first, room.map}, ToolStreams::withoutInput().collected());
    requireRemoval(result);
    return !hasFailed(result.status) && result.output != record.second + '\n';
}

void removeKey(MapRoom const& room, std::string const& key)
{
    requireRemoval(room.run({"-d", key, room.map}, ToolStreams::withoutInput()));
}

// The text source of a map. Raises when it cannot be written. Records come one at a time, so it
// writes into mapped memory where the file can be mapped, and through the stream's buffer
// elsewhere.
class TextFile : public AutocleanOFStream
{
public:
    explicit TextFile(std::string const& path) : AutocleanOFStream(path), mapped(path)
    {
        exceptions(failbit | badbit);
        if (mapped.is_open())
            std::ios::rdbuf(&mapped);
        else
            emptyAgain();
    }

    // Call this after the last record. Raises when the rest could not be written.
    void finish()
    {
        if (mapped.is_open() && !mapped.finish())
            setstate(failbit);
        close();
    }

private:
    // A mapping that failed may have made the file longer.
    void emptyAgain()
    {
        close();
        open(path());
    }

    MappedOutput mapped;
};

// Writes the map's records that the filter keeps or changes.
void filterInto(std::ostream& out, MapRoom const& room, RecordFilter const& filter)
{
    database::DataStreamFilter<RecordFilter> lines(filter, out);
    readMap(room, [&](std::vector<char> const& piece) { lines.filterChunk(piece); });
    lines.finish();
}

void rebuild(MapRoom& room, std::vector<std::string> const& arguments)
{
    ToolResult const result = room.run(arguments);
    requireSuccess(result.status, result.diagnostics);
    if (!room.install())
        raiseChanged(room.map);
}

} // namespace

void DatabaseHelper::addRecord(std::string const& map, std::string const& key,
                               std::string const& value)
{
    std::pair<std::string, std::string> const record(key, value);
    addRecords(map, &record, &record + 1);
}

void DatabaseHelper::removeRecord(std::string const& map, std::string const& key)
{
    requireKey(key);
    changeRecords(map, [&](MapRoom const& room) {
        removeKey(room, key);
        return true;
    });
}

// postmap removes by key alone. The lock keeps others from changing the value between the check and
// the removal.
void DatabaseHelper::removeRecord(std::string const& map,
                                  std::pair<std::string, std::string> const& record)
{
    requireKey(record.first);
    changeRecords(map, [&](MapRoom const& room) {
        if (hasOther(room, record))
            return false;
        removeKey(room, record.first);
        return true;
    });
}

void DatabaseHelper::appendText(std::vector<char>& text, std::string const& part)
{
    text.insert(text.end(), part.begin(), part.end());
}

void DatabaseHelper::feedAdditions(std::string const& map, TextSource const& records)
{
    changeRecords(map, [&](MapRoom const& room) {
        ToolResult const result = room.run({"-r", "-i", map}, ToolStreams::fedBy(records));
        requireSuccess(result.status, result.diagnostics);
        return true;
    });
}

void DatabaseHelper::feedRemovals(std::string const& map, TextSource const& keys)
{
    changeRecords(map, [&](MapRoom const& room) {
        requireRemoval(room.run({"-d", "-", map}, ToolStreams::fedBy(keys)));
        return true;
    });
}

void DatabaseHelper::rewrite(std::string const& map, TextSource const& records)
{
    LockedRoom change(map);
    MapRoom& room = change.room;
    TextFile out(room.textSource());
    std::vector<char> line;
    for (bool more = !records.empty(); more; line.clear()) {
        more = records(line);
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
    out.finish();
    rebuild(room, {"-r", map});
}

void DatabaseHelper::rewriteFiltered(std::string const& map, RecordFilter const& filter)
{
    LockedRoom change(map);
    MapRoom& room = change.room;
    TextFile out(room.textSource());
    room.borrow(MapUse::read);
    filterInto(out, room, filter);
    out.finish();
    room.giveBack();
    rebuild(room, {map});
}

} // namespace orvek::mail::postfix
