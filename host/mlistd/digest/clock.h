/* The digest clock's thread. */
#ifndef HOST_MLISTD_DIGEST_CLOCK_H
#define HOST_MLISTD_DIGEST_CLOCK_H

#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/mlistd/digest/rounds.h"

class DigestClock
{
  public:
    /* Runs from here on; rounds must outlive it. */
    explicit DigestClock(DigestRounds &rounds) : rounds_(rounds), thread_([this] { run(); }) {}
    ~DigestClock() { stop(); }

    /* A push that has begun is finished first. */
    void stop();

  private:
    void run();

    DigestRounds &rounds_;
    std::mutex mutex_;
    std::condition_variable ending_;
    bool end_ = false;
    std::thread thread_;
};

#endif
