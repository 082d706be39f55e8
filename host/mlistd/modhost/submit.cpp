/* The submit operation: out of the module's hands into the outgoing queue, nothing more.  It runs
   on the delivering thread, often under the list's lock. */
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "host/base/fd.h"
#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lists.h"
#include "host/mlistd/modhost/delivery.h"

namespace
{

using Recipients = std::vector<std::string>;

std::string directory_of(const std::string &path)
{
    return path.substr(0, path.rfind('/'));
}

/* Held until the descriptor is closed. */
Result<Fd> lock_list(const std::string &directory)
{
    const std::string path = directory + "/lock";
    for (;;) {
        Fd lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!lock) return system_error(path);
        while (flock(lock.get(), LOCK_EX) != 0)
            if (errno != EINTR) return system_error(path);
        struct stat held;
        struct stat named;
        /* Removed and made anew while we waited: what we hold guards nothing. */
        if (fstat(lock.get(), &held) == 0 && stat(path.c_str(), &named) == 0 &&
            held.st_ino == named.st_ino && held.st_dev == named.st_dev)
            return lock;
    }
}

/* A file of the list that another delivery may be rewriting in place: whole only under the lock,
   and after a rewrite that was cut short has been finished. */
Result<Recipients> read_under_lock(const ModuleLibrary &module, const std::string &path)
{
    const auto lock = lock_list(directory_of(path));
    if (!lock) return lock.error();
    if (module.recover(path.c_str()) != 0) return Error{path + ": not recovered", EIO};
    return read_address_lines(path);
}

/* A digest: the list's own "digest" file.  The module holds the list's lock, taking it again
   would wait for ever. */
Result<Recipients> read_digest_members(const CurrentDelivery &delivery, const std::string &sender)
{
    const ListAddress &list = delivery.list;
    if (!same_nocase(sender, list.owner()))
        return Error{"digest from <" + sender + "> in a delivery to " + list.name(), EINVAL};
    return read_address_lines(control_path(delivery.host.settings, list.list, list.domain) +
                              "/digest");
}

Result<Recipients> recipients_of(const CurrentDelivery &delivery, const std::string &sender,
                                 const char *const *named, const char *recipient_file)
{
    Recipients recipients;
    for (; named != nullptr && *named != nullptr; ++named)
        recipients.emplace_back(*named);
    if (recipient_file == nullptr) return recipients;
    auto read = recipient_file[0] == '/' ? read_under_lock(delivery.host.module, recipient_file)
                                         : read_digest_members(delivery, sender);
    if (read) read->insert(read->begin(), recipients.begin(), recipients.end());
    return read;
}

void leave_text(char *result_text, const std::string &text)
{
    if (result_text == nullptr) return;
    const size_t length = std::min<size_t>(text.size(), MLIST_RESULT_TEXT_SIZE - 1);
    memcpy(result_text, text.data(), length);
    result_text[length] = '\0';
}

bool has_recipient(const Recipients &recipients)
{
    for (const std::string &recipient : recipients)
        if (!recipient.empty()) return true;
    return false;
}

Result<std::string> submit(const CurrentDelivery &delivery, const char *file,
                           const char *envelope_sender, const char *const *named,
                           const char *recipient_file)
{
    if (file == nullptr) return Error{"no file", EINVAL};
    const std::string sender = envelope_sender != nullptr ? envelope_sender : "";
    const auto recipients = recipients_of(delivery, sender, named, recipient_file);
    if (!recipients) return recipients.error();
    /* A reply to somebody without an address has nowhere to go; a list without members has no one
       to send to, and that is no failure. */
    if (recipient_file == nullptr && !has_recipient(*recipients))
        return Error{"no recipient", EINVAL};
    return delivery.host.queue(file, sender, *recipients, delivery.list.name());
}

} // namespace

int submit_operation(const char *file, const char *envelope_sender, const char *const *recipients,
                     const char *recipient_file, char *result_text)
{
    const CurrentDelivery *delivery = current_delivery();
    if (delivery == nullptr) return 0;
    try { /* the module below us has no exceptions */
        const auto queued = submit(*delivery, file, envelope_sender, recipients, recipient_file);
        if (!queued) {
            log_error(LOG_SUBMIT, delivery->list.name() + ": not queued: " + queued.error().text);
            return 0;
        }
        leave_text(result_text, queued->empty() ? "" : "queued as " + *queued);
        return 1;
    } catch (const std::exception &failure) {
        log_error(LOG_SUBMIT, delivery->list.name() + ": not queued: " + failure.what());
        return 0;
    }
}
