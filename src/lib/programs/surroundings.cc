#include "lib/programs/surroundings.h"

#include "lib/host/enviroment.h"
#include "lib/host/starter.h"
#include "lib/programs/close_descriptors.h"
#include "lib/report/caller_streams.h"
#include "lib/report/failure.h"
#include "lib/report/owned.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

char path_entry[] = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

constexpr std::size_t longest_value = 255;
constexpr rlim_t enough_descriptors = 1024;
constexpr rlim_t enough_stack = 8 << 20;
constexpr mode_t own_umask = 022;
// The higher ones are real-time signals, which no shell or panel ignores.
constexpr int last_signal = 31;

// ------------------------------------------------------------------------------ descriptors

void open_standard(int descriptor)
{
    if (fcntl(descriptor, F_GETFD) >= 0)
        return;
    // open gives the lowest free number, and the lower ones are open.
    if (open("/dev/null", descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY) != descriptor)
        fatal("Unable to open /dev/null: %s", strerror(errno));
}

void reset_descriptors()
{
    for (int const descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        open_standard(descriptor);
    // Closes also above the limit: the caller may have lowered it with descriptors open.
    if (close_range(STDERR_FILENO + 1, UINT_MAX, 0) != 0)
        close_descriptors();
}

// ------------------------------------------------------------------------------ environment

bool consists_of(std::string_view value, std::string_view punctuation)
{
    return value.size() <= longest_value && std::all_of(value.begin(), value.end(), [=](char c) {
               return isalnum(static_cast<unsigned char>(c)) ||
                      punctuation.find(c) != std::string_view::npos;
           });
}

bool is_any(std::string_view)
{
    return true;
}

// No slash, so the C library looks for a locale's files in its own directory only.
bool is_word(std::string_view value)
{
    return consists_of(value, "_.@+-");
}

// A rule, or a zone in the system's own directory.
bool is_time_zone(std::string_view value)
{
    return consists_of(value, "_.+-/,:<>") && !value.starts_with('/') && !value.starts_with(':') &&
           value.find("..") == std::string_view::npos;
}

struct Variable
{
    std::string_view name; // a name that ends in "_" stands for all that begin with it
    bool (*is_harmless)(std::string_view value);
};

constexpr Variable kept_variables[] = {
    {"ORVEK_INSTALLER_DEBUG", is_any},
    {"LANG", is_word},
    {"LC_", is_word},
    {"TERM", is_word},
    {"TZ", is_time_zone},
};

bool is_kept(std::string_view entry)
{
    std::size_t const end = entry.find('=');
    if (end == std::string_view::npos)
        return false;
    std::string_view const name = entry.substr(0, end);
    return std::any_of(
        std::begin(kept_variables), std::end(kept_variables), [&](Variable const& variable) {
            bool const fits = variable.name.ends_with('_') ? name.starts_with(variable.name)
                                                           : name == variable.name;
            return fits && variable.is_harmless(entry.substr(end + 1));
        });
}

void reset_environment()
{
    take_env_passwords();
    // Never freed: the environment lives as long as the process.
    static auto& kept = *new std::vector<char*>;
    kept.assign(1, path_entry);
    for (char** entry = environ; entry && *entry; ++entry)
        if (is_kept(*entry))
            kept.push_back(*entry);
    kept.push_back(nullptr);
    environ = kept.data();
}

// ------------------------------------------------------------------------ signals and limits

void reset_signals()
{
    struct sigaction const standard = {};
    struct sigaction found = {};
    for (int number = 1; number <= last_signal; ++number)
        if (sigaction(number, nullptr, &found) == 0 && found.sa_handler == SIG_IGN)
            sigaction(number, &standard, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    itimerval const off = {};
    for (auto const timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF})
        setitimer(timer, &off, nullptr);
}

// The starter says how late a timer may be and who runs before the process; its niceness stays, for
// it is also the administrator's way to say so.
void reset_scheduling()
{
    constexpr unsigned long usual_slack = 50'000; // nanoseconds
    prctl(PR_SET_TIMERSLACK, usual_slack, 0, 0, 0);
    sched_param const usual = {};
    if (sched_getscheduler(0) == SCHED_IDLE)
        sched_setscheduler(0, SCHED_OTHER, &usual);
}

struct Limit
{
    decltype(RLIMIT_FSIZE) resource;
    rlim_t wanted;
};

constexpr Limit raised_limits[] = {
    {RLIMIT_FSIZE, RLIM_INFINITY},       {RLIMIT_CPU, RLIM_INFINITY},
    {RLIMIT_AS, RLIM_INFINITY},          {RLIMIT_DATA, RLIM_INFINITY},
    {RLIMIT_NOFILE, enough_descriptors}, {RLIMIT_STACK, enough_stack},
};

void raise_limit(Limit const& limit)
{
    rlimit found = {};
    if (getrlimit(limit.resource, &found) != 0 || found.rlim_cur >= limit.wanted)
        return;
    rlimit const raised = {limit.wanted, std::max(limit.wanted, found.rlim_max)};
    if (setrlimit(limit.resource, &raised) == 0)
        return;
    found.rlim_cur = std::min(limit.wanted, found.rlim_max);
    setrlimit(limit.resource, &found);
}

void reset_limits()
{
    for (Limit const& limit : raised_limits)
        raise_limit(limit);
    rlimit core = {};
    if (getrlimit(RLIMIT_CORE, &core) == 0 && core.rlim_cur != 0) {
        core.rlim_cur = 0;
        setrlimit(RLIMIT_CORE, &core);
    }
}

} // namespace

void reset_surroundings()
{
    ErrnoKeeper const keeper;
    become_root();
    reset_signals();
    reset_scheduling();
    reset_limits();
    reset_descriptors();
    use_caller_streams();
    reset_environment();
    umask(own_umask);
}
