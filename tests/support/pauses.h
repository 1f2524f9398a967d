// pauses - sleep takes no time, and is counted
//
// What counts is sleep as called by the program itself, which has to be linked with --wrap for
// it. An event is done in each pause, with the pause's number, counted from 1. A Pauses object
// counts from its own beginning and forgets count and event at its end; one lives at a time.

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

    // The seconds of each.
    std::vector<unsigned int> const& seconds() const { return pauses_detail::pauses; }
};

#endif
