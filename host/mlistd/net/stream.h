/* A connected socket with a buffer on the way in, and a deadline on every wait.

   One thread at a time.  A wait that allows it also ends when the stop descriptor becomes
   readable: that is how a session that waits for its next command learns of the daemon's end. */
#ifndef HOST_MLISTD_NET_STREAM_H
#define HOST_MLISTD_NET_STREAM_H

#include <cstdint>
#include <string>
#include <string_view>

/* Milliseconds of the steady clock. */
int64_t steady_ms();

class Stream
{
  public:
    enum class Got : uint8_t { data, end, timeout, stopped, failed, too_long };

    /* Both stay the caller's; the socket need not be non-blocking; stop_fd -1: none. */
    Stream(int socket, int stop_fd) : socket_(socket), stop_fd_(stop_fd) {}

    /* What has arrived and is not consumed yet. */
    [[nodiscard]] std::string_view buffered() const
    {
        return std::string_view(buffer_).substr(begin_);
    }
    void consume(size_t size);

    /* Waits for more and adds it to buffered().  stoppable: stopped when the daemon is ending. */
    Got fill(int64_t deadline, bool stoppable);

    /* A line without its end, LF or CR LF; other bytes, NUL too, as they are.  A line of more than
       limit bytes is read to its end and thrown away: too_long. */
    Got read_line(std::string &line, size_t limit, int64_t deadline);

    /* False when the peer is gone or does not take it in time. */
    [[nodiscard]] bool write_all(std::string_view text, int64_t deadline);

  private:
    Got wait_for(short events, int64_t deadline, bool stoppable) const;

    int socket_;
    int stop_fd_;
    std::string buffer_;
    size_t begin_ = 0;
};

#endif
