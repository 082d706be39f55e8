#include "host/mlistd/digest/clock.h"

#include <ctime>

#include "host/mlistd/hostlog.h"
#include "host/mlistd/net/stream.h"

static constexpr auto TICK = std::chrono::seconds(1);

void DigestClock::stop()
{
    if (!thread_.joinable()) return;
    rounds_.end();
    {
        const std::lock_guard lock(mutex_);
        end_ = true;
    }
    ending_.notify_all();
    thread_.join();
}

void DigestClock::run()
{
    std::unique_lock lock(mutex_);
    do {
        lock.unlock();
        try {
            rounds_.tick({time(nullptr), steady_ms()});
        } catch (const std::exception &failure) { /* no memory: there will be another second */
            log_error(LOG_DIGEST_FAILED, std::string("digest clock: ") + failure.what());
        }
        lock.lock();
    } while (!ending_.wait_for(lock, TICK, [this] { return end_; }));
}
