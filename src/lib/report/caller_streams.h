// caller_streams - standard output and standard error when their reader does not read
//
// Whoever starts the tool chooses what its streams lead to, a pipe that is full and that nobody
// reads among them. The tool holds locks while it reports, so it must not wait there for ever.
//
// use_caller_streams() makes stdout, stderr, std::cout, std::cerr and std::clog wait for a reader
// for patience milliseconds, or for ever with a negative number, and no longer. A reader who takes
// anything in that time is waited for again, so a slow one loses nothing. After it the rest
// of what the stream prints is dropped without an error, and so is that of the other stream where
// both lead to the same pipe. Files, /dev/null and its kind, and descriptors that are closed, are
// written as before. Buffers, order and texts do not change. fileno() knows neither stream
// afterwards.
//
// The caller's descriptors keep their flags and are what children inherit. Call it once, while
// nothing is printed yet. Without memory the streams stay as they were.

#ifndef MAILVEK_LIB_REPORT_CALLER_STREAMS_H
#define MAILVEK_LIB_REPORT_CALLER_STREAMS_H

#include <string_view>

#include <sys/types.h>

constexpr int reader_patience = 30'000;

void use_caller_streams(int patience = reader_patience);

// Writes the text in as many pieces as the reader takes. The number of bytes that were written,
// with errno kept when they are all. Fewer have a reason in errno: ETIMEDOUT after patience
// milliseconds in which nothing was taken, otherwise that of write. As write does, it raises
// SIGPIPE where nobody has the other end.
ssize_t write_patiently(int descriptor, std::string_view text, int patience);

#endif
