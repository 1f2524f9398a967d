#include "postfix/maps/map_dump.h"

#include "postfix/tools/tool_result.h"
#include "postfix/tools/tool_run.h"
#include "util/errors.h"

#include <exception>

namespace orvek::mail::postfix {

namespace {

// Keeps a receiver's first exception until the run is over. A pipe that an exception leaves does
// not wait for its program.
class Postponed
{
public:
    template<class Code>
    void attempt(Code const& code)
    {
        if (raised)
            return;
        try {
            code();
        } catch (...) {
            raised = std::current_exception();
        }
    }

    void raise() const
    {
        if (raised)
            std::rethrow_exception(raised);
    }

private:
    std::exception_ptr raised;
};

// Much more than a dump of the file needs, but a dump of a file without an end is stopped soon.
unsigned long processorSeconds(off_t text)
{
    constexpr unsigned long start = 2;
    constexpr off_t text_a_second = 1 << 20;
    return start + static_cast<unsigned long>(text / text_a_second);
}

} // namespace

void readMap(MapRoom const& room, process::ReceiverFunction const& receiver)
{
    Postponed failure;
    off_t left = room.mostText();
    ToolStreams streams = ToolStreams::withoutInput();
    streams.processorSeconds = processorSeconds(left);
    streams.receivedBy([&](auto const& piece) {
        failure.attempt([&] {
            left -= static_cast<off_t>(piece.size());
            if (left < 0)
                throw PostfixDatabaseError("the indexed file of " + room.map + " is damaged");
            receiver(piece);
        });
    });
    ToolResult const result = room.run({"-s", room.map}, streams);
    failure.raise();
    requireSuccess(result.status, result.diagnostics);
}

} // namespace orvek::mail::postfix
