// map_room - a place of root's own in which postmap works on a map
//
// The directory of the maps belongs to the user postfix, who may put a link or a FIFO under any
// name in it at any time. postmap opens what it finds there, as root. A MapRoom is a new directory
// with mode 0700 within the maps' directory, and run() shows postmap this room in the place of the
// maps' directory. So the arguments stay, and postmap meets only what the tool has put there.
//
// borrow() gives the map's indexed file a second name in the room: a regular file with one name, or
// no file at all. Changes of it are changes of the map. giveBack() removes that name. textSource()
// names the text source in the room. install() syncs the indexed file that postmap has made in the
// room, gives it the owner and mode of the one in use, and renames it over that one. Postfix reads
// the old file until then. It also removes the text source that a crash of an earlier version left.
// The destructor removes the room.
//
// Hold a ChangeLock: the constructor removes the rooms that a crash has left. A room is made only
// for the types whose indexed file is known, hash and btree, in a directory that exists. For any
// other map isMade() is false, and run() simply runs postmap.
//
// postmap sees the room through a mount namespace of its own. Where the kernel refuses one, the
// room is named in the last argument instead, by way of /proc.
//
// Failures: SystemError with the path; EMLINK, EINVAL, ELOOP for an indexed file that is not a
// regular file with one name. What runPostmap raises.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_ROOM_H
#define MAILVEK_POSTFIX_MAPS_MAP_ROOM_H

#include "lib/report/owned.h"
#include "postfix/tools/tool_run.h"

#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace orvek::mail::postfix {

class MapRoom
{
public:
    explicit MapRoom(std::string const& map);
    ~MapRoom();
    MapRoom(MapRoom const&) = delete;
    MapRoom& operator=(MapRoom const&) = delete;

    bool isMade() const { return room.has_value(); }

    void borrow();
    void giveBack();
    std::string textSource() const;
    void install();

    // The last argument must be the map.
    ToolResult run(std::vector<std::string> arguments, ToolStreams streams = {}) const;

    std::string const map;

private:
    void clearLeftovers() const;
    void make();
    void enter() const;
    [[noreturn]] void raise(std::string const& entry) const;

    std::string const directory_path;
    std::string const name;    // of the text source
    std::string const indexed; // the name of the indexed file; empty for other types
    std::string room_name;
    OpenDescriptor directory;
    std::optional<OpenDescriptor> room;
    struct stat identity = {}; // the room's
    bool borrowed = false;
};

} // namespace orvek::mail::postfix

#endif
