#include "lib/programs/surroundings.h"

#include "lib/host/enviroment.h"
#include "support/call_faults.h"
#include "support/child_run.h"
#include "support/fd_census.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

std::string targetOf(int descriptor)
{
    char target[256] = "";
    std::string const link = "/proc/self/fd/" + std::to_string(descriptor);
    return readlink(link.c_str(), target, sizeof target - 1) < 0 ? "" : target;
}

// The part of this environment that is kept, sorted.
std::vector<std::string> leftOf(std::vector<char const*> entries)
{
    entries.push_back(nullptr);
    environ = const_cast<char**>(entries.data());
    reset_surroundings();
    std::vector<std::string> left;
    for (char** entry = environ; *entry; ++entry)
        left.emplace_back(*entry);
    std::sort(left.begin(), left.end());
    return left;
}

std::string const path = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

int statusOf(std::function<bool()> const& holds)
{
    return inChild([&] { return holds() ? 0 : 1; }).status;
}

bool hasLimit(decltype(RLIMIT_FSIZE) resource, rlim_t soft)
{
    rlimit limit = {};
    return getrlimit(resource, &limit) == 0 && limit.rlim_cur == soft;
}

void setLimit(decltype(RLIMIT_FSIZE) resource, rlim_t soft)
{
    rlimit limit = {};
    getrlimit(resource, &limit);
    limit.rlim_cur = soft;
    setrlimit(resource, &limit);
}

} // namespace

TEST(Surroundings, OpensTheStandardDescriptorsThatAreClosed)
{
    for (int const descriptor : {0, 1, 2}) {
        auto const run = inChild([=]() -> int {
            close(descriptor);
            reset_surroundings();
            leaveUnseen(targetOf(descriptor) == "/dev/null" ? 0 : 1);
        });
        EXPECT_EQ(run.status, 0) << descriptor;
    }
}

TEST(Surroundings, OpensAllThreeStandardDescriptors)
{
    auto const run = inChild([]() -> int {
        for (int const descriptor : {0, 1, 2})
            close(descriptor);
        reset_surroundings();
        leaveUnseen(openDescriptors() == std::set<int>{0, 1, 2} ? 0 : 1);
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Surroundings, EndsTheProcessWithoutAStandardDescriptor)
{
    auto const run = inChild([] {
        close(STDIN_FILENO);
        CallFailure const failure("open", EMFILE);
        reset_surroundings();
        return 0;
    });
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("Unable to open /dev/null: Too many open files"), std::string::npos);
}

TEST(Surroundings, LeavesOpenDescriptorsOfTheStandardStreamsAlone)
{
    EXPECT_EQ(statusOf([] {
                  std::string const out = targetOf(STDOUT_FILENO);
                  reset_surroundings();
                  return targetOf(STDOUT_FILENO) == out && out != "/dev/null";
              }),
              0);
}

TEST(Surroundings, ClosesAllOtherDescriptors)
{
    auto const run = inChild([]() -> int {
        int const high = fcntl(0, F_DUPFD, 900);
        setLimit(RLIMIT_NOFILE, 64);
        open("/dev/null", O_RDONLY);
        reset_surroundings();
        leaveUnseen(high == 900 && openDescriptors() == std::set<int>{0, 1, 2} ? 0 : 1);
    });
    EXPECT_EQ(run.status, 0);
}

TEST(Surroundings, KeepsOnlyTheKnownVariables)
{
    EXPECT_EQ(statusOf([] {
                  auto const left = leftOf(
                      {"LANG=de_DE.UTF-8", "LC_ALL=C", "TERM=xterm-256color", "TZ=Europe/Berlin",
                       "ORVEK_INSTALLER_DEBUG=yes", "HOME=/root", "MAIL_CONFIG=/tmp", "LANGUAGE=de",
                       "LCX=1", "TZDIR=/tmp", "PATH=/tmp", "LD_PRELOAD=/tmp/x.so", "=x", "LANG"});
                  return left ==
                         std::vector<std::string>{"LANG=de_DE.UTF-8",          "LC_ALL=C",
                                                  "ORVEK_INSTALLER_DEBUG=yes", path,
                                                  "TERM=xterm-256color",       "TZ=Europe/Berlin"};
              }),
              0);
}

TEST(Surroundings, DropsValuesThatNameAFile)
{
    for (char const* const entry :
         {"LANG=/tmp/de", "LC_ALL=../de", "TERM=/tmp/x", "TERM=a/b", "TZ=/etc/shadow",
          "TZ=:/etc/shadow", "TZ=:Europe/Berlin", "TZ=../../../etc/shadow", "TZ=a\nb", "LANG=a b"})
        EXPECT_EQ(statusOf([=] { return leftOf({entry}) == std::vector<std::string>{path}; }), 0)
            << entry;
}

TEST(Surroundings, KeepsARuleAsTimeZone)
{
    EXPECT_EQ(statusOf([] {
                  return leftOf({"TZ=<+01>-1CEST,M3.5.0/02:00,M10.5.0"}) ==
                         std::vector<std::string>{path, "TZ=<+01>-1CEST,M3.5.0/02:00,M10.5.0"};
              }),
              0);
}

TEST(Surroundings, KeepsThePasswordsForTheToolAlone)
{
    EXPECT_EQ(statusOf([] {
                  if (leftOf({"ORV_PASSWORD=plain", "ORV_CRYPTED_PASSWORD=$1$crypted"}) !=
                      std::vector<std::string>{path})
                      return false;
                  char const* password = nullptr;
                  int is_encrypted = -1;
                  return get_env_password(&password, &is_encrypted) == 0 && is_encrypted == 0 &&
                         std::string(password) == "plain" &&
                         get_env_password(&password, &is_encrypted) == 0 && is_encrypted == 1 &&
                         std::string(password) == "$1$crypted" &&
                         get_env_password(&password, &is_encrypted) == -1;
              }),
              0);
}

TEST(Surroundings, LeavesAnEnvironmentThatCanBeChanged)
{
    EXPECT_EQ(statusOf([] {
                  leftOf({"LANG=C"});
                  setenv("LANG", "POSIX", 1);
                  setenv("NEW", "1", 1);
                  unsetenv("PATH");
                  return std::string(getenv("LANG")) == "POSIX" && getenv("NEW") && !getenv("PATH");
              }),
              0);
}

TEST(Surroundings, PutsIgnoredSignalsBack)
{
    EXPECT_EQ(statusOf([] {
                  for (int const number : {SIGPIPE, SIGCHLD, SIGHUP, SIGTERM})
                      signal(number, SIG_IGN);
                  reset_surroundings();
                  struct sigaction action = {};
                  for (int const number : {SIGPIPE, SIGCHLD, SIGHUP, SIGTERM})
                      if (sigaction(number, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
                          return false;
                  return true;
              }),
              0);
}

TEST(Surroundings, UnblocksAllSignalsAndStopsTimers)
{
    EXPECT_EQ(statusOf([] {
                  sigset_t all;
                  sigfillset(&all);
                  sigprocmask(SIG_SETMASK, &all, nullptr);
                  alarm(100);
                  reset_surroundings();
                  sigset_t mask;
                  sigprocmask(SIG_BLOCK, nullptr, &mask);
                  return sigisemptyset(&mask) && alarm(0) == 0;
              }),
              0);
}

TEST(Surroundings, MakesTheProcessRootsAlone)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(statusOf([] {
                  bool const prepared = setresuid(4711, 0, 0) == 0;
                  reset_surroundings();
                  return prepared && getuid() == 0;
              }),
              0);
}

TEST(Surroundings, MakesTimersExactAndLeavesTheIdleClass)
{
    EXPECT_EQ(statusOf([] {
                  sched_param const idle = {};
                  prctl(PR_SET_TIMERSLACK, 3'600'000'000'000UL, 0, 0, 0);
                  sched_setscheduler(0, SCHED_IDLE, &idle);
                  reset_surroundings();
                  return prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0) == 50'000 &&
                         sched_getscheduler(0) == SCHED_OTHER;
              }),
              0);
}

TEST(Surroundings, RaisesTheLimits)
{
    EXPECT_EQ(statusOf([] {
                  for (auto const resource : {RLIMIT_FSIZE, RLIMIT_CPU, RLIMIT_AS, RLIMIT_DATA}) {
                      rlimit hard = {};
                      getrlimit(resource, &hard);
                      setLimit(resource, std::min<rlim_t>(hard.rlim_max, rlim_t{1} << 40));
                  }
                  setLimit(RLIMIT_NOFILE, 20);
                  setLimit(RLIMIT_STACK, 1 << 20);
                  reset_surroundings();
                  for (auto const resource : {RLIMIT_FSIZE, RLIMIT_CPU, RLIMIT_AS, RLIMIT_DATA})
                      if (!hasLimit(resource, RLIM_INFINITY))
                          return false;
                  return hasLimit(RLIMIT_NOFILE, 1024) && hasLimit(RLIMIT_STACK, 8 << 20);
              }),
              0);
}

TEST(Surroundings, KeepsAHigherLimitOfDescriptors)
{
    EXPECT_EQ(statusOf([] {
                  setLimit(RLIMIT_NOFILE, 2048);
                  reset_surroundings();
                  return hasLimit(RLIMIT_NOFILE, 2048);
              }),
              0);
}

TEST(Surroundings, DumpsNoCore)
{
    EXPECT_EQ(statusOf([] {
                  setLimit(RLIMIT_CORE, 4096);
                  reset_surroundings();
                  return hasLimit(RLIMIT_CORE, 0);
              }),
              0);
}

TEST(Surroundings, SetsItsOwnUmask)
{
    EXPECT_EQ(statusOf([] {
                  umask(0);
                  reset_surroundings();
                  return umask(0) == 022;
              }),
              0);
}

TEST(Surroundings, KeepsErrno)
{
    EXPECT_EQ(statusOf([] {
                  errno = 0;
                  setLimit(RLIMIT_NOFILE, 20);
                  reset_surroundings();
                  return errno == 0;
              }),
              0);
}
