/* The verbs of LMTP. */
#include <algorithm>

#include "host/base/text.h"
#include "host/mlistd/hostlog.h"
#include "host/mlistd/lmtp/session.h"

using Session = LmtpSession;
using Argument = LmtpSession::Verb::Argument;

std::span<const LmtpSession::Verb> LmtpSession::verbs()
{
    static constexpr Verb rows[] = {
        {"LHLO", &Session::do_lhlo, Argument::needed, false, "LHLO HOST"},
        {"MAIL", &Session::do_mail, Argument::needed, true,
         "MAIL FROM:<ADDRESS> [SIZE=N] [BODY=TYPE]"},
        {"RCPT", &Session::do_rcpt, Argument::needed, true, "RCPT TO:<ADDRESS>"},
        {"DATA", &Session::do_data, Argument::none, true, "DATA"},
        {"RSET", &Session::do_rset, Argument::none, false, "RSET"},
        {"NOOP", &Session::do_noop, Argument::any, false, "NOOP [TEXT]"},
        {"VRFY", &Session::do_vrfy, Argument::any, false, "VRFY TEXT"},
        {"HELP", &Session::do_help, Argument::any, false, "HELP"},
        {"QUIT", &Session::do_quit, Argument::none, false, "QUIT"},
        {"HELO", &Session::do_helo, Argument::any, false, "LHLO HOST"},
        {"EHLO", &Session::do_helo, Argument::any, false, "LHLO HOST"},
    };
    return rows;
}

namespace
{

/* A path and what follows it: "<ADDRESS> PARAMETERS". */
struct Path {
    std::string address; /* without the brackets and without a source route */
    std::string_view parameters;
};

/* Where the closing bracket stands; one inside quotes does not count. */
size_t closing_bracket(std::string_view text)
{
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && quoted) {
            ++i;
        } else if (text[i] == '"') {
            quoted = !quoted;
        } else if (text[i] == '>' && !quoted) {
            return i;
        }
    }
    return std::string_view::npos;
}

std::optional<Path> parse_path(std::string_view argument, std::string_view keyword)
{
    if (!begins_nocase(argument, keyword)) return std::nullopt;
    argument = trim(argument.substr(keyword.size()));
    if (argument.empty() || argument.front() != '<') return std::nullopt;
    argument.remove_prefix(1);
    const size_t end = closing_bracket(argument);
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view address = argument.substr(0, end);
    const std::string_view rest = argument.substr(end + 1);
    if (!rest.empty() && rest.front() != ' ') return std::nullopt;
    if (address.starts_with('@')) { /* a source route (RFC 5321, appendix C) is ignored */
        const size_t colon = address.find(':');
        if (colon == std::string_view::npos) return std::nullopt;
        address.remove_prefix(colon + 1);
    }
    return Path{std::string(address), trim(rest)};
}

/* The empty sender, or something that an answer can be sent to. */
bool plausible_sender(std::string_view sender)
{
    if (sender.empty()) return true;
    const size_t at = sender.rfind('@');
    return sender.size() <= 320 && at != std::string_view::npos && at > 0 &&
           at + 1 < sender.size() && std::all_of(sender.begin(), sender.end(), [](char c) {
               return c > ' ' && c < 0x7f && c != '<' && c != '>';
           });
}

} // namespace

void LmtpSession::do_lhlo(std::string_view)
{
    reset();
    greeted_ = true;
    const std::string lines[] = {config_.hostname, "PIPELINING", "8BITMIME", "ENHANCEDSTATUSCODES",
                                 "SIZE " + std::to_string(config_.message_size)};
    for (size_t i = 0; i < std::size(lines); ++i)
        out_ += (i + 1 < std::size(lines) ? "250-" : "250 ") + lines[i] + "\r\n";
}

std::optional<Reply> LmtpSession::bad_mail_parameter(std::string_view parameter) const
{
    if (parameter.empty() || same_nocase(parameter, "BODY=7BIT") ||
        same_nocase(parameter, "BODY=8BITMIME"))
        return std::nullopt;
    if (!begins_nocase(parameter, "SIZE="))
        return Reply{555, "5.5.4", "unknown parameter " + one_line(parameter).substr(0, 64)};
    const auto size = parse_number(parameter.substr(5));
    if (!size) return Reply{501, "5.5.4", "SIZE must be a number"};
    if (*size <= config_.message_size) return std::nullopt;
    return Reply{552, "5.3.4",
                 "the message is larger than " + std::to_string(config_.message_size) + " bytes"};
}

void LmtpSession::do_mail(std::string_view argument)
{
    if (sender_) return refuse({503, "5.5.1", "a mail has been begun already"});
    const auto path = parse_path(argument, "FROM:");
    if (!path) return refuse({501, "5.5.4", "the syntax is MAIL FROM:<ADDRESS>"});
    for (const std::string_view parameter : split(path->parameters, ' '))
        if (const auto bad = bad_mail_parameter(parameter)) return refuse(*bad);
    if (!plausible_sender(path->address)) return refuse({501, "5.1.7", "bad sender address"});
    sender_ = path->address;
    answer({250, "2.1.0", "sender ok"});
}

void LmtpSession::do_rcpt(std::string_view argument)
{
    if (!sender_) return refuse({503, "5.5.1", "MAIL comes first"});
    const auto path = parse_path(argument, "TO:");
    if (!path) return refuse({501, "5.5.4", "the syntax is RCPT TO:<ADDRESS>"});
    if (!path->parameters.empty()) return refuse({555, "5.5.4", "unknown parameter"});
    if (recipients_.size() >= config_.recipients)
        return answer({452, "4.5.3", "too many recipients"});
    const auto address = parse_list_address(path->address, config_.control_suffixes);
    const Reply reply = address ? handler_.check_recipient(*address, *sender_)
                                : Reply{550, "5.1.1", "no such list"};
    if (reply.accepted()) {
        recipients_.push_back({*address, std::nullopt});
    } else {
        log_notice(LOG_REFUSED, "lmtp: " + peer_ + " from=<" + *sender_ + "> to=<" + path->address +
                                    "> refused: " + reply.text);
    }
    answer(reply);
}

void LmtpSession::do_rset(std::string_view)
{
    reset();
    answer({250, "2.0.0", "forgotten"});
}

void LmtpSession::do_noop(std::string_view)
{
    answer({250, "2.0.0", "ok"});
}

void LmtpSession::do_vrfy(std::string_view)
{
    answer({252, "2.5.0", "send some mail, it will be seen"});
}

void LmtpSession::do_help(std::string_view)
{
    for (const Verb &verb : verbs())
        if (verb.handler != &LmtpSession::do_helo)
            out_ += std::string("214-") + verb.syntax + "\r\n";
    out_ += "214 end of help\r\n";
}

void LmtpSession::do_quit(std::string_view)
{
    close_with({221, "2.0.0", "bye"});
}

void LmtpSession::do_helo(std::string_view)
{
    refuse({500, "5.5.1", "this is LMTP, say LHLO"});
}
