// autoclean_ofstream - an output file that never outlives its writing
//
// A std::ofstream that knows its path and whose destructor removes the file, always: whether
// it was written, closed or could be opened at all, and there is no way to keep it. The
// destructor keeps errno, and a failed removal is not seen.

#ifndef MAILVEK_UTIL_AUTOCLEAN_OFSTREAM_H
#define MAILVEK_UTIL_AUTOCLEAN_OFSTREAM_H

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
};

} // namespace orvek

#endif
