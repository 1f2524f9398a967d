#include "util/autoclean_ofstream.h"

#include "lib/report/owned.h"

#include <unistd.h>

namespace orvek {

AutocleanOFStream::AutocleanOFStream(std::string const& path) : std::ofstream(path), file_path(path)
{
}

AutocleanOFStream::~AutocleanOFStream()
{
    ErrnoKeeper const keeper;
    unlink(file_path.c_str());
    // Closed here under the keeper: it writes what is left and may fail.
    rdbuf()->close();
}

} // namespace orvek
