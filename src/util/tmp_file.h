// tmp_file - an output stream on a new file beside its target
//
// The file's name is the prefix and six more characters. With the target's path as the prefix a
// rename over the target never crosses a file system. The mode is 0600, as mkstemp makes it; change
// it where another is needed.
//
// The destructor removes the file while autoclean is set. To keep the file, flush it, clear
// autoclean, destroy the object and then rename. Flush first: the destructor is silent about what
// it could not write.
//
// The constructor raises a system error and leaves nothing. Writing fails as the stream's exception
// mask says. A failed removal is one line on standard error.

#ifndef MAILVEK_UTIL_TMP_FILE_H
#define MAILVEK_UTIL_TMP_FILE_H

#include "lib/beneath/temporary_file.h"
#include "lib/report/owned.h"

#include <ostream>
#include <string>
#include <utility>

#include <ext/stdio_filebuf.h>

namespace orvek {

// The path of a file and a buffer that writes to its descriptor, which it owns.
class TmpFileBase
{
public:
    std::string const& path() const { return file_path; }
    int descriptor() { return buffer.fd(); }

protected:
    explicit TmpFileBase(std::pair<std::string, int> const& file);
    ~TmpFileBase() = default;
    TmpFileBase(TmpFileBase const&) = delete;
    TmpFileBase& operator=(TmpFileBase const&) = delete;

    std::string const file_path;
    __gnu_cxx::stdio_filebuf<char> buffer;
};

// The file itself.
struct OwnedTmpFile
{
    explicit OwnedTmpFile(std::string const& prefix);

    // Its path, and its descriptor, which the caller owns from now on. The file stays owned.
    std::pair<std::string, int> opened();

    std::string const prefix;
    char const* target = nullptr; // the last component of prefix
    OpenDescriptor directory;
    TemporaryFile file;
};

class TmpFile : private OwnedTmpFile, public TmpFileBase, public virtual std::ostream
{
public:
    TmpFile(std::string const& prefix, bool autoclean);
    ~TmpFile() override;

    bool autoclean;
};

} // namespace orvek

#endif
