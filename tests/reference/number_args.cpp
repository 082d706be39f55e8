#include "tests/reference/number_args.h"

#include <strings.h>

#include <algorithm>

namespace reference
{
static bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

static bool is_mark(char c)
{
    return c == ',' || c == '-';
}

static bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

static std::vector<std::string> items(const std::string &text)
{
    std::vector<std::string> found(1);
    for (const char c : text)
        if (c == ',')
            found.emplace_back();
        else
            found.back() += c;
    return found;
}

/* Digits behind blanks, modulo 2^32. */
static uint32_t number(const std::string &text)
{
    uint32_t value = 0;
    size_t at = 0;
    while (at < text.size() && is_blank(text[at]))
        ++at;
    for (; at < text.size() && is_digit(text[at]); ++at)
        value = value * 10 + static_cast<uint32_t>(text[at] - '0');
    return value;
}

std::string correct(const std::string &text)
{
    const std::string line = text.substr(0, text.find_first_of("\r\n"));
    std::string kept;
    for (size_t i = 0; i < line.size(); ++i) {
        if (!is_blank(line[i])) {
            kept += line[i];
            continue;
        }
        size_t left = i, right = i;
        while (left > 0 && is_blank(line[left]))
            --left;
        while (right < line.size() && is_blank(line[right]))
            ++right;
        const bool at_the_start = is_blank(line[left]), at_the_end = right == line.size();
        if (at_the_start || at_the_end || is_mark(line[left]) || is_mark(line[right])) continue;
        kept += line[i];
    }
    return kept;
}

std::string expand(const Numbers &archive, const std::string &text, size_t size)
{
    const std::vector<std::string> all = items(text);
    const bool names_all = std::any_of(all.begin(), all.end(), [](const std::string &item) {
        return item == "*" || strcasecmp(item.c_str(), "all") == 0;
    });
    if (!names_all) return text;
    const std::string range =
        archive.empty() ? ""
                        : std::to_string(archive.front()) + "-" + std::to_string(archive.back());
    return range.size() + 1 <= size ? range : text;
}

std::set<uint32_t> named(const Numbers &archive, const std::string &text)
{
    std::set<uint32_t> found;
    if (archive.empty()) return found;
    for (const std::string &item : items(text)) {
        const size_t hyphen = item.find('-');
        const uint32_t left = number(item);
        const uint32_t right = hyphen == std::string::npos ? left : number(item.substr(hyphen + 1));
        for (uint64_t n = archive.front(); n <= archive.back(); ++n)
            if (n != 0 && n >= std::min(left, right) && n <= std::max(left, right))
                found.insert(static_cast<uint32_t>(n));
    }
    return found;
}

/* Position of the last number at or below (or, upwards, of the first at or above), with the odd
   answers outside of the archive. */
static int position(const Numbers &archive, uint32_t wanted, bool upwards)
{
    if (wanted < archive.front()) return upwards ? -1 : 1;
    if (wanted > archive.back()) return upwards ? static_cast<int>(archive.size()) : -1;
    int at_or_below = 0;
    for (size_t i = 0; i < archive.size(); ++i)
        if (archive[i] <= wanted) at_or_below = static_cast<int>(i) + 1;
    const bool exact = archive[static_cast<size_t>(at_or_below) - 1] == wanted;
    return exact || !upwards ? at_or_below : at_or_below + 1;
}

std::optional<std::pair<int, int>> positions(const Numbers &archive, const std::string &text)
{
    const int count = static_cast<int>(archive.size());
    if (count == 0) return std::pair(0, 0);
    std::string rest = text;
    const auto skip_blanks = [&rest] {
        while (!rest.empty() && is_blank(rest[0]))
            rest.erase(0, 1);
    };
    skip_blanks();
    if (rest.empty()) return std::nullopt;
    if (rest[0] == '*' || strncasecmp(rest.c_str(), "all", 3) == 0) return std::pair(1, count);
    if (strncasecmp(rest.c_str(), "last:", 5) == 0) {
        rest.erase(0, 5);
        skip_blanks();
        if (rest.empty() || !is_digit(rest[0])) return std::nullopt;
        const int64_t wanted = number(rest);
        const int64_t first = wanted == 0 ? count : std::max<int64_t>(1, count - wanted + 1);
        return std::pair(static_cast<int>(first), count);
    }
    const size_t hyphen = rest.find_first_not_of("0123456789");
    if (hyphen == std::string::npos || hyphen == 0 || rest[hyphen] != '-') return std::nullopt;
    if (hyphen + 1 >= rest.size() || !is_digit(rest[hyphen + 1])) return std::nullopt;
    const uint32_t left = number(rest), right = number(rest.substr(hyphen + 1));
    return std::pair(position(archive, std::min(left, right), false),
                     position(archive, std::max(left, right), true));
}

std::string shorten(const Numbers &numbers, size_t size)
{
    std::string text;
    for (size_t i = 0; i < numbers.size();) {
        size_t end = i + 1;
        while (end < numbers.size() && numbers[end] == numbers[end - 1] + uint64_t{1})
            ++end;
        const std::string comma = text.empty() ? "" : ",";
        if (end - i >= 3)
            text += comma + std::to_string(numbers[i]) + "-" + std::to_string(numbers[end - 1]);
        else if (end - i == 2)
            text += comma + std::to_string(numbers[i]) + "," + std::to_string(numbers[i + 1]);
        else
            text += comma + std::to_string(numbers[i]);
        i = end;
    }
    return text.size() + 1 <= size ? text : list_of(numbers);
}

std::string list_of(const Numbers &numbers)
{
    std::string text;
    for (const uint32_t n : numbers)
        text += (text.empty() ? "" : " ") + std::to_string(n);
    return text;
}
} // namespace reference
