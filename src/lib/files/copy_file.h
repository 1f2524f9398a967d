// copy_file - copies of regular files
//
// copy_file copies under the lock of mk_lock(dst_fname, 1) into a file that it creates, with the
// mode of the source but for the set-id and sticky bits and whatever the umask, or empties; "-" as
// the target means standard output. Nothing is done for equal names, nor for a file that is to be
// copied onto itself by another spelling. Result: 0 or 1. Failures are reported through messlog2,
// or orvek_log for a source that tells nothing about itself, and leave what was copied; a lock that
// cannot be released is reported and does not count.
//
// copy_file_atomic copies into a file beside the target, gives it owner and mode, and renames
// it over the target. A failure removes that file and ends the process with status 1, reported
// through messlog2.
//
// Source and target are regular files with one name; a link in the place of either is not followed
// (copy_file_atomic replaces one at the target).
//
// No command calls these, they are for callers to come: copy_file.

#ifndef MAILVEK_LIB_FILES_COPY_FILE_H
#define MAILVEK_LIB_FILES_COPY_FILE_H

#include <sys/types.h>

int copy_file(char const* src_fname, char const* dst_fname);

void copy_file_atomic(char const* src_filename, char const* dest_filename, uid_t uid, gid_t gid,
                      mode_t mode);

// The same with a source that take_file_beneath has taken: whatever has its name meanwhile, this
// file is copied. src_filename stands for it in reports.
void copy_taken_file_atomic(int taken, char const* src_filename, char const* dest_filename,
                            uid_t uid, gid_t gid, mode_t mode);

#endif
