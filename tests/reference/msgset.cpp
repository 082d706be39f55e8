#include "tests/reference/msgset.h"

#include <optional>
#include <regex>

namespace reference
{
namespace
{
/* The number that the digits spell, 0 for none; nothing when it is above the maximum. */
std::optional<uint32_t> number_of(const std::string &digits, uint32_t maximum)
{
    const size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos) return 0;
    const std::string significant = digits.substr(first);
    if (significant.size() > 10 || std::stoull(significant) > maximum) return std::nullopt;
    return static_cast<uint32_t>(std::stoul(significant));
}
} // namespace

MessageSet read_message_set(const std::string &text, uint32_t maximum)
{
    /* number, perhaps ":" and number or star, then what ends the element */
    static const std::regex element("^([0-9]*)(:([0-9]*|\\*)(?=[, \r\n]|$)|(?=[, ]|$))");
    MessageSet set;
    for (size_t at = 0;;) {
        std::smatch match;
        const std::string left = text.substr(at);
        if (!std::regex_search(left, match, element)) return set;
        const std::optional<uint32_t> low = number_of(match[1], maximum);
        const bool range = match[2].length() > 0;
        const std::optional<uint32_t> high = !range            ? low
                                             : match[3] == "*" ? maximum
                                                               : number_of(match[3], maximum);
        if (!low || !high || *low == 0) return set;
        set.numbers.push_back(*low);
        for (uint64_t next = uint64_t{*low} + 1; next <= *high; ++next)
            set.numbers.push_back(static_cast<uint32_t>(next));
        at += static_cast<size_t>(match.length());
        if (at < text.size() && text[at] == ',') ++at;
        if (at >= text.size()) return set;
        if (text[at] != ' ') continue;
        set.rest = at + 1;
        return set;
    }
}
} // namespace reference
