/* Any bytes as what a relay says: in whatever portions they come, the same replies are read, and no
   more of them than an honest server would need.  The first two bytes choose the portions. */
#include <stdint.h>
#include <string.h>
#include <sys/socket.h>

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/demand.h"
#include "host/mlistd/smtp/connection.h"

static constexpr size_t INPUT_MAX = 20000; /* what a socket takes without a reader */

struct Talk {
    std::vector<SmtpReply> replies;
    bool garbage = false; /* how it ended, else with the connection */
};

/* The plain way: all lines of the text, one after the other. */
static Talk read_plainly(std::string_view text)
{
    Talk talk;
    ReplyReader reader;
    for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        std::string_view line = text.substr(0, end);
        talk.garbage = line.size() > LONGEST_REPLY_LINE;
        if (talk.garbage) return talk;
        if (line.ends_with('\r')) line.remove_suffix(1);
        const ReplyReader::State state = reader.add_line(line);
        talk.garbage = state == ReplyReader::State::garbage;
        if (talk.garbage) return talk;
        if (state == ReplyReader::State::more) continue;
        talk.replies.push_back(reader.reply());
        reader = ReplyReader();
    }
    talk.garbage = text.size() > LONGEST_REPLY_LINE;
    return talk;
}

/* Reads replies until the server has closed or talked nonsense. */
static Talk take_replies(SmtpConnection *connection)
{
    Talk talk;
    for (;;) {
        auto reply = connection->read_reply(SmtpDeadline::max());
        if (!reply) {
            talk.garbage = reply.error().code == EPROTO;
            demand(talk.garbage || reply.error().code == ECONNRESET);
            return talk;
        }
        talk.replies.push_back(std::move(*reply));
    }
}

static Talk read_from_socket(std::string_view text, unsigned seed)
{
    static const SmtpInterrupt interrupt;
    int ends[2];
    /* every portion is read for itself */
    demand(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
    const Fd server(ends[0]);
    SmtpConnection connection(Fd(ends[1]), interrupt);
    std::mt19937 random(seed);
    for (int portions = 0; !text.empty(); ++portions) {
        const size_t most = portions < 100 ? 1 + random() % 40 : 8000;
        const std::string_view portion = text.substr(0, 1 + random() % most);
        demand(send(server.get(), portion.data(), portion.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0);
        text.remove_prefix(portion.size());
    }
    demand(shutdown(server.get(), SHUT_WR) == 0);
    return take_replies(&connection);
}

static void check_reply(const SmtpReply &reply)
{
    demand(reply.code >= 200 && reply.code < 600);
    demand(!reply.lines.empty() && reply.lines.size() <= MOST_REPLY_LINES);
    const std::string text = reply.text();
    demand(text.size() <= 512);
    for (const char c : text)
        demand(c >= ' ' && c <= '~');
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size > INPUT_MAX) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 2, size - 2);
    const Talk expected = read_plainly(text);
    const Talk talk = read_from_socket(text, data[0] * 256u + data[1]);
    demand(talk.garbage == expected.garbage);
    demand(talk.replies.size() == expected.replies.size());
    for (size_t i = 0; i < talk.replies.size(); ++i) {
        demand(talk.replies[i].code == expected.replies[i].code);
        demand(talk.replies[i].lines == expected.replies[i].lines);
        check_reply(talk.replies[i]);
    }
    return 0;
}
