#include "postfix/maps/saved_map.h"

#include "postfix/maps/map_dump.h"
#include "postfix/maps/map_names.h"
#include "postfix/tools/tool_result.h"
#include "util/errors.h"

#include <algorithm>
#include <iostream>
#include <optional>
#include <string>

namespace orvek::mail::postfix {

namespace {

constexpr size_t lost_share = 10;

// The number of records of the borrowed file. Nothing when it does not open.
std::optional<size_t> countRecords(MapRoom const& room)
{
    size_t lines = 0;
    try {
        readMap(room, [&](std::vector<char> const& piece) {
            lines += static_cast<size_t>(std::count(piece.begin(), piece.end(), '\n'));
        });
    } catch (PostfixError const&) { // postmap's own, or there is no end of records
        return std::nullopt;
    }
    return lines;
}

std::vector<char> recordsOf(MapRoom const& room)
{
    std::vector<char> text;
    readMap(room, [&](std::vector<char> const& piece) {
        text.insert(text.end(), piece.begin(), piece.end());
    });
    return text;
}

// Puts the copy back with these records added, in one step: a kill leaves the old state or the new.
void putBackWith(MapRoom& room, std::vector<char> const& records)
{
    room.borrowSaved(MapUse::change);
    ToolResult const result =
        room.run({"-r", "-i", room.map}, ToolStreams::fedBy([&](std::vector<char>& text) {
                     text = records;
                     return false;
                 }));
    requireSuccess(result.status, result.diagnostics);
    (void)room.install(); // false is for a copy of the file in use only
    bool const is_unchanged = room.isBorrowed();
    room.giveBack();
    if (is_unchanged)
        room.putBackSaved();
    else
        room.dropSaved();
}

} // namespace

void settleSaved(MapRoom& room)
{
    if (!room.isMade() || !room.hasSaved())
        return;
    room.borrowSaved(MapUse::read);
    size_t const saved = countRecords(room).value_or(0);
    room.giveBack();

    room.borrow(MapUse::read);
    std::optional<size_t> const held = countRecords(room);
    bool const is_lost = held.value_or(0) < (saved + lost_share - 1) / lost_share;
    std::vector<char> const records =
        is_lost && held.value_or(0) > 0 ? recordsOf(room) : std::vector<char>();
    room.giveBack();

    if (is_lost) {
        if (records.empty())
            room.putBackSaved();
        else
            putBackWith(room, records);
        std::clog << mapPath(room.map) << " had lost its records: put back from a copy with "
                  << saved << std::endl;
    } else if (held) {
        room.dropSaved();
    }
}

LockedRoom::LockedRoom(std::string const& map) : lock(map), room(map)
{
    settleSaved(room);
}

} // namespace orvek::mail::postfix
