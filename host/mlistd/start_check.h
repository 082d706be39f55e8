/* What is put right on the lists when the daemon starts, and kept tidy while it runs. */
#ifndef HOST_MLISTD_START_CHECK_H
#define HOST_MLISTD_START_CHECK_H

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "host/base/names.h"
#include "host/mlistd/edge.h"
#include "host/mlistd/modhost/delivery.h"

/* Which lists are in order.  Under a list's lock rewrites that were cut short are finished or
   discarded, "active" and "digest" made anew where they disagree with the roster (a kill between
   the rewrites leaves them behind: somebody's mail would go nowhere), old work files removed.  A
   list that resists is logged, and checked again whenever it is asked about; so is one after a
   fault of the machine.  The placeholders are back after each check.  From any thread. */
class CheckedLists : public ListOrder
{
  public:
    explicit CheckedLists(const ModuleHost &host) : host_(host) {}

    /* Every list that there is. */
    void check_all();

    /* Checks what is not known to be in order. */
    bool in_order(const ListAddress &list) override;
    void doubt(const ListAddress &list) override;

  private:
    const ModuleHost &host_;
    std::mutex mutex_;
    std::set<std::string> in_order_;
};

/* The files of a directory where an earlier process was still writing mail that it has told nobody
   about, or that lies elsewhere too. */
void remove_unfinished_mail(const std::string &directory);

/* Removes old work files of the lists now and then, on a thread of its own. */
class Housekeeper
{
  public:
    explicit Housekeeper(const ModuleHost &host);
    ~Housekeeper();

  private:
    void run();

    const ModuleHost &host_;
    std::mutex mutex_;
    std::condition_variable ending_;
    bool end_ = false;
    std::thread thread_;
};

#endif
