#include "tests/support/fault_os.h"

#include <errno.h>
#include <fcntl.h>

#include <initializer_list>
#include <map>

namespace
{
struct State {
    FaultOs *owner = nullptr;
    const OsCalls *former = nullptr;
    OsCalls record = {};
    bool dead = false;
    int calls_left = -1; /* -1: none is to fail */
    int fault = 0;
    bool any_call = false; /* counted are all calls that can meet the fault, not changes */
    bool reached = false;
    std::string reached_call;
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

bool is_one_of(const std::string &call, std::initializer_list<const char *> names)
{
    for (const char *name : names)
        if (call == name) return true;
    return false;
}

/* Whether the call can end in that way.  The size is that of data. */
bool can_meet(int fault, const std::string &call, int flags, size_t size)
{
    const bool writes = is_one_of(call, {"write", "pwrite"});
    const bool reads = is_one_of(call, {"read", "pread"});
    switch (fault) {
    case SHORT_WRITE:
        return writes && size > 1;
    case SHORT_READ:
        return reads && size > 1;
    case KILL:
        return is_change(call, flags);
    case EMFILE:
        return call == "open";
    case EINTR:
        return writes || reads || is_one_of(call, {"open", "close", "fsync", "ftruncate", "flock"});
    case ENOSPC:
    case EDQUOT:
        return (is_change(call, flags) && !is_one_of(call, {"unlink", "rmdir", "futimens"})) ||
               call == "close";
    case ENOMEM:
        return !reads && !writes && call != "close";
    default:
        return call != "lseek";
    }
}

struct Call {
    std::string name, path;
    int flags = 0;
    size_t size = 0;
};

bool is_the_one(const Call &call)
{
    if (state.calls_left < 0) return false;
    const bool counts = state.any_call ? can_meet(state.fault, call.name, call.flags, call.size)
                                       : is_change(call.name, call.flags);
    if (!counts || state.calls_left-- != 0) return false;
    state.reached = true;
    state.reached_call = call.name + " " + call.path;
    return true;
}

/* What happens to the call: 0 nothing, or a fault. */
int verdict_on(const Call &call)
{
    FaultOs &owner = *state.owner;
    int verdict = owner.before ? owner.before(call.name, call.path) : 0;
    if (verdict == 0 && is_the_one(call)) verdict = state.fault;
    if (verdict == KILL) state.dead = true;
    return state.dead ? EIO : verdict;
}

/* Whether the call may go on; else errno is set. */
bool may_go_on(const char *call, const char *path, int flags = 0)
{
    state.owner->calls.push_back(std::string(call) + " " + path);
    const int verdict = verdict_on({call, path, flags});
    if (verdict != 0) errno = verdict;
    return verdict == 0;
}

std::string name_of(int fd)
{
    const auto name = state.opened.find(fd);
    return name != state.opened.end() ? name->second : "";
}

bool may_go_on(const char *call, int fd)
{
    state.owner->calls.push_back(call);
    const int verdict = verdict_on({call, name_of(fd)});
    if (verdict != 0) errno = verdict;
    return verdict == 0;
}

/* The same for reading and writing; a short one gets its size halved. */
bool may_move(const char *call, int fd, size_t *size)
{
    state.owner->calls.push_back(call);
    const int verdict = verdict_on({call, name_of(fd), 0, *size});
    if (verdict == SHORT_WRITE || verdict == SHORT_READ)
        *size /= 2;
    else if (verdict != 0)
        errno = verdict;
    return verdict <= 0;
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
        state.opened.erase(fd);
        if (go_on) return result;
        errno = saved;
        return -1;
    };
    calls.read = [](int fd, void *data, size_t size) -> ssize_t {
        return may_move("read", fd, &size) ? real().read(fd, data, size) : -1;
    };
    calls.pread = [](int fd, void *data, size_t size, off_t offset) -> ssize_t {
        return may_move("pread", fd, &size) ? real().pread(fd, data, size, offset) : -1;
    };
    calls.write = [](int fd, const void *data, size_t size) -> ssize_t {
        return may_move("write", fd, &size) ? real().write(fd, data, cut(size)) : -1;
    };
    calls.pwrite = [](int fd, const void *data, size_t size, off_t offset) -> ssize_t {
        return may_move("pwrite", fd, &size) ? real().pwrite(fd, data, cut(size), offset) : -1;
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
    state.calls_left = nth;
    state.fault = error;
    state.any_call = state.reached = false;
}

void FaultOs::disturb_nth_call(int nth, int fault)
{
    fail_nth_change(nth, fault);
    state.any_call = true;
}

bool FaultOs::disturbed() const
{
    return state.reached;
}

std::string FaultOs::disturbed_call() const
{
    return state.reached_call;
}

bool FaultOs::dead() const
{
    return state.dead;
}

std::vector<std::string> FaultOs::open_files() const
{
    std::vector<std::string> names;
    for (const auto &[fd, name] : state.opened)
        names.push_back(name);
    return names;
}

void FaultOs::close_open_files()
{
    for (const auto &[fd, name] : state.opened)
        (void)real().close(fd);
    state.opened.clear();
}
