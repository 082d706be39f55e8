/* How a queued message leaves: to a relay (smtp/), into Maildirs (outbox/). */
#ifndef HOST_MLISTD_SPOOL_TRANSPORT_H
#define HOST_MLISTD_SPOOL_TRANSPORT_H

#include <stdint.h>
#include <sys/types.h>
#include <time.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

/* A message as it goes out: some header lines of ours, then a piece of a file. */
struct OutboundMessage {
    std::string_view id;     /* of the submission; the same at every try */
    std::string_view prefix; /* header lines to put in front, CR LF, may be empty */
    int fd;                  /* the message is size bytes at offset, read with pread(2) only */
    off_t offset;
    off_t size;
    time_t created;
};

/* Walks a message, the prefix first; the visitor returns false to end the walk.  0 at the end or
   when the visitor ended it, -1 with errno (ENODATA: the file is shorter than it should be). */
[[nodiscard]] int visit_message(const OutboundMessage &message,
                                const std::function<bool(std::string_view piece)> &visitor);

/* What became of one recipient. */
struct Answer {
    enum class Kind : uint8_t {
        later, /* try again; the text says why */
        done,  /* somebody else is responsible now */
        never, /* refused for good; the text says why */
    };
    Kind kind = Kind::later;
    std::string text;
};

/* One worker's way out; used by one thread at a time. */
class Transport
{
  public:
    virtual ~Transport() = default;

    /* Delivers to the recipients and fills one answer each.  False when the way out itself is
       shut (no connection, no disk): the same would happen to any other message now. */
    [[nodiscard]] virtual bool deliver(const OutboundMessage &message, const std::string &sender,
                                       std::span<const std::string_view> recipients,
                                       std::span<Answer> answers) = 0;

    /* How many recipients deliver() takes best at a time. */
    virtual size_t batch_size() const { return 500; }

    /* The worker has had nothing to do for a while: let go of connections. */
    virtual void idle() {}

    /* Called once, from another thread: deliver() is to come back soon, with "later" for what it
       has not handed over, without risking that a message is sent twice. */
    virtual void interrupt() {}
};

/* Makes a transport for each worker. */
using TransportFactory = std::function<std::unique_ptr<Transport>()>;

#endif
