/* One LMTP connection (RFC 2033, with PIPELINING, 8BITMIME, SIZE and ENHANCEDSTATUSCODES). */
#ifndef HOST_MLISTD_LMTP_SESSION_H
#define HOST_MLISTD_LMTP_SESSION_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/names.h"
#include "host/mlistd/lmtp/message.h"
#include "host/mlistd/lmtp/reply.h"
#include "host/mlistd/net/stream.h"

/* A mail that has been received whole. */
struct IncomingMail {
    const std::string &file;
    const std::string &sender; /* envelope, "" for a bounce */
    const HeaderFacts &facts;
    int64_t size;
};

/* Who takes the mail.  Called on the session's thread. */
class LmtpHandler
{
  public:
    virtual ~LmtpHandler() = default;

    /* Before the data: 250, or why there is no use in sending it. */
    virtual Reply check_recipient(const ListAddress &recipient, const std::string &sender) = 0;

    /* The final answer for one recipient: after a 2xx he has it, whatever happens next. */
    virtual Reply deliver(const ListAddress &recipient, const IncomingMail &mail) = 0;
};

struct LmtpConfig {
    std::string hostname{};
    std::vector<std::string> control_suffixes{};
    std::string in_directory{}; /* mail being received */
    size_t recipients = 100;
    int64_t message_size = 50 * 1024 * 1024;
    int64_t timeout_ms = 300'000;
    int64_t data_timeout_ms = 1'800'000;
};

class LmtpSession
{
  public:
    /* A command: its word, what carries it out, what it must look like. */
    struct Verb {
        const char *word;
        void (LmtpSession::*handler)(std::string_view argument);
        enum class Argument : uint8_t { none, any, needed } argument;
        bool after_lhlo;
        const char *syntax;
    };
    static std::span<const Verb> verbs();

    LmtpSession(Stream stream, const LmtpConfig &config, LmtpHandler &handler, std::string peer)
        : stream_(std::move(stream)), config_(config), handler_(handler), peer_(std::move(peer))
    {
    }

    /* Serves until the peer leaves, a deadline passes, or the daemon ends. */
    void run();

  private:
    struct Recipient {
        ListAddress address;
        std::optional<Reply> answer;
    };

    /* -- session.cpp -- */
    bool next_command(std::string &line);
    void take_command(std::string_view line);
    void answer(const Reply &reply) { out_ += reply.line(); }
    void refuse(const Reply &reply);
    bool flush();
    void close_with(const Reply &reply);
    void reset();

    /* -- verbs.cpp -- */
    void do_lhlo(std::string_view argument);
    void do_mail(std::string_view argument);
    void do_rcpt(std::string_view argument);
    void do_data(std::string_view argument);
    void do_rset(std::string_view argument);
    void do_noop(std::string_view argument);
    void do_vrfy(std::string_view argument);
    void do_help(std::string_view argument);
    void do_quit(std::string_view argument);
    void do_helo(std::string_view argument);
    std::optional<Reply> bad_mail_parameter(std::string_view parameter) const;

    /* -- transfer.cpp -- */
    bool receive(MessageReceiver &receiver);
    void deliver_to_all(const MessageReceiver &receiver);
    Reply answer_for(size_t index, const IncomingMail &mail);

    Stream stream_;
    const LmtpConfig &config_;
    LmtpHandler &handler_;
    std::string peer_;
    std::string out_;
    int errors_ = 0;
    bool open_ = true;
    bool greeted_ = false;
    std::optional<std::string> sender_; /* set: a transaction is open */
    std::vector<Recipient> recipients_;
};

#endif
