// caller_streams - standard output and standard error when their reader does not read
//
// Whoever starts the tool chooses its streams, which may be a full pipe that nobody reads. The tool
// holds locks while it reports, so it must not wait there for ever.
//
// use_caller_streams() makes stdout, stderr, std::cout, std::cerr and std::clog wait for a reader
// with patience. One wait starts again when the reader takes anything, so a slow reader loses
// nothing until all waits together have become too long. Then the rest of the stream's output is
// dropped without an error, and so is that of the other stream if both lead to the same pipe.
// Files, /dev/null and the like, and closed descriptors are written as before. Buffers, order and
// texts do not change. fileno() knows neither stream afterwards.
//
// The caller's descriptors keep their flags, and children inherit them. Call this once, before
// anything is printed. Without memory the streams stay as they were.

#ifndef MAILVEK_LIB_REPORT_CALLER_STREAMS_H
#define MAILVEK_LIB_REPORT_CALLER_STREAMS_H

#include <string_view>

#include <sys/types.h>

// In milliseconds.
struct Patience
{
    int once;   // until the reader takes anything
    int in_all; // for all waits together; each wait takes its time off
};
constexpr Patience reader_patience = {30'000, 600'000};

// The streams share the patience in all.
void use_caller_streams(Patience patience = reader_patience);

// Writes the text in as many pieces as the reader takes. Returns the number of bytes written, with
// errno kept when that is all. Otherwise errno is ETIMEDOUT when the patience has ended, or that of
// write. Raises SIGPIPE, as write does, when nobody has the other end open.
ssize_t write_patiently(int descriptor, std::string_view text, Patience& patience);

#endif
