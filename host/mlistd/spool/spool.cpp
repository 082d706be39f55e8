/* The outgoing queue on disk.

   tmp/q.ID  out/ID  out/ID.bad   meaning                              when the spool is opened
   -         -       -            never submitted, or done with        nothing
   yes       -       -            died while it was being written:     removed
                                  submit() has not returned
   -         yes     -            queued; the marks in the file say    queued, due at the file's
                                  who is done                          modification time
   -         -       yes          unreadable, put aside                nothing; the operator's
   The file is synced before it gets its name in out/, that directory before submit() returns.  A
   kill between the two leaves the submission whole, although nobody was told that it is. */
#include "host/mlistd/spool/spool.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "host/base/text.h"
#include "host/mlistd/spool/calls.h"
#include "host/mlistd/spool/envelope.h"
#include "host/mlistd/spool/queue_id.h"

static constexpr mode_t DIRECTORY_MODE = 0770;
static constexpr mode_t FILE_MODE = 0660;

Spool::Spool(const std::string &directory, const SpoolSettings &settings)
    : directory_(directory), settings_(settings)
{
}

Spool::~Spool() = default;

void Spool::log(int level, const std::string &text) const
{
    if (settings_.log) settings_.log(level, text);
}

std::string Spool::path_of(const std::string &id) const
{
    return directory_ + "/out/" + id;
}

std::string Spool::temporary_path(const std::string &id) const
{
    return directory_ + "/tmp/q." + id;
}

/* ---- opening ---- */

Result<std::unique_ptr<Spool>> Spool::open(const std::string &directory,
                                           const SpoolSettings &settings)
{
    std::unique_ptr<Spool> spool(new Spool(directory, settings));
    if (auto result = spool->prepare(); !result) return result.error();
    if (auto result = spool->remove_unfinished(); !result) return result.error();
    if (auto result = spool->rescan(); !result) return result.error();
    return spool;
}

Result<void> Spool::prepare()
{
    for (const char *part : {"", "/in", "/out", "/tmp"})
        if (make_directory(directory_ + part, DIRECTORY_MODE) < 0)
            return system_error(directory_ + part);
    const std::string path = directory_ + "/lock";
    lock_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, FILE_MODE));
    if (!lock_) return system_error(path);
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return {};
    if (errno == EWOULDBLOCK) return Error{directory_ + ": another process uses it", EWOULDBLOCK};
    return system_error(path);
}

Result<void> Spool::remove_unfinished() const
{
    const auto names = list_directory(directory_ + "/tmp");
    if (!names) return names.error();
    for (const std::string &name : *names) {
        if (!name.starts_with("q.")) continue; /* somebody else's */
        const std::string path = directory_ + "/tmp/" + name;
        /* a directory is nobody's submission, and no reason not to start */
        if (queue_calls->unlink(path.c_str()) < 0 && errno != ENOENT && errno != EISDIR)
            return system_error(path);
    }
    return {};
}

/* A clock that was wrong must not park a submission for years. */
static time_t sensible_due(time_t due, const SpoolSettings &settings)
{
    const time_t now = queue_calls->now();
    return due > now + settings.retry_max ? now : due;
}

Result<void> Spool::rescan()
{
    const auto names = list_directory(directory_ + "/out");
    if (!names) return names.error();
    const std::lock_guard lock(mutex_);
    for (const std::string &name : *names) {
        struct stat status;
        if (!is_queue_id(name) || stat(path_of(name).c_str(), &status) < 0) continue;
        const auto entry = entries_.try_emplace(name, Entry{0, State::waiting}).first;
        if (entry->second.state != State::waiting) continue;
        wait_until_due(entry, sensible_due(status.st_mtime, settings_));
    }
    forget_vanished();
    return {};
}

/* With the mutex held. */
void Spool::forget_vanished()
{
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        const auto current = entry++;
        if (current->second.state != State::waiting ||
            access(path_of(current->first).c_str(), F_OK) == 0)
            continue;
        stop_waiting(current, State::waiting);
        entries_.erase(current);
    }
}

/* ---- submitting ---- */

/* Those that can be sent to; the others are counted in left_out. */
static std::vector<std::string_view> usable_recipients(std::span<const std::string> recipients,
                                                       size_t &left_out)
{
    std::vector<std::string_view> usable;
    usable.reserve(recipients.size());
    for (const std::string &recipient : recipients)
        if (usable_address(recipient)) usable.push_back(recipient);
    left_out = recipients.size() - usable.size();
    return usable;
}

std::string Spool::reserve_id()
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    const std::lock_guard lock(mutex_);
    for (;;) {
        const uint64_t microseconds =
            static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
        std::string id = make_queue_id(microseconds, ++serial_);
        if (entries_.try_emplace(id).second) return id;
    }
}

void Spool::forget(const std::string &id)
{
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(id);
    if (entry == entries_.end()) return;
    stop_waiting(entry, State::submitting);
    entries_.erase(entry);
}

/* Puts the submission on disk under its name; on an error nothing is left of it. */
Result<void> Spool::store(const std::string &id, const Fd &message, std::string_view head,
                          off_t message_size) const
{
    const std::string temporary = temporary_path(id), path = path_of(id);
    const Fd file(queue_calls->create(temporary.c_str(), FILE_MODE));
    if (!file) return system_error(temporary);
    if (queue_write(file.get(), head) < 0 ||
        queue_copy(message.get(), 0, message_size, file.get()) < 0 ||
        queue_calls->fsync(file.get()) < 0 ||
        queue_calls->rename(temporary.c_str(), path.c_str()) < 0) {
        const Error error = system_error(temporary);
        (void)queue_calls->unlink(temporary.c_str()); /* the next start removes it otherwise */
        return error;
    }
    if (sync_directory(directory_ + "/out") < 0) {
        const Error error = system_error(directory_ + "/out");
        (void)queue_calls->unlink(path.c_str()); /* else it is sent, which the caller may repeat */
        return error;
    }
    return {};
}

Result<std::string> Spool::submit(const std::string &message_file, const std::string &sender,
                                  std::span<const std::string> recipients, const std::string &list)
{
    if (!sender.empty() && !usable_address(sender)) return Error{"unusable sender address", EINVAL};
    if (!list.empty() && !usable_address(list)) return Error{"unusable list name", EINVAL};
    size_t left_out;
    const auto usable = usable_recipients(recipients, left_out);
    if (left_out > 0)
        log(3, "mlname=" + list + " " + std::to_string(left_out) +
                   " recipients left out: not usable as addresses");
    if (usable.empty()) return std::string();

    const Fd message(::open(message_file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!message || fstat(message.get(), &status) < 0) return system_error(message_file);
    if (!S_ISREG(status.st_mode)) return Error{message_file + ": not a file", EINVAL};

    const std::string id = reserve_id();
    const time_t now = queue_calls->now();
    const std::string head = compose_envelope(sender, list, now, usable, status.st_size);
    if (auto result = store(id, message, head, status.st_size); !result) {
        forget(id);
        return result.error();
    }
    const std::lock_guard lock(mutex_);
    wait_until_due(entries_.find(id), now);
    return id;
}

/* ---- for the workers ---- */

/* With the mutex held. */
void Spool::wait_until_due(Entries::iterator entry, time_t due)
{
    stop_waiting(entry, State::waiting);
    entry->second.due = due;
    waiting_.emplace(due, entry->first);
    work_.notify_one();
}

/* With the mutex held. */
void Spool::stop_waiting(Entries::iterator entry, State state)
{
    waiting_.erase({entry->second.due, entry->first});
    entry->second.state = state;
}

std::optional<std::string> Spool::take_due(std::chrono::milliseconds wait,
                                           const std::atomic<bool> *stop)
{
    /* the wall clock may be set while a worker waits */
    constexpr std::chrono::seconds LONGEST_SLEEP(10);
    const auto deadline = std::chrono::steady_clock::now() + wait;
    std::unique_lock lock(mutex_);
    while (stop == nullptr || !*stop) {
        const time_t now = queue_calls->now();
        auto until = std::min(deadline, std::chrono::steady_clock::now() + LONGEST_SLEEP);
        if (!waiting_.empty()) {
            const auto [due, id] = *waiting_.begin();
            if (due <= now) {
                const auto entry = entries_.find(std::string(id));
                stop_waiting(entry, State::active);
                return entry->first;
            }
            until = std::min(until, std::chrono::steady_clock::now() +
                                        std::chrono::seconds(std::min<time_t>(due - now, 10)));
        }
        if (work_.wait_until(lock, until) == std::cv_status::timeout &&
            std::chrono::steady_clock::now() >= deadline)
            break;
    }
    return std::nullopt;
}

void Spool::finished(const std::string &id)
{
    if (queue_calls->unlink(path_of(id).c_str()) < 0 && errno != ENOENT)
        log(1, system_error("queue file not removed, " + path_of(id)).text);
    forget(id);
}

void Spool::try_again(const std::string &id, time_t due)
{
    /* when this does not reach the disk, the submission is tried a little earlier */
    (void)queue_calls->set_mtime(path_of(id).c_str(), due);
    const std::lock_guard lock(mutex_);
    const auto entry = entries_.find(id);
    if (entry != entries_.end()) wait_until_due(entry, due);
}

void Spool::put_aside(const std::string &id)
{
    const std::string path = path_of(id);
    if (queue_calls->rename(path.c_str(), (path + ".bad").c_str()) < 0 && errno != ENOENT)
        log(1, system_error("queue file not put aside, " + path).text);
    forget(id);
}

time_t Spool::next_try(time_t created) const
{
    const time_t now = queue_calls->now();
    return now + std::clamp<int64_t>(now - created, settings_.retry_min,
                                     std::max(settings_.retry_min, settings_.retry_max));
}

void Spool::retry_now()
{
    const std::lock_guard lock(mutex_);
    const time_t now = queue_calls->now();
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry)
        if (entry->second.state == State::waiting && entry->second.due > now)
            wait_until_due(entry, now);
    work_.notify_all();
}

void Spool::wake_all()
{
    const std::lock_guard lock(mutex_);
    work_.notify_all();
}

Spool::Count Spool::count() const
{
    const std::lock_guard lock(mutex_);
    return {waiting_.size(), entries_.size() - waiting_.size()};
}
