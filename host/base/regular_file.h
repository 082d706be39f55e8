/* Opening what is to be a file: a pipe or a device in its place makes nobody wait. */
#ifndef HOST_BASE_REGULAR_FILE_H
#define HOST_BASE_REGULAR_FILE_H

#include <fcntl.h>
#include <string>
#include <sys/stat.h>

#include "host/base/fd.h"

/* For reading.  Nothing with errno: EISDIR for a directory, EINVAL for other things that are no
   regular file. */
inline Fd open_regular(const std::string &path, int flags = 0)
{
    flags |= O_RDONLY | O_CLOEXEC | O_NOCTTY;
    Fd file(open(path.c_str(), flags | O_NONBLOCK));
    if (!file && errno == EWOULDBLOCK) file = Fd(open(path.c_str(), flags)); /* a lease: a file */
    struct stat status;
    if (!file || fstat(file.get(), &status) < 0) return Fd();
    if (S_ISREG(status.st_mode)) return file;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return Fd();
}

#endif
