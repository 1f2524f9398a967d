// counted_sleep - lets the sleeps of the code under test take no time
//
// While a CountedSleep lives, each call of sleep returns at once and is counted; what is to
// happen during the sleep with a given number, counted from 1, happens in it. One lives at a
// time. What counts is what the program itself calls, which has to be linked with --wrap=sleep.

#ifndef MAILVEK_TESTS_SUPPORT_COUNTED_SLEEP_H
#define MAILVEK_TESTS_SUPPORT_COUNTED_SLEEP_H

#include <functional>
#include <utility>
#include <vector>

extern "C" unsigned __real_sleep(unsigned seconds);

class CountedSleep
{
public:
    explicit CountedSleep(size_t number = 0, std::function<void()> event_ = {})
        : event_number(number), event(std::move(event_))
    {
        current = this;
    }
    ~CountedSleep() { current = nullptr; }
    CountedSleep(CountedSleep const&) = delete;
    CountedSleep& operator=(CountedSleep const&) = delete;

    // The seconds of each sleep.
    std::vector<unsigned> slept;

    static unsigned sleep(unsigned seconds)
    {
        if (!current)
            return __real_sleep(seconds);
        current->slept.push_back(seconds);
        if (current->slept.size() == current->event_number)
            current->event();
        return 0;
    }

private:
    static inline CountedSleep* current = nullptr;

    size_t const event_number;
    std::function<void()> const event;
};

extern "C" [[gnu::used]] inline unsigned __wrap_sleep(unsigned seconds)
{
    return CountedSleep::sleep(seconds);
}

#endif
