/* The outgoing queue: what the module submits waits here, on disk, until each recipient has it.

   A submission is one file.  It exists as a whole, synced, before submit() returns, or not at all;
   each recipient's line in it carries a mark that says whether he is done, so a run that dies in
   the middle of a list sends again only what it has no record of (at least once, never lost).

   Everything here may be called from any thread.  One process owns a spool at a time. */
#ifndef HOST_MLISTD_SPOOL_SPOOL_H
#define HOST_MLISTD_SPOOL_SPOOL_H

#include <stdint.h>
#include <time.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/fd.h"
#include "host/base/result.h"

/* Takes one line for the log; level as for mlog(). */
using QueueLog = std::function<void(int level, const std::string &text)>;

/* When a submission is tried again and how long it may stay. */
struct SpoolSettings {
    int64_t retry_min = 60;          /* seconds to the second try; the pause then grows with the */
    int64_t retry_max = 3600;        /* submission's age, up to this */
    int64_t maximum_age = 5 * 86400; /* older: what is left bounces */
    QueueLog log = nullptr;          /* null: nothing is logged */
};

class Spool
{
  public:
    /* Opens the spool, creating directory, in/, out/ and tmp/ as needed, and takes its lock
       (directory/lock, held until destruction).  Unfinished submissions of an earlier run are
       removed, finished ones are queued.  Error EWOULDBLOCK: another process owns the spool. */
    static Result<std::unique_ptr<Spool>> open(const std::string &directory,
                                               const SpoolSettings &settings = {});
    ~Spool();

    /* Queues a copy of the message file; the file itself is only read (it may be a hard link of
       an archived message).  Returns the id once message and recipients are durable.

       sender      bare envelope address, "" for a bounce
       recipients  bare addresses; those that cannot be an address (empty, blanks or control
                   characters, "<" or ">", over 320 bytes) are left out and logged
       list        "LIST@DOMAIN", for logs and for finding the owners to whom failures go

       With nobody to send to nothing is queued: the id is then "".  On an error (ENOSPC and its
       like) nothing is queued either. */
    Result<std::string> submit(const std::string &message_file, const std::string &sender,
                               std::span<const std::string> recipients, const std::string &list);

    /* For the relay workers (runner.h): the next submission that is due, from now on with the
       caller; waits for one at most this long, or until stop is set and wake_all() called.
       Nothing: none was due. */
    std::optional<std::string> take_due(std::chrono::milliseconds wait,
                                        const std::atomic<bool> *stop = nullptr);
    void wake_all();

    /* Gives a taken submission back: done with (its file is removed), to be tried again when due,
       or unreadable (its file is put aside as ID.bad for the operator). */
    void finished(const std::string &id);
    void try_again(const std::string &id, time_t due);
    void put_aside(const std::string &id);

    /* When a submission of this age is to be tried again after a try now. */
    time_t next_try(time_t created) const;

    /* Makes everything that waits due now. */
    void retry_now();

    /* Takes up what changed on disk without this object's doing (an operator's tool may remove a
       submission or make it due by setting its modification time). */
    Result<void> rescan();

    struct Count {
        size_t waiting; /* due or not */
        size_t active;  /* with a worker */
    };
    Count count() const;

    std::string path_of(const std::string &id) const; /* directory/out/ID */
    const std::string &directory() const { return directory_; }
    const SpoolSettings &settings() const { return settings_; }

    /* One log line, when there is a log. */
    void log(int level, const std::string &text) const;

  private:
    enum class State : uint8_t { submitting, waiting, active };
    struct Entry {
        time_t due = 0;
        State state = State::submitting;
    };
    using Entries = std::map<std::string, Entry>;

    Spool(const std::string &directory, const SpoolSettings &settings);
    Result<void> prepare();
    Result<void> remove_unfinished() const;
    Result<void> store(const std::string &id, const Fd &message, std::string_view head,
                       off_t message_size) const;
    std::string reserve_id();
    void wait_until_due(Entries::iterator entry, time_t due);
    void stop_waiting(Entries::iterator entry, State state);
    void forget(const std::string &id);
    void forget_vanished();
    std::string temporary_path(const std::string &id) const;

    const std::string directory_;
    const SpoolSettings settings_;
    Fd lock_;
    mutable std::mutex mutex_; /* guards everything below */
    std::condition_variable work_;
    Entries entries_;
    std::set<std::pair<time_t, std::string_view>> waiting_; /* by time; views of entries_' keys */
    uint32_t serial_ = 0;
};

#endif
