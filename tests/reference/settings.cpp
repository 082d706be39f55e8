#include "tests/reference/settings.h"

#include <string.h>

#include <map>
#include <vector>

#include "tests/reference/line_reader.h"

namespace reference
{

static char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

static std::string lower(std::string text)
{
    for (char &c : text)
        c = lower(c);
    return text;
}

int number_of(const std::string &text)
{
    size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at == std::string::npos) return 0;
    const bool negative = text[at] == '-';
    if (text[at] == '-' || text[at] == '+') ++at;
    long long value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        if (value < 100000000000) value = value * 10 + (text[at] - '0');
    if (negative) return value > 2147483648LL ? INT32_MIN : static_cast<int>(-value);
    return value > 2147483647LL ? INT32_MAX : static_cast<int>(value);
}

/* Takes the next token off a text, as strtok() does. */
static bool take_token(std::string *text, char separator, std::string *token_out)
{
    const size_t begin = text->find_first_not_of(separator);
    if (begin == std::string::npos) {
        text->clear();
        return false;
    }
    const size_t end = text->find(separator, begin);
    *token_out = text->substr(begin, end == std::string::npos ? end : end - begin);
    text->erase(0, end == std::string::npos ? end : end + 1);
    return true;
}

/* What the file says, by key; the words of "cmd=" by their numbers. */
struct Values {
    std::map<std::string, std::string> texts;
    std::string commands[10];
    const std::string &operator[](const std::string &key) { return texts[key]; }
};

/* Words beyond the tenth are left in rest, which is read on as a line. */
static void take_commands(Values *values, std::string *rest)
{
    std::string word;
    for (std::string &command : values->commands) {
        if (!take_token(rest, ' ', &word)) return;
        command = word.substr(0, 15);
    }
}

static void take_piece(Values *values, std::string piece, std::string *rest)
{
    static const std::vector<std::string> keys = {
        "cmd=",        "subject=", "subjectf=",   "vstrml=",     "vstrc=",
        "precedence=", "journal=", "time=",       "replyedit=",  "replyto=",
        "defstatus=",  "confirm=", "maxsummary=", "maxmsgsize=", "webpasswd="};
    static const std::string words = "subject= vstrml= vstrc= precedence= replyedit=";
    piece = piece.substr(0, piece.find_first_of("\r\n"));
    for (const std::string &key : keys) {
        if (piece.find(key) == std::string::npos) continue;
        const std::string value = piece.substr(key.size());
        if (key == "cmd=") {
            *rest = value;
            take_commands(values, rest);
            return;
        }
        const bool word = (" " + words).find(" " + key) != std::string::npos;
        values->texts[key] = word ? value.substr(0, 15) : value;
        return;
    }
}

static Values read_values(const std::string &contents)
{
    Values values;
    LineReader lines(contents);
    while (auto line = lines.next(4096)) {
        std::string rest = *line, piece;
        while (take_token(&rest, '\n', &piece))
            take_piece(&values, piece, &rest);
    }
    return values;
}

template <class Number>
static void choose(Number *setting, const std::map<std::string, int> &words,
                   const std::string &word)
{
    const auto found = words.find(lower(word));
    if (found != words.end()) *setting = static_cast<Number>(found->second);
}

static int minute_of_day(const std::string &text, int fallback)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return fallback;
    long long minutes = number_of(text) * 60LL + number_of(text.substr(colon + 1));
    minutes %= 1440;
    return static_cast<int>(minutes < 0 ? minutes + 1440 : minutes);
}

static void put_text(char *setting, size_t size, const std::string &text)
{
    if (text.size() < size) strcpy(setting, text.c_str());
}

ListSettings read_settings(const std::string &contents, const ListSettings &defaults)
{
    Values values = read_values(contents);
    ListSettings settings = defaults;
    for (int i = 0; i < 10; ++i) {
        const std::string word = lower(values.commands[i]);
        if (word == "on") settings.command_mask |= 1u << i;
        if (word == "off") settings.command_mask &= ~(1u << i);
    }
    choose(&settings.subject_mode, {{"edit", 0}, {"noedit", 1}}, values["subject="]);
    choose(&settings.precedence, {{"junk", 0}, {"bulk", 1}, {"list", 2}}, values["precedence="]);
    choose(&settings.nonmembers_may_post, {{"grant", 1}, {"deny", 0}}, values["vstrml="]);
    choose(&settings.nonmember_command_mask, {{"grant", 2047}, {"deny", 1024}, {"part", 1847}},
           values["vstrc="]);
    const std::string mode = lower(values["replyedit="]);
    if (mode.starts_with("add")) settings.reply_to_mode = 0;
    if (mode.starts_with("change")) settings.reply_to_mode = 1;
    if (mode.starts_with("no")) settings.reply_to_mode = 2;
    const int status = number_of(values["defstatus="]);
    if (status >= 1 && status <= 3) settings.default_status = status;
    settings.journal = number_of(values["journal="]);
    settings.summary_limit = number_of(values["maxsummary="]);
    settings.confirmation = number_of(values["confirm="]);
    settings.size_limit = number_of(values["maxmsgsize="]);
    settings.digest_time = minute_of_day(values["time="], settings.digest_time);
    put_text(settings.subject_format, sizeof(settings.subject_format), values["subjectf="]);
    put_text(settings.reply_to, sizeof(settings.reply_to), values["replyto="]);
    put_text(settings.web_password, sizeof(settings.web_password), values["webpasswd="]);
    return settings;
}

} // namespace reference
