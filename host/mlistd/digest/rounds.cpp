#include "host/mlistd/digest/rounds.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/digest_files.h"
#include "host/mlistd/digest/day_file.h"
#include "host/mlistd/hostlog.h"

static constexpr int64_t SECOND = 1000;
static constexpr int64_t FIRST_PAUSE = 60 * SECOND;
static constexpr int64_t LONGEST_PAUSE = 30 * 60 * SECOND;

void DigestRounds::tick(const Moment &now)
{
    take_asked(now);
    const bool another_minute = last_minute_ != now.wall / 60;
    if (!another_minute && now.steady_ms < next_try_ms_) return;
    last_minute_ = now.wall / 60;
    next_try_ms_ = INT64_MAX;
    look_at_all(now);
}

/* -- pushes that fall due -- */

void DigestRounds::look_at_all(const Moment &now)
{
    std::set<std::string> seen;
    for (const ListAddress &list : lists_.all()) {
        if (ended_) return;
        look_at(list, now);
        seen.insert(list.name());
    }
    std::erase_if(accounts_, [&](const auto &account) { return !seen.contains(account.first); });
}

DigestRounds::Account &DigestRounds::account_of(const ListAddress &list)
{
    Account &account = accounts_[list.name()];
    if (!account.read) {
        account.pushed = read_day_file(digest_day_path(settings_, list));
        account.read = true;
    }
    return account;
}

void DigestRounds::look_at(const ListAddress &list, const Moment &now)
{
    Account &account = account_of(list);
    const LocalTime time = local_time(now.wall);
    if (account.pushed == time.day) return; /* whatever its minute */
    if (now.steady_ms < account.not_before_ms) return put_off(account, account.not_before_ms);

    const auto minute = lists_.digest_minute(list);
    if (!minute && minute.error().code == EWOULDBLOCK)
        return put_off(account, now.steady_ms + SECOND);
    if (!minute) return back_off(list, account, now, minute.error().text);
    const auto since = lists_.exists_since(list);
    const DigestFacts facts{*minute, account.pushed,
                            since ? std::optional(local_time(*since)) : std::nullopt};
    const Day due = latest_due_day(time, *minute);
    switch (judge(time, facts)) {
    case DigestVerdict::rest:
        break;
    case DigestVerdict::push:
        /* Recorded afterwards: killed in between, the list is pushed once more with nothing in the
           digest, which is better than not at all. */
        if (push(list, account, now)) record(list, account, due);
        break;
    case DigestVerdict::take_over:
        record(list, account, due);
        break;
    }
}

/* A record that cannot be written holds as long as the process lives. */
void DigestRounds::record(const ListAddress &list, Account &account, Day day)
{
    account.pushed = day;
    const auto written = write_day_file(digest_day_path(settings_, list), day);
    if (!written)
        log_error(LOG_DIGEST_FAILED,
                  list.name() + ": the digest's day is not recorded: " + written.error().text);
}

/* -- one push -- */

bool DigestRounds::push(const ListAddress &list, Account &account, const Moment &now)
{
    switch (lists_.push(list, now.wall)) {
    case DigestLists::Push::done:
        log_notice(LOG_DIGEST, list.name() + ": digest pushed");
        account.failures = 0;
        account.not_before_ms = 0;
        return true;
    case DigestLists::Push::busy:
        put_off(account, now.steady_ms + SECOND);
        return false;
    case DigestLists::Push::failed:
        back_off(list, account, now, "digest not pushed");
        return false;
    }
    return false;
}

void DigestRounds::put_off(Account &account, int64_t until_ms)
{
    account.not_before_ms = until_ms;
    next_try_ms_ = std::min(next_try_ms_, until_ms);
}

void DigestRounds::back_off(const ListAddress &list, Account &account, const Moment &now,
                            const std::string &reason)
{
    const int64_t pause = std::min(FIRST_PAUSE << std::min(account.failures, 10), LONGEST_PAUSE);
    ++account.failures;
    put_off(account, now.steady_ms + pause);
    log_error(LOG_DIGEST_FAILED, list.name() + ": " + reason + "; next try in " +
                                     std::to_string(pause / SECOND) + " s");
}

/* -- pushes that were asked for -- */

/* Whether it is one of ours: the directory is its owner's alone, but a stray file is no order. */
static bool is_request(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_uid == geteuid() || status.st_uid == 0);
}

void DigestRounds::take_asked(const Moment &now)
{
    namespace fs = std::filesystem;
    std::error_code failure;
    for (fs::directory_iterator entry(asked_push_directory(settings_), failure), end;
         !failure && entry != end && !ended_; entry.increment(failure)) {
        const std::string path = entry->path();
        const auto list =
            parse_list_name(entry->path().filename().string(), settings_.control_suffixes);
        if (list && is_request(path) && lists_.exists(*list)) {
            push_asked(*list, path, now);
        } else if (unlink(path.c_str()) == 0) {
            log_warning(LOG_DIGEST_FAILED, path + ": no push of a list, removed");
        }
    }
}

/* The day's own push stays due: what is posted until then is for today's digest too. */
void DigestRounds::push_asked(const ListAddress &list, const std::string &path, const Moment &now)
{
    Account &account = account_of(list);
    if (now.steady_ms < account.not_before_ms || !push(list, account, now)) return;
    if (unlink(path.c_str()) == 0 || errno == ENOENT) return;
    back_off(list, account, now, system_error(path).text); /* not a push every second */
}
