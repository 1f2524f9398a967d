// retry_on_signal - repeats a system call that a signal has interrupted
//
// The call is any function object that returns -1 with errno set when it fails. The result and
// errno are those of the last attempt.

#ifndef MAILVEK_UTIL_RETRY_ON_SIGNAL_H
#define MAILVEK_UTIL_RETRY_ON_SIGNAL_H

#include <cerrno>

namespace orvek {

template<class Call>
auto retryOnSignal(Call call)
{
    for (;;) {
        auto const result = call();
        if (result != -1 || errno != EINTR)
            return result;
    }
}

} // namespace orvek

#endif
