/* Files read whole, and directories that outlive a crash. */
#ifndef HOST_BASE_FILES_H
#define HOST_BASE_FILES_H

#include <string>
#include <sys/types.h>

#include "host/base/result.h"

/* All that the file holds; the error names it (EISDIR, EINVAL: it is no regular file). */
Result<std::string> load_file(const std::string &path);

/* Reads size bytes at offset, fewer only at the end of the file.  -1 with errno. */
[[nodiscard]] ssize_t read_range(int fd, off_t offset, char *data, size_t size);

/* Makes what has happened to the name (made, renamed, removed) durable: syncs the directory that it
   stands in. */
Result<void> sync_name(const std::string &path);

/* Makes the directory and the missing ones above it, each durable; the file-creation mask reduces
   the mode.  One that is there stays as it is. */
Result<void> make_path(const std::string &path, mode_t mode = 0777);

#endif
