#include "host/base/text.h"

#include <charconv>

namespace
{

struct Unit {
    char letter;
    int64_t factor;
};

constexpr Unit size_units[] = {{'k', 1024}, {'m', 1024 * 1024}, {'g', 1024 * 1024 * 1024}};
constexpr Unit time_units[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};

template <size_t N> std::optional<int64_t> with_unit(std::string_view text, const Unit (&units)[N])
{
    if (text.empty()) return std::nullopt;
    for (const Unit &unit : units) {
        if (lower(text.back()) != unit.letter) continue;
        const auto number = parse_number(text.substr(0, text.size() - 1));
        if (!number || *number > INT64_MAX / unit.factor) return std::nullopt;
        return *number * unit.factor;
    }
    return parse_number(text);
}

} // namespace

std::string lower(std::string_view text)
{
    std::string out(text);
    for (char &c : out)
        c = lower(c);
    return out;
}

bool same_nocase(std::string_view left, std::string_view right)
{
    return left.size() == right.size() && begins_nocase(left, right);
}

bool begins_nocase(std::string_view text, std::string_view beginning)
{
    if (text.size() < beginning.size()) return false;
    for (size_t i = 0; i < beginning.size(); ++i)
        if (lower(text[i]) != lower(beginning[i])) return false;
    return true;
}

std::string_view trim(std::string_view text)
{
    constexpr const char *blanks = " \t\r\n";
    const size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> pieces;
    for (;;) {
        const size_t end = text.find(separator);
        pieces.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::string one_line(std::string_view text)
{
    std::string out;
    for (const char c : text.substr(0, text.find('\n'))) {
        if (is_control(c)) continue;
        out += static_cast<unsigned char>(c) < 0x80 ? c : '?';
    }
    return std::string(trim(out));
}

std::optional<int64_t> parse_number(std::string_view text)
{
    int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number);
    if (text.empty() || failure != std::errc() || stop != end || number < 0) return std::nullopt;
    return number;
}

std::optional<int64_t> parse_size(std::string_view text)
{
    return with_unit(text, size_units);
}

std::optional<int64_t> parse_duration(std::string_view text)
{
    return with_unit(text, time_units);
}
