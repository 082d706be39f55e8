#include "bench/bare_posting.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

static void demand(bool done, const char *what)
{
    if (done) return;
    perror(what);
    exit(1);
}

static int opened(const std::string &name, int flags)
{
    const int fd = open(name.c_str(), flags | O_CLOEXEC, 0660);
    demand(fd >= 0, name.c_str());
    return fd;
}

static void put(int fd, const std::string &bytes)
{
    demand(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
}

static void write_and_sync(const std::string &name, const std::string &bytes, int flags)
{
    const int fd = opened(name, flags);
    put(fd, bytes);
    demand(fsync(fd) == 0, "fsync");
    close(fd);
}

static void sync_names(const std::string &directory)
{
    const int fd = opened(directory, O_RDONLY | O_DIRECTORY);
    demand(fsync(fd) == 0, "fsync");
    close(fd);
}

#define NEW_FILE (O_RDWR | O_CREAT | O_TRUNC)

/* -- a posting -- */

BarePosting::BarePosting(const std::string &directory, size_t index_size)
    : directory_(directory), journal_(4202, 'x'), status_(9, '1'), index_(index_size, 'i')
{
    for (const char *name : {"control", "control/jnl", "box", "box/msg"})
        fs::create_directories(path(name));
    for (const char *name : {"control/init", "control/member", "control/status"})
        write_and_sync(path(name), status_, NEW_FILE);
    write_and_sync(path("box/index"), index_, NEW_FILE);
    write_and_sync(path("box/msg/0"), journal_, NEW_FILE);
    read_.resize(index_size);
}

/* A clean file is synced too when it has been read. */
void BarePosting::read_synced(const std::string &name)
{
    char bytes[64];
    const int fd = opened(path(name), O_RDONLY);
    demand(read(fd, bytes, sizeof(bytes)) >= 0 && fsync(fd) == 0, "read");
    close(fd);
}

void BarePosting::read_index()
{
    const int fd = opened(path("box/index"), O_RDONLY);
    demand(read(fd, read_.data(), read_.size()) == static_cast<ssize_t>(read_.size()), "read");
    close(fd);
}

/* A draft, its name, the copy of what was there, both names, the contents in place. */
void BarePosting::replace(const std::string &name, const std::string &bytes)
{
    const std::string place = path(name), draft = place + ".old", next = place + ".new";
    write_and_sync(draft, bytes, NEW_FILE);
    demand(rename(draft.c_str(), next.c_str()) == 0, "rename");
    write_and_sync(draft, bytes, NEW_FILE);
    sync_names(place.substr(0, place.rfind('/')));
    write_and_sync(place, bytes, O_RDWR);
    demand(unlink(draft.c_str()) == 0 && unlink(next.c_str()) == 0, "unlink");
}

void BarePosting::post(bool at_keep)
{
    const std::string journal = path("control/jnl/j"), numbered = path("control/jnl/1");
    const std::string message = path("box/msg/" + std::to_string(number_ + 1));
    read_synced("control/init");
    read_index(); /* for the number */
    read_synced("control/member");
    write_and_sync(journal, journal_, NEW_FILE);
    read_synced("control/status");
    replace("control/status", status_);
    read_index(); /* for the change */
    demand(link(journal.c_str(), message.c_str()) == 0, "link");
    sync_names(path("box/msg"));
    replace("box/index", index_);
    if (at_keep) (void)unlink(path("box/msg/" + std::to_string(number_)).c_str());
    demand(rename(journal.c_str(), numbered.c_str()) == 0 && unlink(numbered.c_str()) == 0,
           "rename");
    ++number_;
}

/* -- a rewrite -- */

BareRewrite::BareRewrite(const std::string &directory, size_t size)
    : name_(directory + "/rewritten"), bytes_(size, 'x')
{
    write_and_sync(name_, bytes_, NEW_FILE);
}

void BareRewrite::rewrite()
{
    const std::string next = name_ + ".new", former = name_ + ".old";
    const std::string directory = name_.substr(0, name_.rfind('/'));
    write_and_sync(next, bytes_, NEW_FILE);
    write_and_sync(former, bytes_, NEW_FILE);
    sync_names(directory);
    write_and_sync(name_, bytes_, O_RDWR);
    demand(unlink(former.c_str()) == 0, "unlink");
    sync_names(directory);
    demand(unlink(next.c_str()) == 0, "unlink");
}

/* -- a roster -- */

size_t bare_lines(const std::string &name)
{
    static std::vector<char> block(1 << 18);
    const int fd = opened(name, O_RDONLY);
    size_t lines = 0;
    for (ssize_t got; (got = read(fd, block.data(), block.size())) > 0;) {
        const char *at = block.data(), *end = at + got;
        while (at < end) {
            const void *found = memchr(at, '\n', static_cast<size_t>(end - at));
            if (found == nullptr) break;
            at = static_cast<const char *>(found) + 1;
            ++lines;
        }
    }
    close(fd);
    return lines;
}
