#include "process/pipe_pump.h"

#include "lib/report/owned.h"
#include "process/nonblock_write.h"
#include "util/errors.h"
#include "util/retry_on_signal.h"

#include <cerrno>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

namespace orvek::process {

namespace {

constexpr size_t block_size = 1024;

// The busiest descriptor comes first: after a ready one poll only checks the others and does not
// enter their wait queues.
enum PolledSlot : size_t
{
    input_slot,
    first_channel_slot
};

// The conditions under which select reports a descriptor in its read or its write set.
constexpr short readable = POLLIN | POLLHUP | POLLERR;
constexpr short writable = POLLOUT | POLLERR;

int look(std::vector<pollfd>& polled, int timeout)
{
    return retryOnSignal([&] { return poll(polled.data(), nfds_t(polled.size()), timeout); });
}

// Pauses until a stage ends, at most for a time too short to fill or empty a pipe. So a program
// that prints fast is not woken for each piece that is read.
void pauseUntil(pollfd stage_end)
{
    ErrnoKeeper const keeper;
    constexpr timespec longest = {0, 200'000};
    ppoll(&stage_end, 1, &longest, nullptr);
}

// False for a stopped stage, which may go on.
bool isFinal(ProcessStatus const& status)
{
    return status.first != 0 && (WIFEXITED(status.second) || WIFSIGNALED(status.second));
}

} // namespace

PipePump::PipePump(Pipe& pipe_, ProcessSetCatcher& catcher_, ProcessLaunch* launches_)
    : pipe(pipe_), catcher(catcher_), launches(launches_), input(launches_[0].stdinPipe)
{
}

void PipePump::run()
{
    startFeeding();
    addChannels();
    while (ended < pipe.stages.size()) {
        if (feeding)
            fill();
        if (!wait())
            continue;
        if (polled.back().revents & readable)
            noteEnds();
        if (feeding && (polled[input_slot].revents & writable))
            feed();
        readReady();
    }
    drain();
}

void PipePump::startFeeding()
{
    if (pipe.stdinMode != Capture)
        return;
    if (pipe.stdinSource.empty()) {
        input.close();
        return;
    }
    setNonBlocking(input.fd, "fcntl");
    feeding = true;
}

void PipePump::addChannels()
{
    ProcessLaunch& last = launches[pipe.stages.size() - 1];
    if (pipe.stdoutMode == Capture)
        addChannel(last.stdoutPipe, &pipe.stdoutReceiver);
    // Deliberate: reads the last stage's descriptor, whichever stage asked for the capture. An
    // earlier stage's standard error is never read.
    for (Parameters<PipeProcessFlags> const& stage : pipe.stages)
        if (stage.stderrMode == Capture)
            addChannel(last.stderrPipe,
                       stage.stderrReceiver.empty() ? nullptr : &stage.stderrReceiver);
}

void PipePump::addChannel(FdOwner& source, ReceiverFunction const* receiver)
{
    setNonBlocking(source.fd, "fcntl");
    channels.push_back({&source, receiver});
}

void PipePump::fill()
{
    if (written == chunk.size() && !exhausted) {
        chunk.clear();
        exhausted = !pipe.stdinSource(chunk);
        written = 0;
    }
    if (written == chunk.size() && exhausted)
        endFeeding();
}

bool PipePump::wait()
{
    polled.clear();
    polled.push_back({feeding ? input.fd : -1, POLLOUT, 0});
    for (Channel const& channel : channels)
        polled.push_back({channel.source->fd, POLLIN, 0});
    polled.push_back({catcher.controlPipe.readEnd.fd, POLLIN, 0});
    int count = look(polled, 0);
    if (count == 0) {
        pauseUntil(polled.back());
        count = look(polled, -1);
    }
    if (count == -1)
        throw SystemError("select", errno);
    for (pollfd const& entry : polled)
        if (entry.revents & POLLNVAL)
            throw SystemError("select", EBADF);
    return count > 0;
}

void PipePump::noteEnds()
{
    catcher.clear_control();
    if (noteEnd(0) && feeding)
        endFeeding(); // nobody is left to read
    for (size_t i = 1; i < pipe.stages.size(); ++i)
        noteEnd(i);
}

// True once: when the stage is first found to have ended.
bool PipePump::noteEnd(size_t stage)
{
    ProcessStatus& status = pipe.statuses[stage];
    if (isFinal(status))
        return false;
    auto const entry = catcher.processes.find(launches[stage].pid);
    if (entry == catcher.processes.end())
        throw std::out_of_range("no such pid");
    if (entry->second.first == 0)
        return false;
    status = {1, entry->second.second};
    if (!isFinal(status))
        return false;
    if (!pipe.stages[stage].exitHandler.empty())
        pipe.stages[stage].exitHandler(stage, status.second);
    ++ended;
    return true;
}

void PipePump::feed()
{
    try {
        unsigned long const taken =
            nonblock_write(input.fd, chunk.data() + written, chunk.size() - written);
        written += taken;
        if (taken > 0)
            return;
    } catch (SystemError const& e) {
        if (e.code() != EPIPE)
            throw;
    }
    endFeeding(); // the first stage has closed its input
}

void PipePump::endFeeding()
{
    feeding = false;
    ErrnoKeeper const keeper;
    input.close();
}

void PipePump::readReady()
{
    for (size_t i = 0; i < channels.size(); ++i)
        if (channels[i].source->fd != -1 && (polled[first_channel_slot + i].revents & readable))
            readOnce(channels[i]);
}

PipePump::Got PipePump::readOnce(Channel const& channel)
{
    block.resize(block_size);
    ssize_t const got =
        retryOnSignal([&] { return read(channel.source->fd, block.data(), block.size()); });
    if (got == -1 && errno == EAGAIN)
        return Got::nothing;
    if (got == -1)
        throw SystemError("read", errno);
    if (got == 0) {
        ErrnoKeeper const keeper;
        channel.source->close();
        return Got::end;
    }
    block.resize(static_cast<size_t>(got));
    if (channel.receiver)
        (*channel.receiver)(block);
    return Got::data;
}

void PipePump::drain()
{
    for (Channel const& channel : channels)
        while (channel.source->fd != -1 && readOnce(channel) == Got::data) {
        }
}

} // namespace orvek::process
