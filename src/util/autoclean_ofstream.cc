#include "util/autoclean_ofstream.h"

#include "lib/beneath/place.h"

namespace orvek {

AutocleanOFStream::AutocleanOFStream(std::string const& path)
    : std::ofstream(path), file_path(path), directory(open_parent(file_path.c_str(), name)),
      file(TemporaryFile::of_caller(directory.get(), name))
{
}

AutocleanOFStream::~AutocleanOFStream()
{
    ErrnoKeeper const keeper;
    file.remove();
    // Closed here under the keeper: it writes what is left and may fail.
    rdbuf()->close();
}

} // namespace orvek
