// spy - stands in for a program that the tool runs
//
// The spy is mounted over the program, and /proc/self/exe tells it which program that is. It notes
// how it was called and does what its rules say. Its files are in /run/mailvek/spies:
//
//   journal        one JSON object per line: a "start" for each call, an "input" when the call has
//                  read its standard input; text holds bytes as characters 0 to 255
//   <path>/rules   the program's rules; <path> is the program's path with % for /
//   <path>/used    how many calls each rule has served
//
// A rule is a line of words. The first rule that fits the call and is not used up serves it.
// Without one the real program runs.
//
//   having=HEX     fit only calls with this argument (hexadecimal)
//   times=N        serve N calls
//   real           run the real program (the default)
//   exit=N         exit with status N
//   signal=N       die by signal N
//   stdout=HEX stderr=HEX   write this first
//   spew=N         first write N bytes on each of the two streams, in turns
//   input=record|ignore|close   read and note standard input (the default; terminals and devices
//                  are never read), leave it alone, or close it
//   delay=MS       wait first
//
// When it cannot work, it prints a line on standard error and exits with status 127.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string const spies = "/run/mailvek/spies";
std::string const real_root = "/run/mailvek/real";

struct Rule
{
    std::string having;
    bool has_having = false;
    long times = -1;
    long status = -1;
    int signal = 0;
    std::string out, err;
    size_t spew = 0;
    std::string input = "record";
    useconds_t delay = 0;
};

[[noreturn]] void give_up(char const* what)
{
    fprintf(stderr, "spy: %s: %s\n", what, strerror(errno));
    _exit(127);
}

std::string link_target(std::string const& path)
{
    char buffer[4096];
    ssize_t const length = readlink(path.c_str(), buffer, sizeof buffer);
    return length < 0 ? std::string() : std::string(buffer, static_cast<size_t>(length));
}

std::string unhex(std::string const& text)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes += static_cast<char>(strtol(text.substr(i, 2).c_str(), nullptr, 16));
    return bytes;
}

std::string quoted(std::string const& bytes)
{
    std::string text = "\"";
    char escape[8];
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f && c != '"' && c != '\\') {
            text += c;
        } else {
            snprintf(escape, sizeof escape, "\\u%04x", byte);
            text += escape;
        }
    }
    return text + '"';
}

template<class Strings>
std::string quoted_list(Strings const& strings)
{
    std::string text = "[";
    for (auto const& string : strings)
        text += (text.size() > 1 ? "," : "") + quoted(string);
    return text + "]";
}

std::vector<std::string> until_null(char** strings)
{
    std::vector<std::string> list;
    for (; *strings; ++strings)
        list.emplace_back(*strings);
    return list;
}

// The descriptors that the caller left open, and the files they are open on.
std::string open_descriptors()
{
    std::string text = "{";
    DIR* const directory = opendir("/proc/self/fd");
    if (!directory)
        give_up("/proc/self/fd");
    std::string const own = std::to_string(dirfd(directory));
    while (dirent const* entry = readdir(directory)) {
        std::string const name = entry->d_name;
        if (name[0] != '.' && name != own)
            text += (text.size() > 1 ? "," : "") + quoted(name) + ":" +
                    quoted(link_target("/proc/self/fd/" + name));
    }
    closedir(directory);
    return text + "}";
}

std::string signals(char const* field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field, 0) == 0)
            return line.substr(line.find_last_of("\t ") + 1);
    return {};
}

Rule parse(std::string const& line)
{
    Rule rule;
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        std::string const name = word.substr(0, word.find('='));
        std::string const value = name.size() < word.size() ? word.substr(name.size() + 1) : "";
        if (name == "having")
            rule.having = unhex(value), rule.has_having = true;
        else if (name == "times")
            rule.times = std::stol(value);
        else if (name == "exit")
            rule.status = std::stol(value);
        else if (name == "signal")
            rule.signal = std::stoi(value);
        else if (name == "stdout")
            rule.out = unhex(value);
        else if (name == "stderr")
            rule.err = unhex(value);
        else if (name == "spew")
            rule.spew = std::stoul(value);
        else if (name == "input")
            rule.input = value;
        else if (name == "delay")
            rule.delay = static_cast<useconds_t>(std::stoul(value) * 1000);
        else if (name != "real")
            errno = EINVAL, give_up(word.c_str());
    }
    return rule;
}

// Chooses the rule for this call and counts its use. The caller holds the lock.
Rule choose(std::string const& program, std::vector<std::string> const& arguments)
{
    std::string folder = program;
    std::replace(folder.begin(), folder.end(), '/', '%');
    folder = spies + "/" + folder;
    std::ifstream used_file(folder + "/used");
    std::vector<long> used{std::istream_iterator<long>(used_file), {}};
    std::ifstream rules(folder + "/rules");
    std::string line;
    for (size_t i = 0; std::getline(rules, line); ++i) {
        used.resize(std::max(used.size(), i + 1));
        Rule rule = parse(line);
        bool const fits = !rule.has_having || std::find(arguments.begin(), arguments.end(),
                                                        rule.having) != arguments.end();
        if (!fits || (rule.times >= 0 && used[i] >= rule.times))
            continue;
        ++used[i];
        std::ofstream out(folder + "/used");
        std::copy(used.begin(), used.end(), std::ostream_iterator<long>(out, " "));
        return rule;
    }
    return {};
}

class Lock
{
public:
    Lock() : fd(open((spies + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666))
    {
        if (fd < 0 || flock(fd, LOCK_EX) != 0)
            give_up("lock");
    }
    ~Lock() { close(fd); }
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;

private:
    int fd;
};

void add_to_journal(std::string const& line)
{
    int const fd =
        open((spies + "/journal").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        give_up("journal");
    close(fd);
}

bool readable_input()
{
    struct stat status = {};
    return fstat(0, &status) == 0 &&
           (S_ISFIFO(status.st_mode) || S_ISREG(status.st_mode) || S_ISSOCK(status.st_mode));
}

// Reads standard input to its end and puts a file with the same content in its place.
std::string take_input()
{
    std::string data;
    char buffer[65536];
    ssize_t length = 0;
    while ((length = read(0, buffer, sizeof buffer)) > 0)
        data.append(buffer, static_cast<size_t>(length));
    int const copy = memfd_create("input", 0);
    if (copy < 0 || write(copy, data.data(), data.size()) != static_cast<ssize_t>(data.size()) ||
        lseek(copy, 0, SEEK_SET) != 0 || dup2(copy, 0) != 0)
        give_up("input");
    close(copy);
    return data;
}

void put(int fd, std::string const& text)
{
    for (size_t done = 0; done < text.size();) {
        ssize_t const length = write(fd, text.data() + done, text.size() - done);
        if (length < 0)
            return; // nobody reads the stream
        done += static_cast<size_t>(length);
    }
}

void spew(size_t amount)
{
    for (size_t left = amount; left > 0;) {
        size_t const now = std::min<size_t>(left, 4096);
        put(1, std::string(now - 1, 'o') + '\n');
        put(2, std::string(now - 1, 'e') + '\n');
        left -= now;
    }
}

[[noreturn]] void die_by(int signal_number)
{
    signal(signal_number, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal_number);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    kill(getpid(), signal_number);
    pause();
    _exit(127);
}

} // namespace

int main(int, char** argv, char** envp)
{
    std::string const program = link_target("/proc/self/exe");
    std::string const descriptors = open_descriptors();
    std::string const pid = std::to_string(getpid());
    mode_t const mask = umask(0);
    Rule rule;
    {
        Lock lock;
        rule = choose(program, until_null(argv));
        add_to_journal(R"({"event":"start","pid":)" + pid + R"(,"program":)" + quoted(program) +
                       R"(,"argv":)" + quoted_list(until_null(argv)) + R"(,"env":)" +
                       quoted_list(until_null(envp)) + R"(,"cwd":)" +
                       quoted(link_target("/proc/self/cwd")) + R"(,"fds":)" + descriptors +
                       R"(,"blocked":)" + quoted(signals("SigBlk:")) + R"(,"ignored":)" +
                       quoted(signals("SigIgn:")) + R"(,"ppid":)" + std::to_string(getppid()) +
                       R"(,"uid":)" + std::to_string(geteuid()) + R"(,"gid":)" +
                       std::to_string(getegid()) + R"(,"umask":)" + std::to_string(mask) + "}\n");
    }
    umask(mask);
    if (rule.input == "close")
        close(0);
    if (rule.input == "record" && readable_input()) {
        std::string const data = take_input();
        Lock lock;
        add_to_journal(R"({"event":"input","pid":)" + pid + R"(,"data":)" + quoted(data) + "}\n");
    }
    if (rule.delay)
        usleep(rule.delay);
    spew(rule.spew);
    put(1, rule.out);
    put(2, rule.err);
    if (rule.signal)
        die_by(rule.signal);
    if (rule.status >= 0)
        _exit(static_cast<int>(rule.status));
    execve((real_root + program).c_str(), argv, envp);
    give_up((real_root + program).c_str());
}
