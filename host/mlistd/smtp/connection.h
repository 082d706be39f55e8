/* A connection to an SMTP server: everything with a deadline, nothing without a bound. */
#ifndef HOST_MLISTD_SMTP_CONNECTION_H
#define HOST_MLISTD_SMTP_CONNECTION_H

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include "host/base/endpoint.h"
#include "host/base/fd.h"
#include "host/base/result.h"
#include "host/mlistd/smtp/reply.h"

using SmtpDeadline = std::chrono::steady_clock::time_point;

/* Rung once, it ends every wait that can be ended without harm. */
class SmtpInterrupt
{
  public:
    SmtpInterrupt();
    void ring();
    bool rung() const { return rung_; }
    int fd() const { return event_.get(); }

  private:
    Fd event_;
    std::atomic<bool> rung_{false};
};

/* Error codes: ETIMEDOUT the deadline passed, ECANCELED interrupted, ECONNRESET closed by the
   server, EPROTO it said something that is no reply; else errno. */
class SmtpConnection
{
  public:
    /* Tries each address of the host until the deadline. */
    static Result<SmtpConnection> open(const Endpoint &endpoint, SmtpDeadline deadline,
                                       const SmtpInterrupt &interrupt);

    /* Over a connected socket. */
    SmtpConnection(Fd socket, const SmtpInterrupt &interrupt);

    /* Sends all of it, taking in replies meanwhile: a server may answer the first commands of a
       long row before it reads the last. */
    Result<void> send(std::string_view data, SmtpDeadline deadline);

    /* With patience an interrupt only shortens the wait: the end of a message was sent, and who
       leaves before the answer will send it again. */
    Result<SmtpReply> read_reply(SmtpDeadline deadline, bool patient = false);

    /* Whether the server has closed, or said something unasked. */
    bool stale() const;

  private:
    Result<short> wait(short events, SmtpDeadline deadline, bool patient) const;
    Result<void> receive();
    Result<std::string_view> take_line(SmtpDeadline deadline, bool patient);

    Fd socket_;
    const SmtpInterrupt *interrupt_;
    std::string in_;
    size_t taken_ = 0;   /* of in_: used already */
    size_t scanned_ = 0; /* of in_: known to hold no line end */
};

#endif
