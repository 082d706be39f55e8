/* What is put right on the lists when the daemon starts, and kept tidy while it runs. */
#ifndef HOST_MLISTD_START_CHECK_H
#define HOST_MLISTD_START_CHECK_H

#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/base/settings.h"
#include "host/mlistd/modhost/library.h"

/* Every list, under its lock: rewrites that were cut short are finished or discarded, "active" and
   "digest" made anew where they disagree with the roster (a kill between the rewrites leaves them
   behind), old work files removed.  A list that resists is logged and left. */
void check_lists(const ModuleLibrary &module, const Settings &settings);

/* Mail that an earlier process was still receiving: nobody has been told that it was taken. */
void remove_unfinished_mail(const std::string &in_directory);

/* Removes old work files of the lists now and then, on a thread of its own. */
class Housekeeper
{
  public:
    Housekeeper(const ModuleLibrary &module, const Settings &settings);
    ~Housekeeper();

  private:
    void run();

    const ModuleLibrary &module_;
    const Settings &settings_;
    std::mutex mutex_;
    std::condition_variable ending_;
    bool end_ = false;
    std::thread thread_;
};

#endif
