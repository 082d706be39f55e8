#include "tests/support/fault_os.h"

#include <errno.h>
#include <fcntl.h>

#include <map>

namespace
{
struct State {
    FaultOs *owner = nullptr;
    const OsCalls *former = nullptr;
    OsCalls record = {};
    bool dead = false;
    int changes_left = -1; /* -1: none is to fail */
    int change_error = 0;
    bool reached = false;
    std::map<int, std::string> opened; /* descriptors and the names they were opened by */
};
State state;

bool is_change(const std::string &call, int flags)
{
    if (call == "open") return (flags & (O_CREAT | O_TRUNC)) != 0;
    for (const char *name : {"write", "pwrite", "fsync", "ftruncate", "futimens", "link", "rename",
                             "unlink", "mkdir", "rmdir"})
        if (call == name) return true;
    return false;
}

/* Whether the call may go on; else errno is set. */
bool verdict_on(const std::string &call, const std::string &path, int flags = 0)
{
    FaultOs &owner = *state.owner;
    int verdict = owner.before ? owner.before(call, path) : 0;
    if (verdict == 0 && state.changes_left >= 0 && is_change(call, flags) &&
        state.changes_left-- == 0) {
        state.reached = true;
        verdict = state.change_error;
    }
    if (verdict < 0) state.dead = true;
    if (state.dead) verdict = EIO;
    if (verdict != 0) errno = verdict;
    return verdict == 0;
}

bool may_go_on(const char *call, const char *path, int flags = 0)
{
    state.owner->calls.push_back(std::string(call) + " " + path);
    return verdict_on(call, path, flags);
}

bool may_go_on(const char *call, int fd)
{
    state.owner->calls.push_back(call);
    const auto name = state.opened.find(fd);
    return verdict_on(call, name != state.opened.end() ? name->second : "");
}

size_t cut(size_t size)
{
    const long long most = state.owner->short_write;
    return most >= 0 && size > static_cast<size_t>(most) ? static_cast<size_t>(most) : size;
}

const OsCalls &real()
{
    return *state.former;
}

OsCalls fault_calls()
{
    OsCalls calls = kernel_calls;
    calls.open = [](const char *path, int flags, mode_t mode) {
        const int fd = may_go_on("open", path, flags) ? real().open(path, flags, mode) : -1;
        if (fd >= 0) state.opened[fd] = path;
        return fd;
    };
    calls.openat = [](int directory, const char *name, int flags) {
        const std::string path = state.opened[directory] + "/" + name;
        const int fd = may_go_on("open", path.c_str()) ? real().openat(directory, name, flags) : -1;
        if (fd >= 0) state.opened[fd] = path;
        return fd;
    };
    /* A descriptor is closed even when the process "died": the kernel would do it. */
    calls.close = [](int fd) {
        const bool go_on = may_go_on("close", fd);
        const int saved = errno;
        const int result = real().close(fd);
        if (go_on) return result;
        errno = saved;
        return -1;
    };
    calls.read = [](int fd, void *data, size_t size) -> ssize_t {
        return may_go_on("read", fd) ? real().read(fd, data, size) : -1;
    };
    calls.pread = [](int fd, void *data, size_t size, off_t offset) -> ssize_t {
        return may_go_on("pread", fd) ? real().pread(fd, data, size, offset) : -1;
    };
    calls.write = [](int fd, const void *data, size_t size) -> ssize_t {
        return may_go_on("write", fd) ? real().write(fd, data, cut(size)) : -1;
    };
    calls.pwrite = [](int fd, const void *data, size_t size, off_t offset) -> ssize_t {
        return may_go_on("pwrite", fd) ? real().pwrite(fd, data, cut(size), offset) : -1;
    };
    calls.lseek = [](int fd, off_t offset, int whence) -> off_t {
        return may_go_on("lseek", fd) ? real().lseek(fd, offset, whence) : -1;
    };
    calls.fsync = [](int fd) { return may_go_on("fsync", fd) ? real().fsync(fd) : -1; };
    calls.ftruncate = [](int fd, off_t length) {
        return may_go_on("ftruncate", fd) ? real().ftruncate(fd, length) : -1;
    };
    calls.fstat = [](int fd, struct stat *status) {
        return may_go_on("fstat", fd) ? real().fstat(fd, status) : -1;
    };
    calls.stat = [](const char *path, struct stat *status) {
        return may_go_on("stat", path) ? real().stat(path, status) : -1;
    };
    calls.futimens = [](int fd, const struct timespec *times) {
        return may_go_on("futimens", fd) ? real().futimens(fd, times) : -1;
    };
    calls.flock = [](int fd, int operation) {
        return may_go_on("flock", fd) ? real().flock(fd, operation) : -1;
    };
    calls.link = [](const char *from, const char *to) {
        return may_go_on("link", to) ? real().link(from, to) : -1;
    };
    calls.rename = [](const char *from, const char *to) {
        return may_go_on("rename", to) ? real().rename(from, to) : -1;
    };
    calls.unlink = [](const char *path) {
        return may_go_on("unlink", path) ? real().unlink(path) : -1;
    };
    calls.mkdir = [](const char *path, mode_t mode) {
        return may_go_on("mkdir", path) ? real().mkdir(path, mode) : -1;
    };
    calls.rmdir = [](const char *path) {
        return may_go_on("rmdir", path) ? real().rmdir(path) : -1;
    };
    calls.time = [](time_t *now) {
        if (state.owner->now == 0) return real().time(now);
        if (now != nullptr) *now = state.owner->now;
        return state.owner->now;
    };
    calls.clock_gettime = [](clockid_t clock, struct timespec *now) {
        if (state.owner->now == 0) return real().clock_gettime(clock, now);
        *now = {state.owner->now, state.owner->nanoseconds};
        return 0;
    };
    calls.sleep = [](unsigned seconds) {
        state.owner->sleeps.push_back(seconds);
        return 0u;
    };
    return calls;
}
} // namespace

FaultOs::FaultOs()
{
    state = State{};
    state.owner = this;
    state.former = os;
    state.record = fault_calls();
    os = &state.record;
}

FaultOs::~FaultOs()
{
    os = state.former;
    state.owner = nullptr;
}

void FaultOs::fail_nth_change(int nth, int error)
{
    state.changes_left = nth;
    state.change_error = error;
    state.reached = false;
}

bool FaultOs::disturbed() const
{
    return state.reached;
}
