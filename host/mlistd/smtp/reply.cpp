#include "host/mlistd/smtp/reply.h"

#include "host/base/text.h"

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/* The three digits at the start, 0 when there are none. */
static int code_of(std::string_view line)
{
    if (line.size() < 3 || line[0] < '2' || line[0] > '5' || !is_digit(line[1]) ||
        !is_digit(line[2]))
        return 0;
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

ReplyReader::State ReplyReader::add_line(std::string_view line)
{
    const int code = code_of(line);
    const char separator = line.size() > 3 ? line[3] : ' ';
    if (code == 0 || (separator != ' ' && separator != '-')) return State::garbage;
    if (!reply_.lines.empty() && code != reply_.code) return State::garbage;
    if (reply_.lines.size() == MOST_REPLY_LINES) return State::garbage;
    reply_.code = code;
    reply_.lines.emplace_back(line.substr(std::min<size_t>(4, line.size())));
    return separator == '-' ? State::more : State::complete;
}

std::string SmtpReply::text() const
{
    constexpr size_t ENOUGH = 512;
    std::string text = std::to_string(code);
    for (const std::string &line : lines) {
        text += ' ' + one_line(line);
        if (text.size() > ENOUGH) break;
    }
    if (text.size() > ENOUGH) text.resize(ENOUGH);
    return text;
}
