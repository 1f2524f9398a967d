// process_status - walking through the processes of the host
//
// iterateProcesses reads of each process in /proc what infoFlags asks for and shows it to the
// visitor, whose result above 0 continues the walk. A process that vanishes meanwhile, or of
// which something that was asked for cannot be read, is passed over. The record and all that it
// points to last as long as the visitor's call; what was not asked for is null or 0.
//
// Result: the visitor's last one, 1 when there was no visit, -1 when /proc cannot be opened,
// which is reported through orvek_log at level 3. errno is kept but for that failure.
//
// procname is the kernel's name of the process, of 15 bytes at most. argv may be an empty
// array, as for a thread of the kernel, and exename ends in " (deleted)" when the program's file
// has been replaced. Whose exe link may not be read (another user's process, for anyone but
// root) or who has none (a thread of the kernel) is not found by the finders.

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

// What infoFlags is made of; a part of a mask asks for the whole.
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

// The path of the program that the process runs, which the caller frees; null when there is no
// such process, as for a pid of 0 or below, or no memory.
[[nodiscard]] char* getProcessByPid(pid_t pid);

#endif
