// semaphores - numbered locks between processes, in one file
//
// A semaphore is a record lock on one byte, at offset semnum, of var/utilities.sem in the product's
// root directory. It belongs to the process: a child does not inherit it, and closing any
// descriptor of the file releases it.
//
// Failures are reported through messlog2 and end the process with status 1, except that
// shutdown_sem only reports. A negative semnum is such a failure.
//
// No command calls these; they are for callers to come: init_sem, sem_lock, sem_lock_nonblock,
// sem_unlock, shutdown_sem.

#ifndef MAILVEK_LIB_FILES_SEMAPHORES_H
#define MAILVEK_LIB_FILES_SEMAPHORES_H

// Opens the file. Makes it with mode 0600, and its directory, when missing. Anything but a regular
// file in its place is a failure, even a link. shutdown_sem closes the file.
void init_sem();
void shutdown_sem();

// sem_lock waits for the semaphore. sem_lock_nonblock returns -1 when another process has it. The
// result is 0 otherwise.
int sem_lock(long semnum);
int sem_lock_nonblock(long semnum);
int sem_unlock(long semnum);

#endif
