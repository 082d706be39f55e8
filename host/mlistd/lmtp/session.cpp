/* The loop of a session: a line, its verb, the answers. */
#include "host/mlistd/lmtp/session.h"

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"

/* Addresses of 320 bytes with their parameters fit well; anything longer is not a command. */
static constexpr size_t COMMAND_MAX = 2048;

/* A peer that gets so many commands wrong is no mail server. */
static constexpr int ERRORS_MAX = 20;

bool LmtpSession::flush()
{
    if (open_ && !out_.empty()) open_ = stream_.write_all(out_, steady_ms() + config_.timeout_ms);
    out_.clear();
    return open_;
}

void LmtpSession::close_with(const Reply &reply)
{
    answer(reply);
    flush();
    open_ = false;
}

void LmtpSession::refuse(const Reply &reply)
{
    answer(reply);
    if (++errors_ >= ERRORS_MAX) close_with({421, "4.7.0", "too many errors, closing"});
}

void LmtpSession::reset()
{
    sender_.reset();
    recipients_.clear();
}

/* False when there is none any more.  Answers go out only where the next command has not arrived
   yet: pipelined commands get theirs together. */
bool LmtpSession::next_command(std::string &line)
{
    while (open_) {
        if (stream_.buffered().find('\n') == std::string_view::npos && !flush()) return false;
        switch (stream_.read_line(line, COMMAND_MAX, steady_ms() + config_.timeout_ms)) {
        case Stream::Got::data:
            return true;
        case Stream::Got::too_long:
            refuse({500, "5.5.2", "the line is too long"});
            break;
        case Stream::Got::timeout:
            close_with({421, "4.4.2", "timeout, closing"});
            break;
        case Stream::Got::stopped:
            close_with({421, "4.3.2", "shutting down"});
            break;
        default:
            open_ = false;
        }
    }
    return false;
}

void LmtpSession::take_command(std::string_view line)
{
    const size_t end = line.find(' ');
    const std::string_view word = line.substr(0, end);
    const std::string_view argument =
        end == std::string_view::npos ? std::string_view() : trim(line.substr(end));
    for (const Verb &verb : verbs()) {
        if (!same_nocase(word, verb.word)) continue;
        const bool fits = verb.argument == Verb::Argument::any ||
                          argument.empty() == (verb.argument == Verb::Argument::none);
        if (!fits) return refuse({501, "5.5.4", std::string("the syntax is ") + verb.syntax});
        if (verb.after_lhlo && !greeted_) return refuse({503, "5.5.1", "say LHLO first"});
        return (this->*verb.handler)(argument);
    }
    refuse({500, "5.5.2", "unknown command"});
}

void LmtpSession::run()
{
    log_trace(LOG_SESSION, "lmtp: " + peer_ + " connected");
    answer({220, "", config_.hostname + " LMTP ready"});
    std::string line;
    while (next_command(line))
        take_command(line);
    flush();
    log_trace(LOG_SESSION, "lmtp: " + peer_ + " left");
}
