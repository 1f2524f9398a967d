#include "process/pipe.h"

#include "process/pipe_pump.h"
#include "process/sig_blocker.h"

#include <csignal>
#include <stdexcept>

namespace orvek::process {

namespace {

void mergeFlags(CommonFlags& stage, CommonFlags const& pipe)
{
    if (stage.cwd.empty())
        stage.cwd = pipe.cwd;
    // Deliberate: unlike the other flags, the pipe's env replaces a stage's own and fills no gap.
    if (pipe.env && stage.env)
        stage.env = pipe.env;
    if (pipe.closeDescriptors)
        stage.closeDescriptors = true;
    if (stage.childSetup.empty())
        stage.childSetup = pipe.childSetup;
    if (pipe.stderrMode != Unspecified && stage.stderrMode == Unspecified) {
        stage.stderrMode = pipe.stderrMode;
        stage.stderrReceiver = pipe.stderrReceiver;
    }
    if (stage.exitHandler.empty())
        stage.exitHandler = pipe.exitHandler;
}

int chosen(int mode)
{
    return mode == Unspecified ? int(Inherit) : mode;
}

// One slot per stage. A plain array, because a launch's destructor may raise: the rest of a plain
// array is still destroyed then.
class LaunchArray
{
public:
    explicit LaunchArray(size_t count) : slots(new ProcessLaunch[count]) {}
    ~LaunchArray() noexcept(false) { delete[] slots; }
    LaunchArray(LaunchArray const&) = delete;
    LaunchArray& operator=(LaunchArray const&) = delete;

    ProcessLaunch* get() const { return slots; }

private:
    ProcessLaunch* const slots;
};

// Catches SIGPIPE while it lives, so that a stage that ends without reading its input does not kill
// the tool. The write fails with EPIPE instead. The signal is caught and not ignored, because exec
// restores the default for caught signals only. An action of the caller's own stays.
class SigPipeCatcher
{
public:
    SigPipeCatcher()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        action.sa_flags = SA_RESTART;
        caught = sigaction(SIGPIPE, nullptr, &old) == 0 && (old.sa_flags & SA_SIGINFO) == 0 &&
                 old.sa_handler == SIG_DFL && sigaction(SIGPIPE, &action, nullptr) == 0;
    }
    ~SigPipeCatcher()
    {
        if (caught)
            sigaction(SIGPIPE, &old, nullptr);
    }
    SigPipeCatcher(SigPipeCatcher const&) = delete;
    SigPipeCatcher& operator=(SigPipeCatcher const&) = delete;

private:
    struct sigaction old = {};
    bool caught = false;
};

// Unblocks SIGCHLD while it lives. The tool may have been started with SIGCHLD blocked, as a stage
// of a pipeline is, and would then never notice the end of a stage.
class ChildSignalOpener
{
public:
    ChildSignalOpener()
    {
        sigset_t child_signal;
        sigemptyset(&child_signal);
        sigaddset(&child_signal, SIGCHLD);
        sigprocmask(SIG_UNBLOCK, &child_signal, &old);
    }
    ~ChildSignalOpener() { sigprocmask(SIG_SETMASK, &old, nullptr); }
    ChildSignalOpener(ChildSignalOpener const&) = delete;
    ChildSignalOpener& operator=(ChildSignalOpener const&) = delete;

private:
    sigset_t old = {};
};

// Enters the stage into the tables. Raises its error if it could not be started.
void enterStage(ProcessLaunch& launch, ProcessSetCatcher& catcher,
                std::vector<ProcessStatus>& statuses)
{
    launch.waitExec();
    catcher.processes[launch.pid] = {0, -1};
    statuses.emplace_back(0, -1);
}

} // namespace

Pipe::~Pipe() = default;

void Pipe::append(Parameters<PipeProcessFlags> const& stage)
{
    if (!statuses.empty())
        throw std::logic_error("adding processes to the launched pipe is prohibited");
    stages.push_back(stage);
}

int Pipe::run()
{
    if (!statuses.empty())
        throw std::logic_error("the pipe has been launched already");
    if (stages.empty())
        throw std::logic_error("No processes to launch were assigned so far");
    for (Parameters<PipeProcessFlags>& stage : stages)
        mergeFlags(stage, *this);

    SigPipeCatcher const sigpipe;
    ProcessSetCatcher catcher;
    LaunchArray const launches(stages.size());
    launchAll(stages, chosen(stdinMode), chosen(stdoutMode), catcher, launches.get(), statuses);
    ChildSignalOpener const opener;
    PipePump(*this, catcher, launches.get()).run();
    return statuses.back().second;
}

void launchAll(Stages const& stages, int stdinMode, int stdoutMode, ProcessSetCatcher& catcher,
               ProcessLaunch* launches, std::vector<ProcessStatus>& statuses)
{
    SigBlocker blocker;
    blocker.block(SIGCHLD);
    catcher.install();
    size_t const last = stages.size() - 1;
    for (size_t i = 0; i <= last; ++i) {
        int const in = i == 0 ? stdinMode : launches[i - 1].stdoutPipe.fd;
        int const out = i == last ? stdoutMode : int(Capture);
        launches[i] = launchOne(stages[i], in, out);
        if (i > 0)
            launches[i - 1].stdoutPipe.close();
        enterStage(launches[i], catcher, statuses);
    }
}

void collectOutput(std::string& target, std::vector<char> const& chunk)
{
    target.append(chunk.begin(), chunk.end());
}

ReceiverFunction makeStringReceiver(std::string& target)
{
    return [&target](std::vector<char> const& chunk) { collectOutput(target, chunk); };
}

} // namespace orvek::process
