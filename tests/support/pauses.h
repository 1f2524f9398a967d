// pauses - makes sleep take no time, and counts it
//
// This holds for the program's own calls of sleep. Link the program with --wrap for it. The event
// runs in each pause, with the pause's number, counted from 1. A Pauses object starts counting when
// it is made, and forgets count and event at its end. Only one may live at a time.

#ifndef MAILVEK_TESTS_SUPPORT_PAUSES_H
#define MAILVEK_TESTS_SUPPORT_PAUSES_H

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace pauses_detail {

inline std::vector<unsigned int> pauses; // their seconds
inline std::function<void(size_t)> event;

} // namespace pauses_detail

extern "C" [[gnu::used]] inline unsigned int __wrap_sleep(unsigned int seconds)
{
    pauses_detail::pauses.push_back(seconds);
    if (pauses_detail::event)
        pauses_detail::event(pauses_detail::pauses.size());
    return 0;
}

class Pauses
{
public:
    explicit Pauses(std::function<void(size_t)> event = {})
    {
        pauses_detail::pauses.clear();
        pauses_detail::event = std::move(event);
    }
    ~Pauses()
    {
        pauses_detail::pauses.clear();
        pauses_detail::event = {};
    }
    Pauses(Pauses const&) = delete;
    Pauses& operator=(Pauses const&) = delete;

    // The seconds of each pause.
    std::vector<unsigned int> const& seconds() const { return pauses_detail::pauses; }
};

#endif
