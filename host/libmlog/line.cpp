#include "host/libmlog/line.h"

#include <stdio.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>

static void append_hex(std::string &out, unsigned char byte)
{
    static const char digits[] = "0123456789abcdef";
    out += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
}

/* A terminal that reads UTF-8 obeys U+0080 to U+009F as it obeys ESC sequences. */
static bool is_utf8_control(std::string_view text, size_t at)
{
    return static_cast<unsigned char>(text[at]) == 0xc2 && at + 1 < text.size() &&
           static_cast<unsigned char>(text[at + 1]) >= 0x80 &&
           static_cast<unsigned char>(text[at + 1]) < 0xa0;
}

void append_escaped(std::string &out, std::string_view text)
{
    out.reserve(out.size() + text.size());
    for (size_t i = 0; i < text.size(); i++) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n')
            out += "\\n";
        else if (byte == '\r')
            out += "\\r";
        else if (byte == '\t')
            out += "\\t";
        else if (byte < 0x20 || byte == 0x7f)
            append_hex(out, byte);
        else if (is_utf8_control(text, i)) {
            append_hex(out, byte);
            append_hex(out, static_cast<unsigned char>(text[++i]));
        } else
            out += static_cast<char>(byte);
    }
}

std::string plain_line(const LogEntry &entry)
{
    std::string line = entry.log;
    line += ' ';
    line += std::to_string(entry.level);
    line += ' ';
    line += std::to_string(entry.msgno);
    line += ' ';
    append_escaped(line, entry.text);
    return line;
}

std::string dated_line(const LogEntry &entry)
{
    struct timeval now;
    struct tm local;
    gettimeofday(&now, nullptr);
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    const size_t day = strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%S", &local);
    char rest[32];
    snprintf(rest, sizeof(rest), ".%03d", static_cast<int>(now.tv_usec / 1000));
    std::string line(stamp, day);
    line += rest;
    line.append(rest, strftime(rest, sizeof(rest), "%z ", &local));
    line += plain_line(entry);
    line += '\n';
    return line;
}

/* Where a name ends, and how much of a text that never ends it is looked at. */
static std::string_view name_at(std::string_view text, size_t start)
{
    constexpr size_t LONGEST_NAME = 256;
    const std::string_view rest = text.substr(start, LONGEST_NAME);
    size_t length = 0;
    while (length < rest.size() && static_cast<unsigned char>(rest[length]) > ' ' &&
           rest[length] != ']' && rest[length] != 0x7f)
        length++;
    return rest.substr(0, length);
}

std::string_view list_of(std::string_view text)
{
    static constexpr std::string_view in_words = "mlname=", in_brackets = "[ml=";
    const size_t words = text.find(in_words);
    if (words != text.npos && (words == 0 || text[words - 1] == ' '))
        return name_at(text, words + in_words.size());
    const size_t brackets = text.find(in_brackets);
    if (brackets != text.npos) return name_at(text, brackets + in_brackets.size());
    return {};
}

int priority_of(int level)
{
    if (level <= 2) return LOG_ERR;
    if (level <= 4) return LOG_WARNING;
    if (level <= 5) return LOG_NOTICE;
    if (level <= 10) return LOG_INFO;
    return LOG_DEBUG;
}
