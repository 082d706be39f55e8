/* The built mlistd over a temporary tree, with lists, and a client that posts to it. */
#ifndef BENCH_MLISTD_PROCESS_H
#define BENCH_MLISTD_PROCESS_H

#include <stdint.h>
#include <sys/types.h>

#include <string>

class MlistdProcess
{
  public:
    /* list0@example.jp and on, each with so many members; mail leaves to the port.  Aborts when
       something of it fails: there is nothing to measure then. */
    MlistdProcess(const std::string &below, int lists, int members, uint16_t relay_port);
    ~MlistdProcess();
    MlistdProcess(const MlistdProcess &) = delete;
    MlistdProcess &operator=(const MlistdProcess &) = delete;

    const std::string &directory() const { return directory_; }
    std::string socket_path() const { return directory_ + "/lmtp"; }
    double processor_seconds() const; /* user and system, of the daemon so far */
    bool queue_is_empty() const;

  private:
    void make_lists(int lists, int members) const;
    std::string directory_;
    pid_t process_ = -1;
};

/* One LMTP connection. */
class LmtpConnection
{
  public:
    explicit LmtpConnection(const std::string &socket_path);
    ~LmtpConnection();
    LmtpConnection(const LmtpConnection &) = delete;
    LmtpConnection &operator=(const LmtpConnection &) = delete;

    /* Posts; aborts when it is not taken. */
    void post(const std::string &list, const std::string &mail);

  private:
    void say(const std::string &text) const;
    int reply();
    int socket_;
    std::string received_;
};

/* A mail of 4,096 bytes of the list's member 0, with a Message-ID of its own. */
std::string sample_mail(const std::string &list, uint64_t number);

std::string sample_member(int number);

#endif
