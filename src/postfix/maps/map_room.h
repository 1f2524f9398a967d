// map_room - a place of root's own in which postmap works on a map
//
// The directory of the maps belongs to the user postfix, who may put a link or a FIFO under any
// name in it at any time. postmap opens what it finds there, as root. A MapRoom has a directory of
// root's own in the maps' directory, see room.h. run() shows postmap this room in the place of the
// maps' directory. So the arguments stay the same, and postmap finds only what the tool has put
// there.
//
// borrow() puts the map's indexed file into the room: a regular file with one name, or no file at
// all. It is a copy where the file system lets two files share their blocks, or where the file is
// so small that copying costs less than starting postmap; postmap changes the copy. A larger file
// gets a second name in the room, and changes of it are changes of the map. A file that another
// program has locked is waited for, but not for ever. giveBack() removes what was borrowed.
// textSource() names the text source in the room. mostText() is the most bytes that the borrowed
// file's records can have as text, at most 1 GiB: a file whose pages form a circle has no end.
//
// install() renames what postmap has made or changed in the room over the file in use, with the
// owner and mode of what was borrowed, and syncs it. Where nothing was, it has the group and mode
// of the file in use. It returns false, and installs nothing, when somebody else has changed the
// file in use since it was borrowed: give it back and begin again. Postfix reads the old file until
// then. Whichever way the map was changed, its time is a second or more after the one before:
// Postfix compares whole seconds. install() does nothing when postmap has changed nothing. The
// destructor empties the room, so it drops a change that was not installed.
//
// Hold a ChangeLock: the constructor clears what a crash has left of the map, see map_leftovers.h.
// A room is made only for the types whose indexed file is known, hash and btree, in a directory
// that exists. For any other map isMade() is false, and run() simply runs postmap.
//
// An earlier version kept a copy of the indexed file, with ".saved" after its name, while it
// changed the file. hasSaved() tells that there is one of root's own. borrowSaved() puts it into
// the room; it is copied, whatever its size, if it is to be changed. putBackSaved() renames it over
// the file in use, dropSaved() removes it. saved_map.h decides.
//
// Where the kernel refuses a mount namespace, the room is named in the last argument instead,
// through /proc.
//
// Failures: SystemError with the path; EMLINK, EINVAL, ELOOP for an indexed file that is not a
// regular file with one name, EWOULDBLOCK for one that stays locked. What runPostmap raises.

#ifndef MAILVEK_POSTFIX_MAPS_MAP_ROOM_H
#define MAILVEK_POSTFIX_MAPS_MAP_ROOM_H

#include "lib/report/owned.h"
#include "postfix/maps/room.h"
#include "postfix/tools/tool_run.h"

#include <memory>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace orvek::mail::postfix {

// What postmap will do with the indexed file.
enum class MapUse
{
    read,
    change,
};

class MapRoom
{
public:
    explicit MapRoom(std::string const& map);
    ~MapRoom();
    MapRoom(MapRoom const&) = delete;
    MapRoom& operator=(MapRoom const&) = delete;

    bool isMade() const { return room != nullptr; }

    void borrow(MapUse use);
    void giveBack();
    bool isBorrowed() const { return borrowed != Borrowed::nothing; } // and not installed
    std::string textSource() const;
    off_t mostText() const;
    [[nodiscard]] bool install();

    bool hasSaved() const { return saved; }
    void borrowSaved(MapUse use);
    void putBackSaved();
    void dropSaved();

    // The last argument must be the map.
    ToolResult run(std::vector<std::string> arguments, ToolStreams streams = {}) const;

    std::string const map;

private:
    // The kind of the indexed file in the room.
    enum class Borrowed
    {
        nothing, // missing, or made by postmap
        copy,
        link,
    };

    void lend(std::string const& entry, MapUse use, off_t largest);
    bool copyIn(int from, off_t size, off_t largest);
    void linkIn(int from);
    bool replace();
    bool isChanged(struct stat const& now) const;
    void prepare(int made, struct stat const& old) const;
    bool isThere(int where, struct stat& file) const; // the indexed file
    void touch(struct stat const& now) const;
    void limitWait() const;
    [[noreturn]] void raise(std::string const& entry) const;

    std::string const directory_path;
    std::string const name;    // of the text source
    std::string const indexed; // the name of the indexed file; empty for other types
    OpenDescriptor directory;
    std::shared_ptr<Room> room;
    struct stat in_use = {}; // what the indexed file in use was when it was borrowed
    Borrowed borrowed = Borrowed::nothing;
    bool was_lent = false; // the file in use, even if there was none
    bool saved = false;
};

} // namespace orvek::mail::postfix

#endif
