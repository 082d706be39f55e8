/* One reply of an SMTP server, and the reading of it. */
#ifndef HOST_MLISTD_SMTP_REPLY_H
#define HOST_MLISTD_SMTP_REPLY_H

#include <string>
#include <string_view>
#include <vector>

struct SmtpReply {
    int code = 0;                   /* 200 to 599 */
    std::vector<std::string> lines; /* without code and line end */

    int kind() const { return code / 100; }
    /* "550 5.1.1 no such user", printable, in one line, at most some hundred bytes. */
    std::string text() const;
};

/* Bounds that no honest server comes near. */
constexpr size_t LONGEST_REPLY_LINE = 4096;
constexpr size_t MOST_REPLY_LINES = 256;

/* Puts a reply together from its lines. */
class ReplyReader
{
  public:
    enum class State { more, complete, garbage };
    /* A line without its line end. */
    State add_line(std::string_view line);
    SmtpReply &reply() { return reply_; }

  private:
    SmtpReply reply_;
};

#endif
