#include "postfix/maps/room.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/made_directory.h"
#include "postfix/maps/map_leftovers.h"
#include "util/errors.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr Rights room_rights = {0, 0, 0700};

// When a process ends, today's kernels free what it has open from the highest descriptor down. With
// a number above those of the maps' locks, the room is free before anybody gets such a lock.
constexpr int lowest_room = 100;

int highDescriptor(OpenDescriptor& low)
{
    ErrnoKeeper const keeper;
    int const high = fcntl(low.get(), F_DUPFD_CLOEXEC, lowest_room);
    return high >= 0 ? high : low.release();
}

struct Kept
{
    bool is_wanted = false;
    std::shared_ptr<Room> room;
};

// A static object, so that the room goes in an exit() in the middle of a command too.
Kept& kept()
{
    static Kept instance;
    return instance;
}

std::string randomDigits()
{
    unsigned long number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        throwSystemError("getrandom", errno);
    return std::to_string(number);
}

bool isSame(struct stat const& one, struct stat const& other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

} // namespace

Room::Room(int directory_, std::string const& path_, std::string const& map_name)
    : owner(getpid()), path(path_), name(roomBeginning(map_name) + randomDigits()),
      directory(fcntl(directory_, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    made.emplace(make());
    locked = flock(made->get(), LOCK_EX | LOCK_NB) == 0;
    if (path.front() == '/')
        view.emplace(path + name, path, identity);
}

Room::~Room()
{
    ErrnoKeeper const keeper;
    // The directory's owner may have renamed the room. The next room of the map clears it then.
    if (getpid() == owner)
        (void)remove_directory_beneath(directory.get(), name.c_str());
}

int Room::make()
{
    Making making = Making::there;
    OpenDescriptor opened =
        make_directory_beneath(directory.get(), name.c_str(), room_rights, &making);
    if (opened.get() < 0 || fstat(opened.get(), &identity) != 0)
        raise(making == Making::anew);
    // The directory's owner may have swapped the new directory before it was opened.
    if (making != Making::anew || identity.st_uid != 0 || (identity.st_mode & 07777) != 0700) {
        errno = EEXIST;
        raise(false);
    }
    return highDescriptor(opened);
}

// Also removes a new directory, which is still empty and which nobody else would remove.
void Room::raise(bool is_new) const
{
    int const code = errno;
    if (is_new)
        (void)remove_directory_beneath(directory.get(), name.c_str());
    throwSystemError(path + name, code);
}

std::optional<ToolResult> Room::runInPlace(std::vector<std::string> const& arguments,
                                           ToolStreams streams)
{
    if (!view || refused)
        return std::nullopt;
    view->prepare();
    streams.childSetup = [this, setup = std::exchange(streams.childSetup, {})] {
        view->enter();
        if (!setup.empty())
            setup();
    };
    try {
        return runPostmap(arguments, streams);
    } catch (SystemError const& e) {
        if (!RoomView::isRefusal(e.what()))
            throw;
        refused = true;
        return std::nullopt;
    }
}

// The directory's owner may have renamed or removed the room since.
bool Room::isFit(int in_directory) const
{
    struct stat here = {};
    struct stat there = {};
    struct stat named = {};
    return locked && fstat(in_directory, &there) == 0 && fstat(directory.get(), &here) == 0 &&
           isSame(here, there) && look_beneath(in_directory, name.c_str(), named) == 0 &&
           isSame(named, identity);
}

RoomKeeper::RoomKeeper()
{
    kept().is_wanted = true;
}

RoomKeeper::~RoomKeeper()
{
    kept() = {};
}

std::shared_ptr<Room> takeRoom(int directory, std::string const& path, std::string const& map_name)
{
    std::shared_ptr<Room>& room = kept().room;
    bool const is_free = room && room.use_count() == 1;
    if (is_free && room->isFit(directory))
        return room;
    auto made = std::make_shared<Room>(directory, path, map_name);
    if (kept().is_wanted && (!room || is_free))
        room = made;
    return made;
}

} // namespace orvek::mail::postfix
