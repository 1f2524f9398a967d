// room - a directory of root's own in the directory of the maps, for one command
//
// A Room is a new directory with mode 0700. runInPlace() runs postmap where it sees the room in the
// place of the maps' directory, see room_view.h. The room is locked, by flock, as long as the tool
// lives, so that map_leftovers.h tells it from what a crash has left. The destructor removes it if
// it is empty; a forked child's leaves it.
//
// takeRoom() returns a room that nobody else in this process uses. While a RoomKeeper lives, that
// is the same one for all maps of a directory, and the keeper removes it; the next user finds it
// empty. Hold the ChangeLock of the map of that name: it is in the room's name, and whoever clears
// the leftovers of the map must not meet a room that is not locked yet.
//
// Failures: SystemError with the room's path; EEXIST when somebody puts another directory there.

#ifndef MAILVEK_POSTFIX_MAPS_ROOM_H
#define MAILVEK_POSTFIX_MAPS_ROOM_H

#include "lib/report/owned.h"
#include "postfix/maps/room_view.h"
#include "postfix/tools/tool_run.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace orvek::mail::postfix {

class Room
{
public:
    // directory is open on the path, which ends with a slash.
    Room(int directory, std::string const& path, std::string const& map_name);
    ~Room();
    Room(Room const&) = delete;
    Room& operator=(Room const&) = delete;

    int get() const { return made->get(); } // open on the room

    // Nothing where the kernel refuses a mount namespace, or the path is relative.
    std::optional<ToolResult> runInPlace(std::vector<std::string> const& arguments,
                                         ToolStreams streams);

    // Whether the room can be used again, for a map in this directory.
    bool isFit(int in_directory) const;
    // For a room that could not be emptied.
    void spoil() { locked = false; }

private:
    int make();
    [[noreturn]] void raise(bool is_new) const;

    pid_t const owner;
    std::string const path;
    std::string const name;
    OpenDescriptor const directory;
    struct stat identity = {};
    std::optional<OpenDescriptor> made;
    bool locked = false;
    bool refused = false;
    std::optional<RoomView> view;
};

class RoomKeeper
{
public:
    RoomKeeper();
    ~RoomKeeper();
    RoomKeeper(RoomKeeper const&) = delete;
    RoomKeeper& operator=(RoomKeeper const&) = delete;
};

std::shared_ptr<Room> takeRoom(int directory, std::string const& path, std::string const& map_name);

} // namespace orvek::mail::postfix

#endif
