#include "util/tmp_file.h"

#include "util/errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <unistd.h>

namespace orvek {

namespace {

std::pair<std::string, int> makeUnique(std::string const& prefix)
{
    std::string name = prefix + "XXXXXX";
    int const fd = mkstemp(name.data());
    // Deliberate: the message has a colon of its own, and gets a second one before the reason.
    if (fd < 0)
        throwSystemError("mkstemp() failed: ", errno);
    return {name, fd};
}

} // namespace

TmpFileBase::TmpFileBase(std::pair<std::string, int> const& file)
    : file_path(file.first), buffer(file.second, std::ios_base::out)
{
}

TmpFile::TmpFile(std::string const& prefix, bool autoclean_)
    : std::ostream(nullptr), TmpFileBase(makeUnique(prefix)), autoclean(autoclean_)
{
    rdbuf(&buffer);
}

TmpFile::~TmpFile()
{
    if (!autoclean || unlink(file_path.c_str()) == 0)
        return;
    // Saved before printing: std::cerr flushes standard output, which may fail and change errno.
    int const code = errno;
    std::cerr << "TmpFile autoclean failed: " << strerror(code) << std::endl;
}

} // namespace orvek
