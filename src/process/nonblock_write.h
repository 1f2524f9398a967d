// nonblock_write - writes what a non-blocking descriptor takes at once
//
// For a descriptor that has been reported writable. Data that does not fit is tried again in
// halves, down to one byte. Returns the number of bytes written and keeps errno.
//
// Failures raise SystemError "write": the call's own, EAGAIN when not even one byte fits, and a
// count of 0, with the current errno.

#ifndef MAILVEK_PROCESS_NONBLOCK_WRITE_H
#define MAILVEK_PROCESS_NONBLOCK_WRITE_H

namespace orvek::process {

unsigned long nonblock_write(int fd, void const* data, unsigned long count);

} // namespace orvek::process

#endif
