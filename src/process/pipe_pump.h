// pipe_pump - the traffic of a running pipeline
//
// Feeds the first stage, collects from the last one and follows the ends of all stages, until
// every stage has ended and what they left in their pipes has been read. Failures as in pipe.h.

#ifndef MAILVEK_PROCESS_PIPE_PUMP_H
#define MAILVEK_PROCESS_PIPE_PUMP_H

#include "process/pipe.h"

#include <cstddef>
#include <vector>

#include <poll.h>

namespace orvek::process {

class PipePump
{
public:
    // launches has one launched slot for each stage of the pipe.
    PipePump(Pipe& pipe, ProcessSetCatcher& catcher, ProcessLaunch* launches);
    void run();

private:
    // A descriptor to read from, and who gets what has been read; null for nobody.
    struct Channel
    {
        FdOwner* source;
        ReceiverFunction const* receiver;
    };
    enum class Got
    {
        data,
        nothing,
        end
    };

    void startFeeding();
    void addChannels();
    void addChannel(FdOwner& source, ReceiverFunction const* receiver);

    void fill();
    bool wait();
    void noteEnds();
    bool noteEnd(size_t stage);
    void feed();
    void endFeeding();
    void readReady();
    Got readOnce(Channel const& channel);
    void drain();

    Pipe& pipe;
    ProcessSetCatcher& catcher;
    ProcessLaunch* const launches;
    FdOwner& input; // the tool's end of the first stage's standard input

    bool feeding = false;
    bool exhausted = false; // the source has said that there is no more
    std::vector<char> chunk;
    size_t written = 0; // of chunk
    size_t ended = 0;   // stages
    std::vector<Channel> channels;
    std::vector<char> block;    // what is being received
    std::vector<pollfd> polled; // the input, the channels, the self-pipe
};

} // namespace orvek::process

#endif
