/* An SMTP server on the loopback that takes every mail, keeps none, and counts. */
#ifndef BENCH_SMTP_SINK_H
#define BENCH_SMTP_SINK_H

#include <stdint.h>

#include <atomic>
#include <thread>

class SmtpSink
{
  public:
    SmtpSink(); /* listens, on a port that was free; aborts when it cannot */
    ~SmtpSink();
    SmtpSink(const SmtpSink &) = delete;
    SmtpSink &operator=(const SmtpSink &) = delete;

    uint16_t port() const { return port_; }

    /* Copies taken so far, one a recipient; mails that they came in. */
    uint64_t copies() const { return copies_; }
    uint64_t mails() const { return mails_; }

    /* Waits until so many copies were taken; false when nothing came for a minute. */
    bool wait_for(uint64_t copies) const;

  private:
    void accept_clients();
    void serve(int client);

    int listener_ = -1;
    uint16_t port_ = 0;
    std::atomic<bool> end_{false};
    std::atomic<int> clients_{0};
    std::atomic<uint64_t> copies_{0}, mails_{0};
    std::thread thread_;
};

#endif
