/* Tells a deadlock of a crowd from a slow machine, and says who waits and who holds what. */
#ifndef TESTS_CONCURRENCY_WATCHDOG_H
#define TESTS_CONCURRENCY_WATCHDOG_H

#include <sys/types.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/concurrency/board.h"

/* Ends the test program, with what every worker is at, which files below root it has locked and for
   which one it waits, when no worker has taken a step for so many seconds.  Make it after the last
   fork. */
class Watchdog
{
  public:
    Watchdog(Board *board, std::vector<pid_t> children, int seconds, std::string root);
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

  private:
    void watch();
    [[noreturn]] void report();

    Board *board_;
    std::vector<pid_t> children_;
    int seconds_;
    const std::string root_;
    int stop_[2];
    std::thread thread_;
};

#endif
