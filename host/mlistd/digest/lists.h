/* The real lists behind the digest clock. */
#ifndef HOST_MLISTD_DIGEST_LISTS_H
#define HOST_MLISTD_DIGEST_LISTS_H

#include <map>

#include "host/base/fd.h"
#include "host/mlistd/digest/rounds.h"
#include "host/mlistd/edge.h"

/* Never waits for a list's lock: one list that is held must not make all others late. */
class ModuleDigestLists : public DigestLists
{
  public:
    ModuleDigestLists(const ModuleHost &host, Edge &edge) : host_(host), edge_(edge) {}

    std::vector<ListAddress> all() override;
    bool exists(const ListAddress &list) override;
    Result<int> digest_minute(const ListAddress &list) override;
    std::optional<time_t> exists_since(const ListAddress &list) override;
    Push push(const ListAddress &list, time_t now) override;

  private:
    /* What tells that "init" is still the file that was read. */
    struct Stamp {
        dev_t device;
        ino_t inode;
        off_t size;
        int64_t changed_ns;
        bool operator==(const Stamp &) const = default;
    };
    struct Minute {
        Stamp stamp;
        int minute;
    };

    [[nodiscard]] std::optional<Stamp> stamp_of(const ListAddress &list) const;
    Push deliver_push(const ListAddress &list, time_t now);
    [[nodiscard]] Result<Fd> try_lock(const ListAddress &list) const;

    const ModuleHost &host_;
    Edge &edge_;
    std::map<std::string, Minute> minutes_;
    unsigned pushes_ = 0;
};

/* The owner's mail that makes a list send its digest; number tells the pushes of a process apart.
 */
std::string push_mail(const ListAddress &list, const std::string &control_suffix, time_t now,
                      unsigned number, const std::string &hostname);

#endif
