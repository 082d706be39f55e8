#include "host/mlistd/digest/lists.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lists.h"
#include "host/mlistd/lmtp/message.h"
#include "host/mlistd/outbound/fixups.h"

/* For a place among the deliveries; the clock comes again a second later. */
static constexpr auto PATIENCE = std::chrono::milliseconds(200);

std::vector<ListAddress> ModuleDigestLists::all()
{
    return all_lists(host_.settings);
}

bool ModuleDigestLists::exists(const ListAddress &list)
{
    return list_exists(host_.settings, list);
}

/* -- the minute -- */

std::optional<ModuleDigestLists::Stamp> ModuleDigestLists::stamp_of(const ListAddress &list) const
{
    const std::string path = control_path(host_.settings, list.list, list.domain) + "/init";
    struct stat status;
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    constexpr int64_t SECOND = 1'000'000'000;
    return Stamp{status.st_dev, status.st_ino, status.st_size,
                 status.st_ctim.tv_sec * SECOND + status.st_ctim.tv_nsec};
}

/* EWOULDBLOCK when somebody holds it. */
Result<Fd> ModuleDigestLists::try_lock(const ListAddress &list) const
{
    const std::string path = control_path(host_.settings, list.list, list.domain) + "/lock";
    Fd lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock || flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return system_error(path);
    return lock;
}

/* Reading finishes or discards an unfinished rewrite of the file, so it needs the lock; the file is
   read again only when it has changed. */
Result<int> ModuleDigestLists::digest_minute(const ListAddress &list)
{
    const auto stamp = stamp_of(list);
    if (!stamp) return system_error("init");
    const auto known = minutes_.find(list.name());
    if (known != minutes_.end() && known->second.stamp == *stamp) return known->second.minute;

    const auto lock = try_lock(list);
    if (!lock) return lock.error();
    ListSettings settings = *host_.module.default_settings;
    const int read = host_.module.read_settings(list.list.c_str(), list.domain.c_str(), &settings);
    host_.placeholders.restore();
    if (read != 0) return Error{"settings not read", EIO};
    minutes_[list.name()] = {*stamp, settings.digest_time};
    return settings.digest_time;
}

/* The birth of the control directory: "init" is replaced now and then, the directory is not. */
std::optional<time_t> ModuleDigestLists::exists_since(const ListAddress &list)
{
    const std::string path = control_path(host_.settings, list.list, list.domain);
    struct statx status = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0 ||
        (status.stx_mask & STATX_BTIME) == 0)
        return std::nullopt;
    return status.stx_btime.tv_sec;
}

/* -- the push -- */

std::string push_mail(const ListAddress &list, const std::string &control_suffix, time_t now,
                      unsigned number, const std::string &hostname)
{
    return "Date: " + mail_date(now) + "\r\nFrom: " + list.owner() + "\r\nTo: " + list.list +
           control_suffix + "@" + list.domain + "\r\nSubject: push\r\nMessage-ID: <push." +
           std::to_string(now) + "." + std::to_string(getpid()) + "." + std::to_string(number) +
           "@" + hostname + ">\r\n\r\n# push\r\n";
}

/* The mail in a file, as if it had been received. */
static Result<MessageFile> write_mail(const std::string &path, const std::string &text)
{
    auto file = MessageFile::create(path);
    if (!file) return file.error();
    file->append(text);
    const auto flushed = file->flush();
    if (!flushed) return flushed.error();
    return file;
}

DigestLists::Push ModuleDigestLists::push(const ListAddress &list, time_t now)
{
    /* Held no longer than this line: the delivery takes the lock itself. */
    if (const auto lock = try_lock(list); !lock && lock.error().code == EWOULDBLOCK)
        return Push::busy;
    if (!exists(list)) return Push::failed; /* gone meanwhile; the module would make it anew */
    return deliver_push(list, now);
}

DigestLists::Push ModuleDigestLists::deliver_push(const ListAddress &list, time_t now)
{
    const Settings &settings = host_.settings;
    const unsigned number = ++pushes_;
    const auto mail = write_mail(
        settings.spool_directory + "/in/push." + std::to_string(number),
        push_mail(list, settings.control_suffixes.front(), now, number, host_name(settings)));
    if (!mail) {
        log_error(LOG_DIGEST_FAILED, list.name() + ": " + mail.error().text);
        return Push::failed;
    }
    const ListAddress control{Role::control, list.list, list.domain};
    const auto answer = edge_.deliver_own(control, mail->path(), PATIENCE);
    if (!answer) return Push::busy;
    return answer->exit_code == MLIST_EXIT_ACCEPTED ? Push::done : Push::failed;
}
