#include "util/tmp_file.h"

#include "lib/beneath/place.h"
#include "util/errors.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace orvek {

OwnedTmpFile::OwnedTmpFile(std::string const& prefix_)
    : prefix(prefix_), directory(open_parent(prefix.c_str(), target)),
      file(TemporaryFile::with_separator(directory.get(), target, "", 0600))
{
    // Deliberate: the message has a colon of its own, and gets a second one before the reason.
    if (file.get() < 0)
        throwSystemError("mkstemp() failed: ", errno);
}

std::pair<std::string, int> OwnedTmpFile::opened()
{
    std::string const directory_path = prefix.substr(0, prefix.rfind('/') + 1);
    return {directory_path + file.name(), file.release()};
}

TmpFileBase::TmpFileBase(std::pair<std::string, int> const& file)
    : file_path(file.first), buffer(file.second, std::ios_base::out)
{
}

TmpFile::TmpFile(std::string const& prefix, bool autoclean_)
    : std::ostream(nullptr), OwnedTmpFile(prefix), TmpFileBase(opened()), autoclean(autoclean_)
{
    rdbuf(&buffer);
}

TmpFile::~TmpFile()
{
    if (!autoclean)
        file.keep();
    else if (int const code = file.remove(); code != 0)
        std::cerr << "TmpFile autoclean failed: " << strerror(code) << std::endl;
}

} // namespace orvek
