// copy_file - copies of regular files
//
// copy_file holds the lock of mk_lock(dst_fname, 1). It creates the target with the source's mode,
// without the set-id and sticky bits and regardless of the umask, or empties an existing one. "-"
// as the target means standard output. It does nothing when source and target are the same file.
// Result: 0 or 1. Failures are reported through messlog2, or orvek_log when fstat of the source
// fails; the part that was copied stays. A lock that cannot be released is reported and does not
// count.
//
// copy_file_atomic copies to a file beside the target, sets its owner and mode, and renames it over
// the target. A failure removes that file, is reported through messlog2, and ends the process with
// status 1.
//
// Source and target must be regular files with one name. A link in the place of either is not
// followed, but copy_file_atomic replaces one at the target.
//
// No command calls these, they are for callers to come: copy_file.

#ifndef MAILVEK_LIB_FILES_COPY_FILE_H
#define MAILVEK_LIB_FILES_COPY_FILE_H

#include <sys/types.h>

int copy_file(char const* src_fname, char const* dst_fname);

void copy_file_atomic(char const* src_filename, char const* dest_filename, uid_t uid, gid_t gid,
                      mode_t mode);

// The same with a source that take_file_beneath has taken: this very file is copied, even if its
// name leads to another one by now. src_filename names it in reports.
void copy_taken_file_atomic(int taken, char const* src_filename, char const* dest_filename,
                            uid_t uid, gid_t gid, mode_t mode);

#endif
