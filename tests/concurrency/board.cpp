#include "tests/concurrency/board.h"

#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

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

static thread_local BoardLine *own_line;

BoardLine *own_board_line()
{
    return own_line;
}

void Board::enter(int worker)
{
    own_line = &line(worker);
    own_line->process_id = getpid();
    own_line->thread_id = gettid();
}

void Board::wait_for_start()
{
    pthread_barrier_wait(&shared_->start);
}
