// data_stream_filter - passes a dump of records through a record filter as it arrives
//
// filterChunk takes the next piece of the dump, of any size, and hands each line that it
// completes to the filter, without its newline. A line that is kept is written with a newline
// and reaches the file at once. What follows the last newline waits for the next piece; finish
// passes it as a line of its own when there is no more. One line at most is in memory.
//
// The stream stays the caller's. Failures: whatever the filter and the stream raise.

#ifndef MAILVEK_POSTFIX_MAPS_DATA_STREAM_FILTER_H
#define MAILVEK_POSTFIX_MAPS_DATA_STREAM_FILTER_H

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvek::mail::postfix::database {

template<class R>
class DataStreamFilter
{
public:
    DataStreamFilter(R filter_, std::ostream& out_) : filter(std::move(filter_)), out(&out_) {}

    // The receiver of a dump. Bind it to the object by reference: a copy would have a pending
    // text of its own.
    void filterChunk(std::vector<char> const& chunk)
    {
        std::string_view rest(chunk.data(), chunk.size());
        for (std::size_t newline = 0; (newline = rest.find('\n')) != std::string_view::npos;) {
            pending.append(rest.substr(0, newline));
            filterPending();
            rest.remove_prefix(newline + 1);
        }
        pending.append(rest);
    }

    // For a dump whose last line has no newline.
    void finish()
    {
        if (!pending.empty())
            filterPending();
    }

private:
    void filterPending()
    {
        if (filter(pending))
            *out << pending << std::endl;
        pending.clear();
    }

    R filter;
    std::ostream* out;
    std::string pending;
};

} // namespace orvek::mail::postfix::database

#endif
