// fast_clock - a clock that goes on by half a minute at each look
//
// While a FastClock lives, that holds for the processor's time and for the monotonic clock, each of
// which is looked at with clock_gettime. Link the test program with --wrap=clock_gettime.

#ifndef MAILVEK_TESTS_SUPPORT_FAST_CLOCK_H
#define MAILVEK_TESTS_SUPPORT_FAST_CLOCK_H

#include <ctime>

class FastClock
{
public:
    FastClock() { runs = true; }
    ~FastClock() { runs = false; }
    FastClock(FastClock const&) = delete;
    FastClock& operator=(FastClock const&) = delete;

    inline static bool runs = false;
    inline static time_t seconds = 0; // that it is ahead
};

extern "C" {

int __real_clock_gettime(clockid_t clock, timespec* time);

[[gnu::used]] inline int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    int const result = __real_clock_gettime(clock, time);
    if (FastClock::runs && (clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_MONOTONIC))
        time->tv_sec += FastClock::seconds += 30;
    return result;
}

} // extern "C"

#endif
