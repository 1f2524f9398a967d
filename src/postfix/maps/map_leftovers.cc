#include "postfix/maps/map_leftovers.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/beneath/tree.h"

#include <vector>

#include <sys/stat.h>

namespace orvek::mail::postfix {

namespace {

constexpr size_t most_entries = 100000;

bool isOurs(int dir, std::string const& entry, mode_t kind)
{
    struct stat info = {};
    return look_beneath(dir, entry.c_str(), info) == 0 && (info.st_mode & S_IFMT) == kind &&
           info.st_uid == 0 && (kind == S_IFDIR || info.st_nlink == 1);
}

} // namespace

std::string roomBeginning(std::string const& name)
{
    return "." + name + ".room-";
}

std::string savedNameOf(std::string const& name)
{
    return name + ".db.saved";
}

bool clearLeftovers(int dir, std::string const& name)
{
    ErrnoKeeper const keeper;
    std::vector<std::string> rooms;
    (void)list_directory(dir, most_entries, [&](ListedEntry const& entry) {
        if (entry.kind == S_IFDIR && std::string(entry.name).starts_with(roomBeginning(name)))
            rooms.emplace_back(entry.name);
        return 0;
    });
    for (std::string const& room : rooms)
        if (isOurs(dir, room, S_IFDIR))
            (void)remove_tree_beneath(dir, room.c_str(), TreeTop::with);
    for (std::string const& file : {name, savedNameOf(name) + ".tmp"})
        if (isOurs(dir, file, S_IFREG))
            (void)remove_file_beneath(dir, file.c_str());
    return isOurs(dir, savedNameOf(name), S_IFREG);
}

} // namespace orvek::mail::postfix
