#include "host/mlistd/smtp/client.h"

#include <errno.h>

#include <algorithm>
#include <utility>

#include "host/base/text.h"
#include "host/mlistd/outbound/lines.h"

using Clock = std::chrono::steady_clock;

struct SmtpTransport::Session {
    SmtpConnection connection;
    unsigned messages = 0;
    bool pipelining = false, eight_bit = false, utf8 = false;
    std::optional<int64_t> size = std::nullopt; /* announced; 0: no limit told */
};

/* Recipients are known by their place in the call. */
struct SmtpTransport::Transaction {
    const OutboundMessage &message;
    const std::string &sender;
    std::span<const std::string_view> recipients;
    std::span<Answer> answers;
    std::vector<size_t> pending = {};  /* named in this transaction */
    std::vector<size_t> accepted = {}; /* by the server, as recipients */
    std::vector<size_t> again = {};    /* more than the server takes at once */
    bool heard = false;                /* the server has answered something */
};

SmtpTransport::SmtpTransport(SmtpSettings settings) : settings_(std::move(settings)) {}

SmtpTransport::~SmtpTransport()
{
    leave();
}

void SmtpTransport::idle()
{
    leave();
}

void SmtpTransport::interrupt()
{
    interrupt_.ring();
}

void SmtpTransport::leave()
{
    if (!session_) return;
    /* polite, not awaited */
    (void)static_cast<bool>(session_->connection.send("QUIT\r\n", Clock::now()));
    session_.reset();
}

/* ---- beginning a session ---- */

Result<SmtpReply> SmtpTransport::command(std::string_view line)
{
    const SmtpDeadline deadline = Clock::now() + settings_.command_timeout;
    if (auto result = session_->connection.send(line, deadline); !result) return result.error();
    return session_->connection.read_reply(deadline);
}

static void note_extension(std::string_view line, auto &session)
{
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, blank);
    if (same_nocase(word, "PIPELINING"))
        session.pipelining = true;
    else if (same_nocase(word, "8BITMIME"))
        session.eight_bit = true;
    else if (same_nocase(word, "SMTPUTF8"))
        session.utf8 = true;
    else if (same_nocase(word, "SIZE")) {
        session.size = 0;
        if (const auto size = parse_number(trim(line.substr(blank)))) session.size = size;
    }
}

static Error refused(const char *step, const SmtpReply &reply)
{
    return Error{std::string(step) + " refused: " + reply.text(), EHOSTUNREACH};
}

Result<void> SmtpTransport::greet(Session &session)
{
    auto greeting = session.connection.read_reply(Clock::now() + settings_.command_timeout);
    if (!greeting) return greeting.error();
    if (greeting->kind() != 2) return refused("connection", *greeting);
    auto hello = command("EHLO " + settings_.hostname + "\r\n");
    if (!hello) return hello.error();
    if (hello->kind() == 2) {
        for (size_t i = 1; i < hello->lines.size(); i++)
            note_extension(hello->lines[i], session);
        return {};
    }
    hello = command("HELO " + settings_.hostname + "\r\n");
    if (!hello) return hello.error();
    if (hello->kind() != 2) return refused("HELO", *hello);
    return {};
}

/* A session that is ready for a transaction: the one there is, or a new one. */
Result<void> SmtpTransport::ensure_session()
{
    if (session_ &&
        (session_->connection.stale() || session_->messages >= settings_.messages_a_connection))
        leave();
    if (session_) return {};
    auto connection = SmtpConnection::open(settings_.server,
                                           Clock::now() + settings_.connect_timeout, interrupt_);
    if (!connection) return connection.error();
    session_ = std::make_unique<Session>(Session{std::move(*connection)});
    auto result = greet(*session_);
    if (!result) session_.reset();
    return result;
}

/* ---- answers ---- */

static Answer answer_of(const SmtpReply &reply)
{
    if (reply.kind() == 2) return {Answer::Kind::done, ""};
    return {reply.kind() == 5 ? Answer::Kind::never : Answer::Kind::later, reply.text()};
}

static void answer_each(std::span<Answer> answers, const std::vector<size_t> &which,
                        const Answer &answer)
{
    for (const size_t i : which)
        answers[i] = answer;
}

/* For those that have no answer yet. */
static void answer_rest(std::span<Answer> answers, const std::vector<size_t> &which,
                        const Error &error)
{
    for (const size_t i : which)
        if (answers[i].kind == Answer::Kind::later && answers[i].text.empty())
            answers[i].text = error.text;
}

static Error closing(const SmtpReply &reply)
{
    return Error{reply.text(), ECONNRESET};
}

static Error unexpected(const SmtpReply &reply)
{
    return Error{"unexpected reply: " + reply.text(), EPROTO};
}

/* ---- one transaction ---- */

static bool is_ascii(std::string_view text)
{
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

/* Answers those to whom this server cannot take the message anyway. */
bool SmtpTransport::sort_out(Transaction &transaction)
{
    const int64_t size =
        transaction.message.size + static_cast<int64_t>(transaction.message.prefix.size());
    if (session_->size.value_or(0) > 0 && size > *session_->size)
        answer_each(transaction.answers, std::exchange(transaction.pending, {}),
                    {Answer::Kind::never, "552 5.3.4 the message has " + std::to_string(size) +
                                              " bytes, the relay takes " +
                                              std::to_string(*session_->size)});
    if (!session_->utf8)
        std::erase_if(transaction.pending, [&](size_t i) {
            if (is_ascii(transaction.recipients[i])) return false;
            transaction.answers[i] = {
                Answer::Kind::never,
                "553 5.6.7 the relay takes no address with characters beyond ASCII"};
            return true;
        });
    return !transaction.pending.empty();
}

static bool has_eight_bit(const OutboundMessage &message)
{
    bool found = false;
    /* a failing read shows when the message is sent */
    (void)visit_message(message, [&found](std::string_view piece) {
        unsigned char all = 0;
        for (const char c : piece)
            all |= static_cast<unsigned char>(c);
        found = (all & 0x80) != 0;
        return !found;
    });
    return found;
}

std::string SmtpTransport::mail_command(const Transaction &transaction) const
{
    std::string line = "MAIL FROM:<" + transaction.sender + ">";
    if (session_->size)
        line += " SIZE=" + std::to_string(transaction.message.size +
                                          static_cast<int64_t>(transaction.message.prefix.size()));
    if (session_->eight_bit && eight_bit_) line += " BODY=8BITMIME";
    const bool ascii = is_ascii(transaction.sender) &&
                       std::all_of(transaction.pending.begin(), transaction.pending.end(),
                                   [&](size_t i) { return is_ascii(transaction.recipients[i]); });
    if (session_->utf8 && !ascii) line += " SMTPUTF8";
    return line + "\r\n";
}

static std::string rcpt_command(std::string_view recipient)
{
    return "RCPT TO:<" + std::string(recipient) + ">\r\n";
}

/* Where a recipient belongs after the server's answer about him. */
static Result<void> note_recipient(auto &transaction, size_t i, const SmtpReply &reply)
{
    if (reply.code == 421) return closing(reply);
    if (reply.kind() == 2) {
        transaction.accepted.push_back(i);
        return {};
    }
    if (reply.kind() == 3) return unexpected(reply);
    transaction.answers[i] = answer_of(reply);
    /* "too many recipients" (552 in an older form), not this one's fault: next time round */
    if ((reply.code == 452 || reply.code == 552) && !transaction.accepted.empty()) {
        transaction.answers[i].kind = Answer::Kind::later;
        transaction.again.push_back(i);
    }
    return {};
}

/* The answer to MAIL, when it is not yes, is everybody's answer. */
static Result<bool> sender_accepted(auto &transaction, const SmtpReply &reply)
{
    if (reply.code == 421) return closing(reply);
    if (reply.kind() == 2) return true;
    if (reply.kind() == 3) return unexpected(reply);
    answer_each(transaction.answers, transaction.pending, answer_of(reply));
    return false;
}

/* MAIL and every RCPT in one row, then their answers. */
Result<void> SmtpTransport::name_in_a_row(Transaction &transaction)
{
    std::string row = mail_command(transaction);
    for (const size_t i : transaction.pending)
        row += rcpt_command(transaction.recipients[i]);
    const SmtpDeadline deadline = Clock::now() + settings_.command_timeout;
    if (auto result = session_->connection.send(row, deadline); !result) return result;
    const auto mail = session_->connection.read_reply(deadline);
    if (!mail) return mail.error();
    transaction.heard = true;
    const auto go_on = sender_accepted(transaction, *mail);
    if (!go_on) return go_on.error();
    for (const size_t i : transaction.pending) {
        const auto reply = session_->connection.read_reply(deadline);
        if (!reply) return reply.error();
        if (!*go_on) continue;
        if (auto result = note_recipient(transaction, i, *reply); !result) return result;
    }
    return {};
}

/* One command, one answer. */
Result<void> SmtpTransport::name_in_turn(Transaction &transaction)
{
    const auto mail = command(mail_command(transaction));
    if (!mail) return mail.error();
    transaction.heard = true;
    const auto go_on = sender_accepted(transaction, *mail);
    if (!go_on) return go_on.error();
    if (!*go_on) return {};
    for (const size_t i : transaction.pending) {
        const auto reply = command(rcpt_command(transaction.recipients[i]));
        if (!reply) return reply.error();
        if (auto result = note_recipient(transaction, i, *reply); !result) return result;
    }
    return {};
}

/* The message itself, after the server has said 354. */
Result<void> SmtpTransport::send_message(Transaction &transaction)
{
    SmtpConnection &connection = session_->connection;
    WireLines lines;
    std::string out;
    Result<void> sent;
    const auto send_piece = [&](std::string_view piece) {
        lines.feed(piece, out);
        sent = connection.send(out, Clock::now() + settings_.data_timeout);
        out.clear();
        return static_cast<bool>(sent);
    };
    /* without its end the server throws away what it got */
    if (visit_message(transaction.message, send_piece) < 0)
        return system_error("reading the queued message");
    if (!sent) return sent;
    lines.finish(out);
    return connection.send(out + ".\r\n", Clock::now() + settings_.data_timeout);
}

/* DATA, the message, the answer that counts. */
Result<void> SmtpTransport::hand_over(Transaction &transaction)
{
    const auto go_ahead = command("DATA\r\n");
    if (!go_ahead) return go_ahead.error();
    if (go_ahead->code == 421) return closing(*go_ahead);
    if (go_ahead->kind() == 2) return unexpected(*go_ahead);
    if (go_ahead->kind() != 3) {
        answer_each(transaction.answers, transaction.accepted, answer_of(*go_ahead));
        return reset();
    }
    auto sent = send_message(transaction);
    /* a server that has had enough says why before it closes */
    const auto reply = session_->connection.read_reply(
        sent ? Clock::now() + settings_.end_timeout : Clock::now(), static_cast<bool>(sent));
    if (!sent && (!reply || reply->kind() < 4)) return sent;
    if (!reply) return reply.error();
    if (reply->kind() == 3) return unexpected(*reply);
    answer_each(transaction.answers, transaction.accepted, answer_of(*reply));
    session_->messages++;
    return sent;
}

/* Leaves a transaction that came to nothing. */
Result<void> SmtpTransport::reset()
{
    const auto reply = command("RSET\r\n");
    if (!reply) return reply.error();
    if (reply->kind() != 2) return unexpected(*reply);
    session_->messages++;
    return {};
}

Result<void> SmtpTransport::run(Transaction &transaction)
{
    transaction.accepted.clear();
    transaction.again.clear();
    transaction.heard = false;
    for (const size_t i : transaction.pending)
        transaction.answers[i] = Answer{};
    auto named = session_->pipelining ? name_in_a_row(transaction) : name_in_turn(transaction);
    if (!named) return named;
    return transaction.accepted.empty() ? reset() : hand_over(transaction);
}

bool SmtpTransport::deliver(const OutboundMessage &message, const std::string &sender,
                            std::span<const std::string_view> recipients, std::span<Answer> answers)
{
    Transaction transaction{message, sender, recipients, answers};
    for (size_t i = 0; i < recipients.size(); i++) {
        answers[i] = Answer{};
        transaction.pending.push_back(i);
    }
    if (scanned_id_ != message.id) {
        eight_bit_ = has_eight_bit(message);
        scanned_id_ = message.id;
    }
    while (!transaction.pending.empty()) {
        if (const auto ready = ensure_session(); !ready) {
            answer_rest(answers, transaction.pending, ready.error());
            return false;
        }
        if (!sort_out(transaction)) break;
        const bool used_before = session_->messages > 0;
        if (const auto result = run(transaction); !result) {
            session_.reset();
            /* a server may close between two messages: then a new connection, which is not
               tried twice */
            if (used_before && !transaction.heard) continue;
            answer_rest(answers, transaction.pending, result.error());
            return result.error().code != ECANCELED;
        }
        transaction.pending = std::exchange(transaction.again, {});
    }
    return true;
}
