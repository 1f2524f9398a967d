#include "postfix/maps/map_leftovers.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/beneath/place.h"
#include "lib/beneath/tree.h"

#include <cerrno>
#include <vector>

#include <sys/file.h>
#include <sys/stat.h>

namespace orvek::mail::postfix {

namespace {

constexpr size_t most_entries = 100000;
constexpr char room_word[] = ".room-";

bool isOurs(int dir, std::string const& entry, mode_t kind)
{
    struct stat info = {};
    return look_beneath(dir, entry.c_str(), info) == 0 && (info.st_mode & S_IFMT) == kind &&
           info.st_uid == 0 && (kind == S_IFDIR || info.st_nlink == 1);
}

// A room is locked as long as the tool that has made it lives. One that cannot be asked may be in
// use.
bool isInUse(int dir, std::string const& room)
{
    OpenDescriptor const opened = open_directory_beneath(dir, room.c_str());
    return opened.get() < 0 || flock(opened.get(), LOCK_EX | LOCK_NB) != 0;
}

bool isRoom(std::string const& entry)
{
    return entry.front() == '.' && entry.find(room_word) != std::string::npos;
}

// A killed command may have left a map in the room of another one, which it had changed before. Of
// a large map that is a second name. Nobody but the holder of the map's lock uses these names.
void removeFrom(int dir, std::string const& room, std::string const& name)
{
    OpenDescriptor const opened = open_directory_beneath(dir, room.c_str());
    for (std::string const& file : {name, name + ".db"})
        if (opened.get() >= 0)
            (void)remove_file_beneath(opened.get(), file.c_str());
}

} // namespace

std::string roomBeginning(std::string const& name)
{
    return "." + name + room_word;
}

std::string savedNameOf(std::string const& name)
{
    return name + ".db.saved";
}

bool clearLeftovers(int dir, std::string const& name)
{
    ErrnoKeeper const keeper;
    std::vector<std::string> rooms;
    std::vector<std::string> files;
    bool saved = false;
    (void)list_directory(dir, most_entries, [&](ListedEntry const& listed) {
        std::string const entry = listed.name;
        if (listed.kind == S_IFDIR && isRoom(entry))
            rooms.push_back(entry);
        else if (entry == name || entry == savedNameOf(name) + ".tmp")
            files.push_back(entry);
        else if (entry == savedNameOf(name))
            saved = isOurs(dir, entry, S_IFREG);
        return 0;
    });
    for (std::string const& room : rooms) {
        if (!isOurs(dir, room, S_IFDIR))
            continue;
        removeFrom(dir, room, name);
        if (room.starts_with(roomBeginning(name)) && !isInUse(dir, room))
            (void)remove_tree_beneath(dir, room.c_str(), TreeTop::with);
    }
    for (std::string const& file : files)
        if (isOurs(dir, file, S_IFREG))
            (void)remove_file_beneath(dir, file.c_str());
    return saved;
}

} // namespace orvek::mail::postfix
