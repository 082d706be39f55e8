#include "host/base/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/fd.h"
#include "host/base/regular_file.h"

Result<std::string> load_file(const std::string &path)
{
    const Fd file = open_regular(path);
    if (!file) return system_error(path);
    std::string text;
    char block[64 * 1024];
    for (;;) {
        const ssize_t got = read(file.get(), block, sizeof(block));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return system_error(path);
        if (got == 0) return text;
        text.append(block, static_cast<size_t>(got));
    }
}

ssize_t read_range(int fd, off_t offset, char *data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got = pread(fd, data + done, size - done, offset + static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

static std::string parent_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

Result<void> sync_name(const std::string &path)
{
    const std::string parent = parent_of(path);
    const Fd directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || fsync(directory.get()) != 0) return system_error(parent);
    return {};
}

/* A directory that may be written to but not read, or whose file system has no sync of them, makes
   its names as durable as it can. */
static Result<void> sync_if_possible(const std::string &path)
{
    auto synced = sync_name(path);
    const int error = synced ? 0 : synced.error().code;
    if (error == EACCES || error == EINVAL) return {};
    return synced;
}

Result<void> make_path(const std::string &path, mode_t mode)
{
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return {};
        errno = ENOTDIR;
        return system_error(path);
    }
    if (const std::string parent = parent_of(path); parent != path) {
        auto made = make_path(parent, mode);
        if (!made) return made;
    }
    if (mkdir(path.c_str(), mode) == 0) return sync_if_possible(path);
    /* somebody else was faster, or it ends in a slash; or it is a link to nowhere */
    if (errno == EEXIST && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return {};
    return system_error(path);
}
