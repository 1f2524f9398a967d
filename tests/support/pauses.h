// pauses - sleep takes no time, and is counted
//
// What counts is sleep as called by the program itself, which has to be linked with --wrap for
// it. An event is done in each pause, with the pause's number, counted from 1.

#ifndef MAILVEK_TESTS_SUPPORT_PAUSES_H
#define MAILVEK_TESTS_SUPPORT_PAUSES_H

#include <functional>
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

#endif
