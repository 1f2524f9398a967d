// autoclean_ofstream - an output file that never outlives its writing
//
// A std::ofstream that knows its path. Its destructor always removes the file, even one that could
// not be opened; the file cannot be kept. The destructor keeps errno and ignores a failed removal.

#ifndef MAILVEK_UTIL_AUTOCLEAN_OFSTREAM_H
#define MAILVEK_UTIL_AUTOCLEAN_OFSTREAM_H

#include "lib/beneath/temporary_file.h"
#include "lib/report/owned.h"

#include <fstream>
#include <string>

namespace orvek {

class AutocleanOFStream : public std::ofstream
{
public:
    explicit AutocleanOFStream(std::string const& path);
    ~AutocleanOFStream() override;

    std::string const& path() const { return file_path; }

private:
    std::string const file_path;
    char const* name = nullptr; // the last component of file_path
    OpenDescriptor directory;
    TemporaryFile file;
};

} // namespace orvek

#endif
