/* Where threads and processes of a crowd meet: a common start, and what each is doing. */
#ifndef TESTS_CONCURRENCY_BOARD_H
#define TESTS_CONCURRENCY_BOARD_H

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#define BOARD_WORKERS 32

/* A lock that a worker has, by the descriptor and the inode of its file; no inode: none. */
struct HeldLock {
    std::atomic<int> fd;
    std::atomic<uint64_t> inode;
};

/* One worker's line: what it is at, how many steps it has behind it, and its locks, where its
   system calls are watched (lock_watch.h). */
struct BoardLine {
    std::atomic<uint32_t> steps;
    std::atomic<int> action; /* an Action */
    std::atomic<int> list;
    std::atomic<int> process_id, thread_id;
    std::atomic<uint64_t> waits_for; /* inode, 0: it waits for no lock */
    HeldLock held[4];
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
    void enter(int worker); /* the calling thread is this worker */
    void wait_for_start();  /* returns when every worker has called it */

  private:
    struct Shared {
        pthread_barrier_t start;
        BoardLine lines[BOARD_WORKERS];
    };
    Shared *shared_;
    int workers_;
};

/* The calling thread's line, null for one that is no worker. */
BoardLine *own_board_line();

#endif
