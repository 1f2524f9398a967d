#include "postfix/maps/key_bytes.h"

#include "lib/beneath/entry.h"
#include "lib/beneath/opened_file.h"
#include "lib/beneath/place.h"
#include "postfix/maps/map_leftovers.h"
#include "postfix/maps/map_names.h"
#include "util/retry_on_signal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orvek::mail::postfix {

namespace {

// Reading as much takes some 5 ms, as starting postmap does.
constexpr off_t most_bytes = off_t{16} * 1024 * 1024;
constexpr size_t piece_size = size_t{256} * 1024;

// A longer key may be stored in pieces: a page of Berkeley DB has at least 512 bytes.
constexpr size_t longest_key = 255;

bool isPlain(std::string const& key)
{
    return key.size() <= longest_key && std::all_of(key.begin(), key.end(), [](char byte) {
               return static_cast<signed char>(byte) > 0;
           });
}

std::string inLowerCase(std::string key)
{
    std::transform(key.begin(), key.end(), key.begin(), [](char byte) {
        return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    });
    return key;
}

bool isIndexed(std::string const& map)
{
    size_t const colon = map.find(':');
    return colon == std::string::npos || map.compare(0, colon, "hash") == 0 ||
           map.compare(0, colon, "btree") == 0;
}

size_t sharedLength(std::string const& one, std::string const& other)
{
    auto const most = static_cast<std::ptrdiff_t>(std::min(one.size(), other.size()));
    return static_cast<size_t>(std::mismatch(one.begin(), one.begin() + most, other.begin()).first -
                               one.begin());
}

// Looks for keys in text that comes in pieces.
class KeySearch
{
public:
    explicit KeySearch(std::vector<std::string> const& wanted) : found(wanted.size())
    {
        for (auto const& key : wanted) {
            keys.push_back(inLowerCase(key));
            longest = std::max(longest, key.size());
        }
        shared = keys.front();
        for (auto const& key : keys)
            shared.resize(sharedLength(shared, key));
    }

    bool begin_alike() const { return !shared.empty(); }
    bool has(size_t key) const { return found[key]; }

    void take(std::string_view piece)
    {
        text.append(piece);
        for (size_t at = 0; (at = next(at)) != std::string::npos; ++at)
            compare(at);
        // A key may go on in the next piece.
        text.erase(0, text.size() - std::min(text.size(), longest - 1));
    }

private:
    size_t next(size_t from) const
    {
        void const* const hit =
            memmem(text.data() + from, text.size() - from, shared.data(), shared.size());
        return hit ? static_cast<size_t>(static_cast<char const*>(hit) - text.data())
                   : std::string::npos;
    }

    void compare(size_t at)
    {
        for (size_t i = 0; i < keys.size(); ++i)
            if (text.compare(at, keys[i].size(), keys[i]) == 0)
                found[i] = true;
    }

    std::vector<std::string> keys;
    std::vector<bool> found;
    std::string shared; // what all keys begin with
    size_t longest = 0;
    std::string text;
};

// False when the file is too large or cannot be read.
bool searchFile(int file, KeySearch& search)
{
    std::vector<char> piece(piece_size);
    for (off_t left = most_bytes; left >= 0;) {
        ssize_t const size = retryOnSignal([&] { return read(file, piece.data(), piece.size()); });
        if (size <= 0)
            return size == 0;
        search.take({piece.data(), static_cast<size_t>(size)});
        left -= size;
    }
    return false;
}

bool hasSaved(int directory, char const* name)
{
    struct stat info = {};
    return look_beneath(directory, savedNameOf(name).c_str(), info) == 0;
}

// False when nobody can tell but postmap. A missing file has no keys.
bool searchMap(std::string const& map, KeySearch& search)
{
    std::string const path = mapPath(map);
    char const* name = nullptr;
    OpenDescriptor const directory = open_parent(path.c_str(), name);
    if (directory.get() < 0 || hasSaved(directory.get(), name))
        return false;
    OpenDescriptor const file = open_file_beneath(
        directory.get(), (std::string(name) + ".db").c_str(), O_RDONLY, most_bytes);
    if (file.get() < 0)
        return errno == ENOENT;
    return flock(file.get(), LOCK_SH | LOCK_NB) == 0 && searchFile(file.get(), search);
}

} // namespace

std::vector<std::string> keysToAsk(std::string const& map, std::vector<std::string> const& keys)
{
    if (keys.empty() || !isIndexed(map) || !std::all_of(keys.begin(), keys.end(), isPlain))
        return keys;
    KeySearch search(keys);
    if (!search.begin_alike() || !searchMap(map, search))
        return keys;
    std::vector<std::string> asked;
    for (size_t i = 0; i < keys.size(); ++i)
        if (search.has(i))
            asked.push_back(keys[i]);
    return asked;
}

} // namespace orvek::mail::postfix
