// surroundings - what a program must not take over from whoever started it
//
// A program of this system is root's and may be started by a stranger through a wrapper. The
// starter chooses descriptors, environment, signals, timers, limits and umask, and all of that
// outlives exec. reset_surroundings() is the first call of main and puts it in order:
//
//   users         if it is root's: only root, with only root's group; see starter.h
//   descriptors   0, 1 and 2 are open, on /dev/null where they were closed; no other is
//   streams       a reader who does not read cannot block the process, see caller_streams
//   environment   PATH is fixed; LANG, LC_*, TERM and TZ stay when their values name no file;
//                 ORVEK_INSTALLER_DEBUG stays; nothing else does. The passwords are taken out,
//                 see take_env_passwords.
//   signals       none is ignored or blocked, and no timer runs
//   scheduling    timers are as exact as usual, and the idle class is left
//   limits        file size, CPU time and memory are unlimited, 1024 descriptors can be open and a
//                 stack has 8 MiB, as far as the process may say so. Nothing dumps core: passwords
//                 are in memory.
//   umask         022
//
// errno is kept. A standard descriptor that cannot be opened ends the process with status 1.

#ifndef MAILVEK_LIB_PROGRAMS_SURROUNDINGS_H
#define MAILVEK_LIB_PROGRAMS_SURROUNDINGS_H

void reset_surroundings();

#endif
