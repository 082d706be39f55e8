#include "tests/concurrency/board.h"

#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "tests/concurrency/worker.h"

/* -- board -- */

Board::Board(int workers) : workers_(workers)
{
    void *memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED || workers > BOARD_WORKERS) abort();
    shared_ = new (memory) Shared();
    pthread_barrierattr_t attributes;
    pthread_barrierattr_init(&attributes);
    pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_barrier_init(&shared_->start, &attributes, static_cast<unsigned>(workers));
    pthread_barrierattr_destroy(&attributes);
}

Board::~Board()
{
    pthread_barrier_destroy(&shared_->start);
    munmap(shared_, sizeof(Shared));
}

void Board::wait_for_start()
{
    pthread_barrier_wait(&shared_->start);
}

/* -- watchdog -- */

Watchdog::Watchdog(Board *board, std::vector<pid_t> children, int seconds)
    : board_(board), children_(std::move(children)), seconds_(seconds)
{
    if (pipe(stop_) != 0) abort();
    thread_ = std::thread([this] { watch(); });
}

Watchdog::~Watchdog()
{
    close(stop_[1]); /* ends the wait */
    thread_.join();
    close(stop_[0]);
}

static uint64_t all_steps(Board *board)
{
    uint64_t steps = 0;
    for (int worker = 0; worker < board->workers(); ++worker)
        steps += board->line(worker).steps;
    return steps;
}

void Watchdog::watch()
{
    uint64_t seen = 0;
    for (int still = 0; still < seconds_; ++still) {
        pollfd stopped = {stop_[0], POLLIN, 0};
        if (poll(&stopped, 1, 1000) != 0) return;
        const uint64_t steps = all_steps(board_);
        if (steps != seen) still = 0;
        seen = steps;
    }
    report();
}

void Watchdog::report()
{
    fprintf(stderr, "deadlock: no worker has taken a step for %d seconds\n", seconds_);
    for (int worker = 0; worker < board_->workers(); ++worker) {
        const BoardLine &line = board_->line(worker);
        fprintf(stderr, "worker %d (thread %d): %u steps, now %s on list %d\n", worker,
                line.thread_id.load(), line.steps.load(), action_name(line.action),
                line.list.load());
    }
    std::ifstream locks("/proc/locks");
    for (std::string text; std::getline(locks, text);)
        fprintf(stderr, "%s\n", text.c_str());
    for (const pid_t child : children_)
        kill(child, SIGKILL);
    abort();
}
