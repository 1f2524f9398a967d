// indexed_file - guards the indexed file of a map while postmap rebuilds it
//
// postmap rebuilds a hash or btree map in place: it empties the file and fills it again, so
// that a rebuild which fails half way leaves a broken map. Other types make a new file, and
// there is nothing to guard.
//
// IndexedFileCopy makes a synced copy beside the file, with its owner and mode: a piece by each
// proceed(), while there is something to wait for, and the rest by complete(), which is to be
// called before the rebuild. A file that has changed by then is copied anew. At its end a complete
// copy replaces the file, unless the file is as it was; after dismiss() the file stays and the
// copy goes. When the tool itself is killed meanwhile the copy stays on the disk until the next
// rewrite of the map, under the file's name and ".saved" when it is complete, and with ".tmp"
// behind that before.
//
// Failures: a system error that names the file, and then there is no copy. The destructor says
// on standard error when it cannot put the file back, and leaves the copy.

#ifndef MAILVEK_POSTFIX_MAPS_INDEXED_FILE_H
#define MAILVEK_POSTFIX_MAPS_INDEXED_FILE_H

#include <memory>
#include <string>

#include <sys/types.h>

namespace orvek::mail::postfix {

// The file that postmap rebuilds in place; empty for a map of another type.
std::string indexedFileOf(std::string const& map);

// Which file it is, how long, and when it was last changed.
struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    time_t seconds = 0;
    long nanoseconds = 0;

    bool operator==(FileIdentity const&) const = default;
};

class IndexedFileCopy
{
public:
    // No copy is made of a file that does not exist, or for an empty path.
    explicit IndexedFileCopy(std::string const& path);
    ~IndexedFileCopy();
    IndexedFileCopy(IndexedFileCopy const&) = delete;
    IndexedFileCopy& operator=(IndexedFileCopy const&) = delete;

    void proceed();
    void complete();
    void dismiss();

private:
    class Part;

    void begin();
    void copyRest();
    bool isUnchanged() const;

    std::string const path;
    std::string const copy_path;
    FileIdentity original;
    std::unique_ptr<Part> part; // what is not complete
    bool armed = false;
};

} // namespace orvek::mail::postfix

#endif
