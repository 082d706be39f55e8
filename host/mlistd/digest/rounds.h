/* The digest clock without its thread: looks at every list, has the due ones pushed, keeps account
   of it on disk, and comes back to what failed. */
#ifndef HOST_MLISTD_DIGEST_ROUNDS_H
#define HOST_MLISTD_DIGEST_ROUNDS_H

#include <atomic>
#include <map>
#include <vector>

#include "host/base/names.h"
#include "host/base/settings.h"
#include "host/mlistd/digest/schedule.h"

/* The lists as the clock needs them. */
class DigestLists
{
  public:
    virtual ~DigestLists() = default;

    virtual std::vector<ListAddress> all() = 0;
    virtual bool exists(const ListAddress &list) = 0;

    /* Minute of the day.  EWOULDBLOCK: not now, somebody holds the list's lock. */
    virtual Result<int> digest_minute(const ListAddress &list) = 0;

    /* When the list was made; nothing where the file system does not tell. */
    virtual std::optional<time_t> exists_since(const ListAddress &list) = 0;

    /* Delivers the owner's push mail.  busy: another delivery is in the list. */
    enum class Push { done, busy, failed };
    virtual Push push(const ListAddress &list, time_t now) = 0;
};

class DigestRounds
{
  public:
    /* The time of the day, and a clock that nobody sets. */
    struct Moment {
        time_t wall;
        int64_t steady_ms;
    };

    DigestRounds(const Settings &settings, DigestLists &lists) : settings_(settings), lists_(lists)
    {
    }

    /* To be called about every second.  Looks at the lists whenever the minute is another one than
       at the last call, whichever way the clock went, and when a failed push is to be repeated. */
    void tick(const Moment &now);

    /* From another thread: no further push is begun. */
    void end() { ended_ = true; }

  private:
    struct Account {
        bool read = false; /* the record on disk */
        std::optional<Day> pushed;
        int failures = 0;          /* in a row */
        int64_t not_before_ms = 0; /* steady time of the next try */
    };

    void take_asked(const Moment &now);
    void push_asked(const ListAddress &list, const std::string &path, const Moment &now);
    void look_at_all(const Moment &now);
    void look_at(const ListAddress &list, const Moment &now);
    bool push(const ListAddress &list, Account &account, const Moment &now);
    void put_off(Account &account, int64_t until_ms);
    void back_off(const ListAddress &list, Account &account, const Moment &now,
                  const std::string &reason);
    void record(const ListAddress &list, Account &account, Day day);
    Account &account_of(const ListAddress &list);

    const Settings &settings_;
    DigestLists &lists_;
    std::map<std::string, Account> accounts_;
    std::optional<time_t> last_minute_;
    int64_t next_try_ms_ = 0; /* the earliest of those that were put off */
    std::atomic<bool> ended_ = false;
};

#endif
