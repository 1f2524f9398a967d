// nosleep - a library to preload that makes every sleep return at once
//
// sleep, usleep, nanosleep and clock_nanosleep return as if the whole time had passed. If
// NOSLEEP_JOURNAL is set, each call first adds a line to that file: its name and the seconds asked
// for. Child programs sleep as usual, because LD_PRELOAD and NOSLEEP_JOURNAL are removed from the
// environment before main.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

namespace {

char journal[4096];

void note(char const* name, double seconds)
{
    if (journal[0] == '\0')
        return;
    int const fd = open(journal, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return;
    dprintf(fd, "%s %g\n", name, seconds);
    close(fd);
}

double seconds_of(timespec const* time)
{
    return static_cast<double>(time->tv_sec) + static_cast<double>(time->tv_nsec) / 1e9;
}

__attribute__((constructor)) void take_orders()
{
    if (char const* path = getenv("NOSLEEP_JOURNAL"); path && strlen(path) < sizeof journal)
        strcpy(journal, path);
    unsetenv("NOSLEEP_JOURNAL");
    unsetenv("LD_PRELOAD");
}

} // namespace

extern "C" {

unsigned sleep(unsigned seconds)
{
    note("sleep", seconds);
    return 0;
}

int usleep(useconds_t microseconds)
{
    note("usleep", microseconds / 1e6);
    return 0;
}

int nanosleep(timespec const* wanted, timespec* left)
{
    note("nanosleep", seconds_of(wanted));
    if (left)
        *left = {};
    return 0;
}

int clock_nanosleep(clockid_t, int, timespec const* wanted, timespec* left)
{
    note("clock_nanosleep", seconds_of(wanted));
    if (left)
        *left = {};
    return 0;
}
}
