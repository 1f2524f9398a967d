// lock_file - the lock file for a path, and whether somebody holds its lock
//
// isLocked asks from a process of its own, so that a lock of the test counts too. lockBriefly
// returns once another process holds the lock. That process keeps it for half a second, runs a
// shell command and releases it.

#ifndef MAILVEK_TESTS_SUPPORT_LOCK_FILE_H
#define MAILVEK_TESTS_SUPPORT_LOCK_FILE_H

#include "lib/files/op_locks.h"
#include "lib/report/owned.h"
#include "support/stand_in.h"
#include "support/temp_dir.h"

#include <cstdlib>
#include <string>

inline std::string lockFileOf(std::string const& path)
{
    return CString(mk_flock_path(path.c_str())).get();
}

inline bool isLocked(std::string const& path)
{
    return system(("flock -n " + lockFileOf(path) + " true").c_str()) != 0;
}

inline void lockBriefly(std::string const& path, std::string const& command)
{
    TempDir const dir;
    std::string const held = dir / "held";
    shellRun("flock " + lockFileOf(path) + " sh -c 'touch " + held + "; sleep 0.5; " + command +
             "' & for i in $(seq 1000); do [ -e " + held + " ] && exit; sleep 0.01; done; exit 1");
}

#endif
