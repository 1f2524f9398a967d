// uerr - the diagnostic stream of the tool
//
// Whatever is written on orvek::uerr reaches standard error at once, character by character,
// and standard output in one piece at each flush (std::endl, std::flush, or the end of the
// program). The panel reads standard output, its operator standard error: the doubling is
// meant.

#ifndef MAILVEK_UTIL_UERR_H
#define MAILVEK_UTIL_UERR_H

#include <ostream>
#include <streambuf>
#include <string>

namespace orvek {

class UtilityErrorStreamBuf : public std::streambuf
{
public:
    UtilityErrorStreamBuf() = default;
    ~UtilityErrorStreamBuf() override;
    UtilityErrorStreamBuf(UtilityErrorStreamBuf const&) = delete;
    UtilityErrorStreamBuf& operator=(UtilityErrorStreamBuf const&) = delete;

protected:
    int sync() override;
    int_type overflow(int_type c) override;

private:
    void flush();

    std::string pending;
};

class UtilityErrorStream : public std::ostream
{
public:
    UtilityErrorStream();

private:
    UtilityErrorStreamBuf buffer;
};

extern UtilityErrorStream uerr;

} // namespace orvek

#endif
