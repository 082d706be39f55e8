/* Where threads and processes of a crowd meet: a common start, and what each is doing, so that a
   watchdog can tell a deadlock from a slow machine and say who waits. */
#ifndef TESTS_CONCURRENCY_BOARD_H
#define TESTS_CONCURRENCY_BOARD_H

#include <pthread.h>
#include <stdint.h>

#include <atomic>
#include <thread>
#include <vector>

#define BOARD_WORKERS 32

/* One worker's line: what it is at, and how many steps it has behind it. */
struct BoardLine {
    std::atomic<uint32_t> steps;
    std::atomic<int> action; /* an Action */
    std::atomic<int> list;
    std::atomic<int> thread_id;
};

/* In memory that forked processes share. */
class Board
{
  public:
    explicit Board(int workers);
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    BoardLine &line(int worker) { return shared_->lines[worker]; }
    int workers() const { return workers_; }
    void wait_for_start(); /* returns when every worker has called it */

  private:
    struct Shared {
        pthread_barrier_t start;
        BoardLine lines[BOARD_WORKERS];
    };
    Shared *shared_;
    int workers_;
};

/* Ends the test program, with what every worker is at and the locks of the machine, when no worker
   has taken a step for so many seconds.  Make it after the last fork. */
class Watchdog
{
  public:
    Watchdog(Board *board, std::vector<pid_t> children, int seconds);
    ~Watchdog();
    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

  private:
    void watch();
    [[noreturn]] void report();

    Board *board_;
    std::vector<pid_t> children_;
    int seconds_;
    int stop_[2];
    std::thread thread_;
};

#endif
