/* One LMTP transaction with the daemon. */
#ifndef HOST_MLISTCTL_LMTP_CLIENT_H
#define HOST_MLISTCTL_LMTP_CLIENT_H

#include <string>
#include <string_view>

#include "host/base/endpoint.h"
#include "host/base/fd.h"

struct LmtpReply {
    int code = 0;
    std::string text; /* of the last line */
};

/* Every operation throws a Failure (later) when the daemon is not there or goes away. */
class LmtpClient
{
  public:
    explicit LmtpClient(const Endpoint &endpoint);

    /* One reply, all its lines. */
    LmtpReply read_reply();
    LmtpReply command(std::string_view line);
    void send(std::string_view data);

    /* Says good-bye; the answer that counts has been given, so nothing can fail any more. */
    void quit() const;

  private:
    [[noreturn]] void lost(const std::string &what) const;
    std::string read_line();

    std::string name_;
    Fd socket_;
    std::string received_;
};

/* A message on its way into DATA: every line ends in CR LF, leading dots are doubled, stray CRs are
   dropped, as a mail server does with what a program hands to it. */
class DataEncoder
{
  public:
    /* Appends the encoded form of the next piece. */
    void encode(std::string_view piece, std::string &out);

    /* What is missing at the end: a last line end, and the closing dot. */
    void finish(std::string &out) const;

  private:
    bool line_start_ = true;
};

#endif
