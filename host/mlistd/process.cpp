#include "host/mlistd/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <grp.h>
#include <malloc.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include "host/base/files.h"
#include "host/base/placeholders.h"
#include "host/mlistd/hostlog.h"

/* A session in the module has its socket, the mail, the list's lock, journal and files, the
   archive's index and copies of it: eight, with as many again to spare. */
static constexpr int64_t PER_DELIVERY = 16;
static constexpr int64_t SPARE = 64;

void raise_descriptor_limit(const Settings &settings)
{
    /* glibc would make a heap for every other session; a few serve as well and stay smaller. */
    mallopt(M_ARENA_MAX, 4);
    const int64_t wanted = LAST_PLACEHOLDER + SPARE + 2 * settings.lmtp_sessions +
                           PER_DELIVERY * (settings.module_gate + settings.relay_workers);
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    const rlim_t needed = static_cast<rlim_t>(wanted);
    if (limit.rlim_cur >= needed) return;
    limit.rlim_cur = std::min(needed, limit.rlim_max);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < needed)
        log_warning(LOG_START, "needs " + std::to_string(wanted) + " descriptors, may have only " +
                                   std::to_string(limit.rlim_cur));
}

/* -- directories -- */

Result<void> make_data_directories(const Settings &settings)
{
    for (const std::string *path :
         {&settings.data_directory, &settings.control_root, &settings.archive_root,
          &settings.spool_directory, &settings.outbox_directory, &settings.config_directory}) {
        auto made = make_path(*path);
        if (!made) return made;
    }
    return {};
}

/* -- user -- */

static Result<void> give_data_directory(const Settings &settings, const passwd &user)
{
    const char *path = settings.data_directory.c_str();
    struct stat status;
    if (stat(path, &status) == 0) return {};
    auto made = make_path(settings.data_directory);
    if (!made) return made;
    if (chown(path, user.pw_uid, user.pw_gid) != 0) return system_error(path);
    return {};
}

Result<void> become_user(const Settings &settings)
{
    if (settings.user.empty() || geteuid() != 0) return {};
    errno = 0;
    const passwd *user = getpwnam(settings.user.c_str());
    if (user == nullptr)
        return Error{"process.user: there is no user \"" + settings.user + "\"", errno};
    auto given = give_data_directory(settings, *user);
    if (!given) return given;
    if (initgroups(user->pw_name, user->pw_gid) != 0 || setgid(user->pw_gid) != 0 ||
        setuid(user->pw_uid) != 0)
        return system_error("cannot become " + settings.user);
    if (user->pw_uid != 0 && setuid(0) == 0)
        return Error{"privileges of root could not be given up", EPERM};
    return {};
}

/* -- the service manager -- */

Result<std::vector<Fd>> passed_sockets()
{
    std::vector<Fd> sockets;
    const int count = sd_listen_fds(1);
    for (int i = 0; i < count; ++i) {
        const int moved = moved_above(SD_LISTEN_FDS_START + i);
        if (moved < 0) return system_error("passed sockets");
        sockets.emplace_back(moved);
    }
    return sockets;
}

void notify_manager(const char *state)
{
    sd_notify(0, state);
}

/* -- signals -- */

static sigset_t awaited_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

void block_signals()
{
    const sigset_t set = awaited_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int wait_for_signal()
{
    const sigset_t set = awaited_signals();
    int signal = 0;
    while (sigwait(&set, &signal) != 0) {
    }
    return signal;
}
