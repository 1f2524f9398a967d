// process_status - walking through the processes of the host
//
// iterateProcesses reads what infoFlags asks for of each process in /proc and passes it to the
// visitor. A result above 0 continues the walk. A process that ends by then is passed over, and
// so is one of which something asked for cannot be read. The record and all that it points to
// last as long as the visitor's call. What was not asked for is null or 0.
//
// Returns the visitor's last result, 1 without a visit, or -1 when /proc cannot be opened, which
// is reported through orvek_log at level 3. errno is kept unless that fails.
//
// procname is the kernel's name of the process, at most 15 bytes. A process chooses it itself: one
// with a blank in it passes for nothing, and a visitor who asks for names does not see it. argv may
// be empty, as for a kernel thread. exename ends in " (deleted)" when the program's file has been
// replaced. The finders do not find a process whose exe link cannot be read: another user's, for
// anyone but root, or a kernel thread.
//
// No command calls these; they are for callers to come: findProcessByPath, findProcessByPid,
// getProcessByPid.

#ifndef MAILVEK_LIB_HOST_PROCESS_STATUS_H
#define MAILVEK_LIB_HOST_PROCESS_STATUS_H

#include <sys/types.h>

struct OrvekProcessInfo
{
    pid_t pid;
    pid_t ppid;
    uid_t ruid;
    gid_t rgid;
    uid_t euid;
    gid_t egid;
    uid_t suid;
    gid_t sgid;
    char* procname;
    char** argv;
    char* exename;
};

// The masks of infoFlags. Any bit of a mask asks for all of it.
constexpr int process_stat = 1 | 2;     // procname, ppid
constexpr int process_exe = 4;          // exename
constexpr int process_cmdline = 8;      // argv
constexpr int process_status = 16 | 32; // the six identities

using visitProcessInfoFunc = int (*)(OrvekProcessInfo const* ppi, void* data);

int iterateProcesses(int infoFlags, visitProcessInfoFunc cb, void* data);

// The first process that runs the program at this path; -1 when there is none.
pid_t findProcessByPath(char const* executable);

// 0 when there is such a process. A pid of 0 or below is none's.
int findProcessByPid(pid_t pid);

// The path of the program that the process runs; the caller frees it. Null without such a process,
// as for a pid of 0 or below, and without memory.
[[nodiscard]] char* getProcessByPid(pid_t pid);

#endif
