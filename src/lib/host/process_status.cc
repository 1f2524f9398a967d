#include "lib/host/process_status.h"

#include "lib/report/form_path.h"
#include "lib/report/owned.h"
#include "lib/report/product_log.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// Reads one process at a time. Its buffers are reused for the whole walk.
class ProcessReader
{
public:
    // Whether all that infoFlags asks for could be read.
    bool read(pid_t pid, int infoFlags);
    OrvekProcessInfo const& current() const { return info; }

private:
    bool read_exe();
    bool read_cmdline();
    bool read_stat();
    bool read_status();
    bool load_cmdline();
    OpenFile open_file(char const* name) const;

    OrvekProcessInfo info = {};
    char exename[path_size] = {};
    char procname[4096 + 1] = {};
    std::string cmdline;
    std::vector<char*> argv;
};

bool ProcessReader::read(pid_t pid, int infoFlags)
{
    info.pid = pid;
    return (!(infoFlags & process_exe) || read_exe()) &&
           (!(infoFlags & process_cmdline) || read_cmdline()) &&
           (!(infoFlags & process_stat) || read_stat()) &&
           (!(infoFlags & process_status) || read_status());
}

bool ProcessReader::read_exe()
{
    char path[path_size];
    if (!form_path(path, "/proc/%d/exe", info.pid))
        return false;
    ssize_t const length = readlink(path, exename, sizeof exename - 1);
    if (length < 0)
        return false;
    exename[length] = '\0';
    info.exename = exename;
    return true;
}

bool ProcessReader::load_cmdline()
{
    char path[path_size];
    if (!form_path(path, "/proc/%d/cmdline", info.pid))
        return false;
    OpenDescriptor const file(open(path, O_RDONLY));
    cmdline.clear();
    char block[4096];
    ssize_t got = 0;
    while ((got = ::read(file.get(), block, sizeof block)) > 0)
        cmdline.append(block, static_cast<size_t>(got));
    return got == 0;
}

bool ProcessReader::read_cmdline()
{
    if (!load_cmdline())
        return false;
    argv.clear();
    char* const end = cmdline.data() + cmdline.size();
    for (char* argument = cmdline.data(); argument < end; argument += strlen(argument) + 1)
        argv.push_back(argument);
    argv.push_back(nullptr);
    info.argv = argv.data();
    return true;
}

OpenFile ProcessReader::open_file(char const* name) const
{
    char path[path_size];
    return OpenFile(form_path(path, "/proc/%d/%s", info.pid, name) ? fopen(path, "r") : nullptr);
}

bool ProcessReader::read_stat()
{
    OpenFile const file = open_file("stat");
    if (!file || !fgets(procname, sizeof procname, file.get()))
        return false;
    // A process chooses its own name, which may be ") S 1" for example. The last bracket ends the
    // name, since only numbers and one letter follow it.
    char* const begin = strchr(procname, '(');
    char* const end = strrchr(procname, ')');
    if (!begin || !end)
        return false;
    *end = '\0';
    info.procname = begin + 1;
    // Deliberate: a process with a blank in its name is passed over. No server has one.
    if (strpbrk(info.procname, " \t\n\v\f\r"))
        return false;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's numbers fit
    return sscanf(end + 1, " %*c %d", &info.ppid) == 1;
}

// The real, effective, saved and file system id. Nobody asks for the last one.
using Identities = std::array<unsigned, 4>;

bool read_identities(FILE* file, Identities& ids)
{
    // NOLINTNEXTLINE(cert-err34-c): the kernel's numbers fit
    return fscanf(file, "%u %u %u %u", &ids[0], &ids[1], &ids[2], &ids[3]) == 4;
}

bool ProcessReader::read_status()
{
    OpenFile const file = open_file("status");
    Identities uids = {};
    Identities gids = {};
    bool has_uids = false;
    bool has_gids = false;
    char word[100];
    while (!has_uids || !has_gids) {
        if (!file || fscanf(file.get(), "%99s", word) != 1)
            return false;
        // Deliberate: the word counts wherever it stands, even in the process's name.
        bool const at_uids = strcmp(word, "Uid:") == 0;
        bool const at_gids = strcmp(word, "Gid:") == 0;
        if ((at_uids || at_gids) && !read_identities(file.get(), at_uids ? uids : gids))
            return false;
        has_uids = has_uids || at_uids;
        has_gids = has_gids || at_gids;
    }
    info.ruid = uids[0];
    info.euid = uids[1];
    info.suid = uids[2];
    info.rgid = gids[0];
    info.egid = gids[1];
    info.sgid = gids[2];
    return true;
}

bool is_directory(dirent const& entry)
{
    if (entry.d_type == DT_DIR)
        return true;
    char path[path_size];
    struct stat info = {};
    return form_path(path, "/proc/%s", entry.d_name) && lstat(path, &info) == 0 &&
           S_ISDIR(info.st_mode);
}

// The pid that a directory of /proc is named after, or 0 for another entry.
pid_t process_of(dirent const& entry)
{
    char const* const end = entry.d_name + strlen(entry.d_name);
    pid_t pid = 0;
    auto const [rest, error] = std::from_chars(entry.d_name, end, pid);
    bool const whole = error == std::errc() && rest == end && pid > 0;
    return whole && is_directory(entry) ? pid : 0;
}

int visit_all(DIR* dir, int infoFlags, visitProcessInfoFunc cb, void* data)
{
    ProcessReader reader;
    int result = 1;
    while (result > 0) {
        dirent const* const entry = readdir(dir);
        if (!entry)
            break;
        pid_t const pid = process_of(*entry);
        if (pid != 0 && reader.read(pid, infoFlags))
            result = cb(&reader.current(), data);
    }
    return result;
}

struct _ProcessPathInfo
{
    char const* executable; // the path sought, or a copy of the path found, which the caller frees
    pid_t pid;
};

int findProcessByPathCallback(OrvekProcessInfo const* ppi, void* data)
{
    auto* const sought = static_cast<_ProcessPathInfo*>(data);
    if (strcmp(ppi->exename, sought->executable) != 0)
        return 1;
    sought->pid = ppi->pid;
    return 0;
}

int findProcessByPidCallback(OrvekProcessInfo const* ppi, void* data)
{
    return ppi->pid == static_cast<_ProcessPathInfo const*>(data)->pid ? 0 : 1;
}

int getProcessByPidCallback(OrvekProcessInfo const* ppi, void* data)
{
    auto* const sought = static_cast<_ProcessPathInfo*>(data);
    if (ppi->pid != sought->pid)
        return 1;
    sought->executable = strdup(ppi->exename);
    return 0;
}

} // namespace

int iterateProcesses(int infoFlags, visitProcessInfoFunc cb, void* data)
{
    OpenDir const dir(opendir("/proc"));
    ErrnoKeeper const keeper;
    if (!dir) {
        orvek_log(LOG_ERR, "unable to open /proc filesystem: %s\n", strerror(errno));
        return -1;
    }
    return visit_all(dir.get(), infoFlags, cb, data);
}

pid_t findProcessByPath(char const* executable)
{
    _ProcessPathInfo sought = {executable, -1};
    iterateProcesses(process_exe, findProcessByPathCallback, &sought);
    return sought.pid;
}

int findProcessByPid(pid_t pid)
{
    if (pid <= 0)
        return 1;
    _ProcessPathInfo sought = {nullptr, pid};
    return iterateProcesses(process_exe, findProcessByPidCallback, &sought);
}

char* getProcessByPid(pid_t pid)
{
    if (pid <= 0)
        return nullptr;
    _ProcessPathInfo found = {nullptr, pid};
    iterateProcesses(process_exe, getProcessByPidCallback, &found);
    return const_cast<char*>(found.executable);
}
