// data_stream_filter - passes a dump of records through a record filter as it arrives
//
// filterChunk takes the next piece of the dump, of any size. It hands each complete line to the
// filter, without its newline, and writes a kept line with a newline to the file at once. What
// follows the last newline waits for the next piece. finish passes it on as the last line. At most
// one line is in memory.
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

    // Receives a dump. Bind it by reference: a copy of the object has a pending text of its own.
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
