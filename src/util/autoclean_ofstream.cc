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
    // Here, for it may write what is left and fail, and must do so under the keeper.
    rdbuf()->close();
}

} // namespace orvek
