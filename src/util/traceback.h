// traceback - the call stack at the moment of construction
//
// For exception classes that derive from it beside std::exception: the report of such an
// exception then ends with its stack. At most 11 frames are kept; the skip innermost ones
// are not printed.
//
// Symbols are looked up at the first print and kept; a copy looks them up anew.

#ifndef MAILVEK_UTIL_TRACEBACK_H
#define MAILVEK_UTIL_TRACEBACK_H

#include <cstdlib>
#include <memory>
#include <ostream>

namespace orvek {

class Traceback
{
public:
    explicit Traceback(unsigned long skip);
    virtual ~Traceback();
    Traceback(Traceback const& other);
    Traceback& operator=(Traceback const& other);

    friend std::ostream& operator<<(std::ostream& out, Traceback const& traceback);

private:
    struct FreeSymbols
    {
        void operator()(char** symbols) const { free(static_cast<void*>(symbols)); }
    };

    static constexpr int max_frames = 11;

    void printSymbols(std::ostream& out) const;
    void printAddresses(std::ostream& out) const;

    unsigned long frame_count;
    unsigned long skip_count;
    void* frames[max_frames];
    mutable std::unique_ptr<char*, FreeSymbols> symbols;
};

} // namespace orvek

#endif
