#include "postfix/maps/map_room.h"

#include "lib/beneath/descriptor_path.h"
#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "postfix/maps/block_copy.h"
#include "postfix/maps/map_leftovers.h"
#include "postfix/maps/map_names.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

constexpr mode_t copy_mode = 0600; // until it has the mode of the file in use

// A copy takes 0.4 ms of processor time per MiB, and starting postmap some 10 ms.
constexpr off_t largest_copy = off_t(32) * 1024 * 1024;

// postmap's writes set the present time, so a file that still has this time was not changed.
constexpr timespec copied_time = {0, 0};

// How long others may hold the lock of the indexed file: a postmap that somebody runs by hand on a
// large map takes a few seconds.
constexpr int lock_attempts = 1500;
constexpr timespec lock_pause = {0, 10'000'000};

// The seconds after which a postmap on the file in use is ended: somebody has taken the lock just
// before it and keeps it.
constexpr unsigned int longest_wait = 600;
constexpr off_t largest_text = off_t{1} << 30;

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

// postmap locks the file when it reads or writes it, so the copy is whole.
bool waitForLock(int file)
{
    for (int i = 0; i < lock_attempts; ++i) {
        if (retryOnSignal([=] { return flock(file, LOCK_SH | LOCK_NB); }) == 0)
            return true;
        if (errno != EWOULDBLOCK)
            return false;
        nanosleep(&lock_pause, nullptr);
    }
    errno = EWOULDBLOCK;
    return false;
}

bool isLater(timespec const& one, timespec const& other)
{
    return one.tv_sec != other.tv_sec ? one.tv_sec > other.tv_sec : one.tv_nsec > other.tv_nsec;
}

// The present time, but at least a second after the other time.
timespec timeAfter(timespec other)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    ++other.tv_sec;
    return isLater(now, other) ? now : other;
}

// File systems that cannot sync a directory do not need it.
bool syncDirectory(int directory)
{
    return fsync(directory) == 0 || errno == EINVAL;
}

} // namespace

MapRoom::MapRoom(std::string const& map_)
    : map(map_), directory_path(directoryOf(mapPath(map))), name(nameOf(mapPath(map))),
      indexed(indexedNameOf(map)), directory(open_root(directory_path.c_str()))
{
    if (indexed.empty() || directory.get() < 0)
        return;
    saved = clearLeftovers(directory.get(), name);
    room = takeRoom(directory.get(), directory_path, name);
}

MapRoom::~MapRoom()
{
    ErrnoKeeper const keeper;
    if (!isMade())
        return;
    for (std::string const& file : {name, indexed})
        if (remove_file_beneath(room->get(), file.c_str()) != 0 && errno != ENOENT)
            room->spoil();
}

void MapRoom::borrow(MapUse use)
{
    if (!isMade())
        return;
    was_lent = true;
    lend(indexed, use, largest_copy);
}

void MapRoom::borrowSaved(MapUse use)
{
    was_lent = false;
    lend(savedNameOf(name), use, use == MapUse::change ? any_size : largest_copy);
}

void MapRoom::lend(std::string const& entry, MapUse use, off_t largest)
{
    in_use = {};
    OpenDescriptor const file =
        open_file_beneath(directory.get(), entry.c_str(), O_RDONLY, any_size);
    if (file.get() < 0 && errno == ENOENT)
        return;
    // Only after the wait: whoever had the lock may have changed the file.
    if (file.get() < 0 || !waitForLock(file.get()) || fstat(file.get(), &in_use) != 0)
        raise(entry);
    if (copyIn(file.get(), in_use.st_size, largest))
        return;
    // A disk without room for a copy may have room for the new map.
    if (in_use.st_size <= largest && use == MapUse::change)
        raise(indexed);
    linkIn(file.get());
}

// False with errno set when it made no copy: it failed, or would take too long.
bool MapRoom::copyIn(int from, off_t size, off_t largest)
{
    OpenDescriptor const copy = make_file_beneath(room->get(), indexed.c_str(), copy_mode);
    timespec const times[] = {copied_time, copied_time};
    if (copy.get() >= 0 &&
        (shareBlocks(from, copy.get()) ||
         (size <= largest && copyBlocks(from, copy.get(), size) == 0)) &&
        futimens(copy.get(), times) == 0) {
        borrowed = Borrowed::copy;
        return true;
    }
    ErrnoKeeper const keeper;
    (void)remove_file_beneath(room->get(), indexed.c_str());
    return false;
}

// Uses the descriptor's path: AT_EMPTY_PATH needs a capability that a container may lack.
void MapRoom::linkIn(int from)
{
    if (linkat(AT_FDCWD, DescriptorPath(from).get(), room->get(), indexed.c_str(),
               AT_SYMLINK_FOLLOW) != 0)
        raise(indexed);
    borrowed = Borrowed::link;
}

void MapRoom::giveBack()
{
    if (borrowed != Borrowed::nothing && remove_file_beneath(room->get(), indexed.c_str()) != 0)
        raise(indexed);
    borrowed = Borrowed::nothing;
}

std::string MapRoom::textSource() const
{
    return isMade() ? "/proc/self/fd/" + std::to_string(room->get()) + "/" + name : mapPath(map);
}

// The file has at least two more bytes for each key and each value.
off_t MapRoom::mostText() const
{
    struct stat info = {};
    if (!isMade() || look_beneath(room->get(), indexed.c_str(), info) != 0)
        return largest_text;
    return std::min(info.st_size, largest_text);
}

bool MapRoom::install()
{
    struct stat now = {};
    if (!isMade() || !isThere(room->get(), now))
        return true;
    if (borrowed == Borrowed::link)
        touch(now);
    else if (borrowed != Borrowed::copy || isLater(now.st_mtim, copied_time))
        return replace();
    return true;
}

bool MapRoom::isThere(int where, struct stat& file) const
{
    bool const found = look_beneath(where, indexed.c_str(), file) == 0;
    if (!found && errno != ENOENT)
        raise(indexed);
    return found;
}

// For a file in use that was changed in place.
void MapRoom::touch(struct stat const& now) const
{
    if (!isLater(now.st_mtim, in_use.st_mtim) && !isLater(in_use.st_mtim, now.st_mtim))
        return;
    timespec const times[] = {{0, UTIME_OMIT}, timeAfter(in_use.st_mtim)};
    if (set_times_beneath(room->get(), indexed.c_str(), times) != 0)
        raise(indexed);
}

// Whether somebody has changed the file in use since it was borrowed.
bool MapRoom::isChanged(struct stat const& now) const
{
    return was_lent && S_ISREG(in_use.st_mode) && now.st_nlink == 1 &&
           (now.st_size != in_use.st_size || isLater(now.st_mtim, in_use.st_mtim) ||
            isLater(in_use.st_mtim, now.st_mtim));
}

// The rights are those of the file that the content is from. The directory's owner may have put
// another user's file under its name since. Content that is all the tool's own stays root's.
void MapRoom::prepare(int made, struct stat const& old) const
{
    bool const is_own = !was_lent && borrowed == Borrowed::nothing;
    struct stat source = is_own ? old : in_use;
    if (is_own)
        source.st_uid = 0;
    timespec const times[] = {{0, UTIME_OMIT}, timeAfter(old.st_mtim)};
    if ((S_ISREG(source.st_mode) &&
         set_rights(made, {source.st_uid, source.st_gid, source.st_mode & 0777}) != 0) ||
        futimens(made, times) != 0)
        raise(indexed);
    // Postfix notices a replaced file by its having no name left. On a file system in layers, a
    // container's for example, a file of a lower layer seems to keep it; its time tells then.
    OpenDescriptor const replaced =
        open_file_beneath(directory.get(), indexed.c_str(), O_RDONLY, any_size);
    if (replaced.get() >= 0)
        static_cast<void>(futimens(replaced.get(), times));
}

bool MapRoom::replace()
{
    OpenDescriptor const made = open_file_beneath(room->get(), indexed.c_str(), O_RDONLY, any_size);
    if (made.get() < 0)
        raise(indexed);
    struct stat old = {};
    if (!isThere(directory.get(), old) || !S_ISREG(old.st_mode))
        old = in_use; // somebody has taken it away since it was borrowed
    if (isChanged(old))
        return false;
    if (S_ISREG(old.st_mode))
        prepare(made.get(), old);
    // A changed copy needs no sync: postmap has synced it, and the file system keeps the order of
    // the later changes.
    if ((borrowed == Borrowed::nothing && fsync(made.get()) != 0) ||
        rename_beneath(room->get(), indexed.c_str(), directory.get(), indexed.c_str()) != 0 ||
        !syncDirectory(directory.get()))
        raise(indexed);
    // Whatever has the name of the text source: a rewrite has always removed it.
    if (borrowed == Borrowed::nothing)
        (void)remove_file_beneath(directory.get(), name.c_str());
    borrowed = Borrowed::nothing;
    return true;
}

void MapRoom::putBackSaved()
{
    if (rename_beneath(directory.get(), savedNameOf(name).c_str(), directory.get(),
                       indexed.c_str()) != 0 ||
        !syncDirectory(directory.get()))
        raise(savedNameOf(name));
    saved = false;
}

void MapRoom::dropSaved()
{
    ErrnoKeeper const keeper;
    (void)remove_file_beneath(directory.get(), savedNameOf(name).c_str());
    saved = false;
}

ToolResult MapRoom::run(std::vector<std::string> arguments, ToolStreams streams) const
{
    if (!isMade())
        return runPostmap(arguments, streams);
    streams.childSetup = [this] { limitWait(); };
    if (std::optional<ToolResult> const result = room->runInPlace(arguments, streams))
        return *result;
    // Without a mount namespace postmap works through the room's descriptor, which it inherits.
    streams.childSetup = [this] {
        fcntl(room->get(), F_SETFD, 0);
        limitWait();
    };
    arguments.back() = map.substr(0, map.find(':') + 1) + textSource();
    ToolResult result = runPostmap(arguments, streams);
    boost::replace_all(result.diagnostics, textSource(), mapPath(map));
    return result;
}

// Runs in the child. Nobody else can lock a file that is only in the room.
void MapRoom::limitWait() const
{
    if (borrowed == Borrowed::link)
        alarm(longest_wait);
}

void MapRoom::raise(std::string const& entry) const
{
    int const code = errno;
    throwSystemError(directory_path + entry, code);
}

} // namespace orvek::mail::postfix
