// uerr - the diagnostic stream of the tool
//
// Whatever is written on orvek::uerr reaches standard error at once, character by character. It
// reaches standard output in one piece at each flush: std::endl, std::flush, or the end of the
// program. The doubling is meant: the panel reads standard output, its operator standard error.
//
// A std::string may be a stranger's name, and the text of a char const* may contain one, as that of
// an exception does: their control bytes are made visible, see visible(). A literal stays as it is,
// and so does a text that is printed through std::ostream.

#ifndef MAILVEK_UTIL_UERR_H
#define MAILVEK_UTIL_UERR_H

#include <concepts>
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

UtilityErrorStream& operator<<(UtilityErrorStream& stream, std::string const& name);

// A text whose newlines are its own and stay. Its other control bytes are shown.
struct OwnLines
{
    std::string text;
};

UtilityErrorStream& operator<<(UtilityErrorStream& stream, OwnLines const& lines);

// A null text sets the bad bit.
template<std::same_as<char const*> Text>
UtilityErrorStream& operator<<(UtilityErrorStream& stream, Text const& text)
{
    if (text)
        return stream << std::string(text);
    stream.setstate(std::ios_base::badbit);
    return stream;
}

// Anything else, as std::ostream has it. The stream keeps its type for the next name.
template<typename Value>
UtilityErrorStream& operator<<(UtilityErrorStream& stream, Value const& value)
{
    static_cast<std::ostream&>(stream) << value;
    return stream;
}

inline UtilityErrorStream& operator<<(UtilityErrorStream& stream,
                                      std::ostream& (*manipulator)(std::ostream&))
{
    manipulator(stream);
    return stream;
}

extern UtilityErrorStream uerr;

} // namespace orvek

#endif
