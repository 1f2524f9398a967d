// semaphores - numbered locks between processes, in one file
//
// A semaphore is a record lock on one byte, at the offset semnum, of var/utilities.sem below
// the product's root directory. It is the process's: a child does not inherit it, and closing
// any descriptor of the file drops it.
//
// Failures are reported through messlog2 and end the process with status 1, except that
// shutdown_sem only reports. A negative semnum is such a failure.
//
// No command calls these; they are for callers to come: init_sem, sem_lock, sem_lock_nonblock,
// sem_unlock, shutdown_sem.

#ifndef MAILVEK_LIB_FILES_SEMAPHORES_H
#define MAILVEK_LIB_FILES_SEMAPHORES_H

// Opens the file, made with mode 0600 if missing, and its directory with it; a link or anything but
// a regular file in its place is a failure. shutdown_sem closes it.
void init_sem();
void shutdown_sem();

// sem_lock waits for the semaphore. sem_lock_nonblock gives -1 when another process has it.
// The result is 0 otherwise.
int sem_lock(long semnum);
int sem_lock_nonblock(long semnum);
int sem_unlock(long semnum);

#endif
