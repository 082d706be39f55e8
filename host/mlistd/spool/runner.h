/* The workers that empty the queue. */
#ifndef HOST_MLISTD_SPOOL_RUNNER_H
#define HOST_MLISTD_SPOOL_RUNNER_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/mlistd/outbound/fixups.h"
#include "host/mlistd/spool/bounce.h"
#include "host/mlistd/spool/spool.h"
#include "host/mlistd/spool/transport.h"

struct RunnerSettings {
    unsigned workers = 4;
    int64_t hold = 30;   /* seconds for which nothing is tried once the way out was found shut */
    int64_t rescan = 30; /* seconds after which changes that a tool made in the spool are seen */
    FixupSettings fixups;
    BounceSettings bounce;
};

struct RelayPass; /* one run over a submission */

class Runner
{
  public:
    Runner(Spool &spool, TransportFactory make_transport, RunnerSettings settings);
    ~Runner(); /* stops */

    void start();

    /* Waits until every worker has put its work down; what is not handed over stays queued. */
    void stop();

    /* Ends a hold and makes everything due. */
    void retry_now();

    /* Works on what is due now in the calling thread; returns how many submissions that were. */
    size_t run_once();

  private:
    void work(Transport &transport);
    void work_on(const std::string &id, Transport &transport);
    void cannot_open(const std::string &id, const Error &error);
    Result<void> deliver_all(Transport &transport, RelayPass &pass);
    Result<void> take_answers(RelayPass &pass, std::span<const QueuedRecipient> batch,
                              std::span<Answer> answers);
    Result<void> tell_failures(RelayPass &pass);
    Result<void> record(RelayPass &pass, std::vector<off_t> marks_at, Mark mark);
    Result<void> record_what_is_owed(RelayPass &pass);
    void conclude(const RelayPass &pass);
    void look_for_changes();
    bool held() const;
    void wait_out_hold();

    /* What happened to recipients but could not be written down yet. */
    using Owed = std::vector<std::pair<Mark, std::vector<off_t>>>;

    Spool &spool_;
    const TransportFactory make_transport_;
    const RunnerSettings settings_;
    std::vector<std::unique_ptr<Transport>> transports_;
    std::vector<std::thread> threads_;
    std::atomic<time_t> hold_until_{0};
    std::atomic<time_t> rescanned_{0};
    std::atomic<bool> stopping_{false};
    std::mutex owed_mutex_;
    std::map<std::string, Owed> owed_; /* by submission */
    std::mutex stop_mutex_;
    std::condition_variable stop_signal_;
};

#endif
