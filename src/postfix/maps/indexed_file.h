// indexed_file - guards the indexed file of a map while postmap rebuilds it
//
// postmap rebuilds a hash or btree map in place: it empties the file and fills it again, so a
// failed rebuild leaves a broken map. Other types make a new file, which needs no guard.
//
// IndexedFileCopy makes a synced copy beside the file, with its owner and mode. proceed() copies
// one piece while the caller waits; complete() copies the rest. Call complete() before the
// rebuild; it starts anew if the file has changed by then. The destructor puts a complete copy in
// the file's place, unless the file is as it was. After dismiss() the file stays and the copy
// goes. A kill of the tool leaves the copy on the disk until the next rewrite of the map. It is
// named .saved when complete, .saved.tmp until then.
//
// Failures: a system error that names the file; there is no copy then. The destructor reports on
// standard error that it cannot put the file back, and leaves the copy.

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
