/* Locks of the archive: flock(2) on the file itself, one descriptor a holder. */
#ifndef ARCHIVE_UNIX_LK_H
#define ARCHIVE_UNIX_LK_H

#include <sys/stat.h>
#include <sys/types.h>

#include "mlist/archive.h"
#include "module/job.h"

/* Opens a file (O_CLOEXEC added), waiting in steps of one second for as long as the system is out
   of memory or descriptors.  The descriptor, or -1 with errno. */
[[nodiscard]] int open_waiting(const char *path, int flags, mode_t mode);

/* Opens the index file of that name read-write and takes its exclusive lock; waits for other
   holders.  The locked descriptor is surely the file that now has the name: when a mailbox was
   deleted (and made anew) during the wait, the new one is taken.  found_out (may be null): its
   status under the lock.  kept: a descriptor to try first, taken over.  -1 with errno: EDEADLK when
   this very thread holds the lock already, through whatever descriptor, ENOENT without an index. */
[[nodiscard]] int lock_index_file(const char *name, struct stat *found_out = nullptr,
                                  KeptIndex *kept = nullptr);

/* Releases that lock and keeps the file open for the next time; fd 0 when that cannot be. */
[[nodiscard]] KeptIndex unlock_index_file(int fd, const struct stat *status);

/* Notes that this thread holds the lock of the index behind fd, and forgets it; mllk_close()
   forgets too. */
void note_held_index(int fd);
void forget_held_index(int fd);

#endif
