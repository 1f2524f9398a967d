#include "mail/lib/accounts/account_wait.h"

namespace {

constexpr long wait_growth = 10000;       // nanoseconds
constexpr double longest_waiting = 120.0; // seconds

// Of the calls before.
double waited = 0;
bool over = false;

timespec now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

double seconds_since(timespec const& began)
{
    timespec const end = now();
    return static_cast<double>(end.tv_sec - began.tv_sec) +
           static_cast<double>(end.tv_nsec - began.tv_nsec) / 1e9;
}

} // namespace

AccountWait::AccountWait() : began(now())
{
}

AccountWait::~AccountWait()
{
    if (locked)
        waited += seconds_since(began);
}

// Deliberate: waits also after a repeated call that succeeded, and a signal during the wait is a
// failure.
bool AccountWait::pause()
{
    if (wait.tv_nsec > 0 && nanosleep(&wait, nullptr) != 0)
        return false;
    wait.tv_nsec += wait_growth;
    return true;
}

bool AccountWait::goesOn()
{
    locked = true;
    over = over || waited + seconds_since(began) >= longest_waiting;
    return !over;
}

bool AccountWait::isOver()
{
    return over;
}

void AccountWait::startAnew()
{
    waited = 0;
    over = false;
}
