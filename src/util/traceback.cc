#include "util/traceback.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <cxxabi.h>
#include <execinfo.h>

namespace orvek {

namespace {

// One buffer for the demangled names of all frames. __cxa_demangle grows it as needed.
class Demangler
{
public:
    Demangler() = default;
    ~Demangler() { free(buffer); }
    Demangler(Demangler const&) = delete;
    Demangler& operator=(Demangler const&) = delete;

    // The demangled name, valid until the next call, or null.
    char const* demangle(std::string const& mangled)
    {
        int status = 0;
        char* const name = abi::__cxa_demangle(mangled.c_str(), buffer, &length, &status);
        if (status != 0 || !name)
            return nullptr;
        buffer = name;
        return buffer;
    }

private:
    char* buffer = nullptr;
    size_t length = 0;
};

// A symbol line reads "file(mangled+offset) [address]".
void printSymbolLine(std::ostream& out, std::string_view line, Demangler& demangler)
{
    out << '\t';
    auto const open = line.find('(');
    auto const plus = open == std::string_view::npos ? open : line.find('+', open);
    char const* name = nullptr;
    if (plus != std::string_view::npos)
        name = demangler.demangle(std::string(line.substr(open + 1, plus - open - 1)));
    if (name)
        out << line.substr(0, open + 1) << name << line.substr(plus);
    else
        out << line;
    out << std::endl;
}

} // namespace

Traceback::Traceback(unsigned long skip)
    : frame_count(0), skip_count(skip), frames{}, symbols(nullptr)
{
    int const got = backtrace(frames, max_frames);
    frame_count = got < 0 ? 0 : static_cast<unsigned long>(got);
    skip_count = std::min(skip_count, frame_count);
}

Traceback::~Traceback() = default;

Traceback::Traceback(Traceback const& other)
    : frame_count(other.frame_count), skip_count(other.skip_count), frames{}, symbols(nullptr)
{
    std::copy(std::begin(other.frames), std::end(other.frames), std::begin(frames));
}

Traceback& Traceback::operator=(Traceback const& other)
{
    if (this == &other)
        return *this;
    frame_count = other.frame_count;
    skip_count = other.skip_count;
    std::copy(std::begin(other.frames), std::end(other.frames), std::begin(frames));
    symbols.reset();
    return *this;
}

void Traceback::printSymbols(std::ostream& out) const
{
    if (skip_count >= frame_count)
        return;
    out << "Traceback:" << std::endl;
    Demangler demangler;
    for (unsigned long i = skip_count; i < frame_count; ++i)
        printSymbolLine(out, symbols.get()[i], demangler);
}

void Traceback::printAddresses(std::ostream& out) const
{
    out << "Traceback addresses:" << std::endl;
    for (unsigned long i = skip_count; i < frame_count; ++i)
        out << '\t' << frames[i] << std::endl;
}

std::ostream& operator<<(std::ostream& out, Traceback const& traceback)
{
    if (!traceback.symbols)
        traceback.symbols.reset(
            backtrace_symbols(traceback.frames, static_cast<int>(traceback.frame_count)));
    if (traceback.symbols)
        traceback.printSymbols(out);
    else
        traceback.printAddresses(out);
    return out;
}

} // namespace orvek
