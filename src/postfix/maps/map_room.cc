#include "postfix/maps/map_room.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/listing.h"
#include "lib/beneath/made_directory.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "lib/beneath/tree.h"
#include "postfix/maps/map_names.h"
#include "util/errors.h"

#include <boost/algorithm/string/predicate.hpp>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/random.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr Rights room_rights = {0, 0, 0700};
constexpr char namespace_refused[] = "mount namespace";
constexpr size_t most_entries = 100000;

std::string directoryOf(std::string const& path)
{
    size_t const slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

std::string nameOf(std::string const& path)
{
    return path.substr(path.rfind('/') + 1); // npos + 1 is 0: the whole string
}

std::string indexedNameOf(std::string const& map)
{
    size_t const colon = map.find(':');
    std::string const type = colon == std::string::npos ? "hash" : map.substr(0, colon);
    return type == "hash" || type == "btree" ? nameOf(mapPath(map)) + ".db" : std::string();
}

// The names of a map's rooms begin like this.
std::string beginningOf(std::string const& name)
{
    return "." + name + ".room-";
}

std::string randomDigits()
{
    unsigned long number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number)
        throwSystemError("getrandom", errno);
    return std::to_string(number);
}

// Whether the path leads to the room itself.
bool isRoom(char const* path, struct stat const& room)
{
    struct stat info = {};
    return stat(path, &info) == 0 && info.st_dev == room.st_dev && info.st_ino == room.st_ino;
}

} // namespace

MapRoom::MapRoom(std::string const& map_)
    : map(map_), directory_path(directoryOf(mapPath(map))), name(nameOf(mapPath(map))),
      indexed(indexedNameOf(map)), directory(open_root(directory_path.c_str()))
{
    if (indexed.empty() || directory.get() < 0)
        return;
    clearLeftovers();
    make();
}

MapRoom::~MapRoom()
{
    ErrnoKeeper const keeper;
    if (!isMade())
        return;
    (void)remove_file_beneath(room->get(), name.c_str());
    (void)remove_file_beneath(room->get(), indexed.c_str());
    // The directory's owner may have renamed the room. The next room of the map clears it then.
    (void)remove_directory_beneath(directory.get(), room_name.c_str());
}

// Removes only directories that root owns, since others may make directories with such names.
void MapRoom::clearLeftovers() const
{
    ErrnoKeeper const keeper;
    std::vector<std::string> rooms;
    (void)list_directory(directory.get(), most_entries, [&](ListedEntry const& entry) {
        struct stat info = {};
        if (entry.kind == S_IFDIR && boost::algorithm::starts_with(entry.name, beginningOf(name)) &&
            look_beneath(directory.get(), entry.name, info) == 0 && info.st_uid == 0)
            rooms.emplace_back(entry.name);
        return 0;
    });
    for (std::string const& leftover : rooms)
        (void)remove_tree_beneath(directory.get(), leftover.c_str(), TreeTop::with);
}

void MapRoom::make()
{
    room_name = beginningOf(name) + randomDigits();
    Making making = Making::there;
    OpenDescriptor made =
        make_directory_beneath(directory.get(), room_name.c_str(), room_rights, &making);
    if (made.get() < 0 || fstat(made.get(), &identity) != 0)
        raise(room_name);
    // The directory's owner may have swapped the new directory before it was opened.
    if (making != Making::anew || identity.st_uid != 0 || (identity.st_mode & 07777) != 0700) {
        errno = EEXIST;
        raise(room_name);
    }
    room.emplace(made.release());
}

void MapRoom::borrow()
{
    if (!isMade())
        return;
    OpenDescriptor const file = take_file_beneath(directory.get(), indexed.c_str(), any_size);
    if (file.get() < 0 && errno == ENOENT)
        return;
    if (file.get() < 0 || linkat(file.get(), "", room->get(), indexed.c_str(), AT_EMPTY_PATH) != 0)
        raise(indexed);
    borrowed = true;
}

void MapRoom::giveBack()
{
    if (borrowed && remove_file_beneath(room->get(), indexed.c_str()) != 0)
        raise(indexed);
    borrowed = false;
}

std::string MapRoom::textSource() const
{
    return isMade() ? "/proc/self/fd/" + std::to_string(room->get()) + "/" + name : mapPath(map);
}

void MapRoom::install()
{
    if (!isMade() || borrowed)
        return;
    OpenDescriptor const made = open_file_beneath(room->get(), indexed.c_str(), O_RDONLY, any_size);
    if (made.get() < 0 && errno == ENOENT)
        return;
    if (made.get() < 0)
        raise(indexed);
    struct stat old = {};
    if (look_beneath(directory.get(), indexed.c_str(), old) == 0 && S_ISREG(old.st_mode) &&
        set_rights(made.get(), {old.st_uid, old.st_gid, old.st_mode & 0777}) != 0)
        raise(indexed);
    if (fsync(made.get()) != 0 ||
        rename_beneath(room->get(), indexed.c_str(), directory.get(), indexed.c_str()) != 0 ||
        fsync(directory.get()) != 0)
        raise(indexed);
    // Removes the text source that a killed rewrite of an earlier version has left here.
    (void)remove_file_beneath(directory.get(), name.c_str());
}

// Runs in the child just before it becomes postmap.
void MapRoom::enter() const
{
    std::string const path = directory_path + room_name;
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0 ||
        mount(path.c_str(), directory_path.c_str(), nullptr, MS_BIND, nullptr) != 0)
        throw SystemError(namespace_refused, errno);
    if (!isRoom(directory_path.c_str(), identity))
        throw SystemError(directory_path, ESTALE);
}

ToolResult MapRoom::run(std::vector<std::string> arguments, ToolStreams streams) const
{
    if (!isMade())
        return runPostmap(arguments, streams);
    if (directory_path.front() == '/') {
        streams.childSetup = [this] { enter(); };
        try {
            return runPostmap(arguments, streams);
        } catch (SystemError const& e) {
            if (std::string(e.what()).find(namespace_refused) != 0)
                throw;
        }
    }
    // Without a mount namespace postmap works through the room's descriptor, which it inherits.
    streams.childSetup = [this] { fcntl(room->get(), F_SETFD, 0); };
    arguments.back() = map.substr(0, map.find(':') + 1) + textSource();
    return runPostmap(arguments, streams);
}

void MapRoom::raise(std::string const& entry) const
{
    int const code = errno;
    throwSystemError(directory_path + entry, code);
}

} // namespace orvek::mail::postfix
