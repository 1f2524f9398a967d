#include "postfix/maps/map_dump.h"

#include "postfix/tools/tool_result.h"
#include "postfix/tools/tool_run.h"

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

} // namespace

void readMap(MapRoom const& room, process::ReceiverFunction const& receiver)
{
    Postponed failure;
    ToolResult const result =
        room.run({"-s", room.map}, ToolStreams::withoutInput().receivedBy([&](auto const& piece) {
            failure.attempt([&] { receiver(piece); });
        }));
    failure.raise();
    requireSuccess(result.status, result.diagnostics);
}

} // namespace orvek::mail::postfix
