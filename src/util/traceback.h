// traceback - the call stack at the moment of construction
//
// An exception class that derives from this and from std::exception has its stack in its report.
// Up to 11 frames are kept. The skip innermost ones are not printed.
//
// The first print looks up the symbols and keeps them. A copy looks them up again.

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
