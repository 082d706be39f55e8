#include "tests/reference/owner.h"

#include <vector>

namespace reference
{

static std::string trimmed(std::string text)
{
    while (!text.empty() && std::string(" \t").find(text.front()) != std::string::npos)
        text.erase(text.begin());
    while (!text.empty() && std::string(" \t\r\n").find(text.back()) != std::string::npos)
        text.pop_back();
    return text;
}

/* For every byte the depth of comments that it stands in, its own parenthesis included. */
static std::vector<int> comment_depths(const std::string &text)
{
    std::vector<int> depths;
    int depth = 0;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool escaped = depth > 0 && text[i - 1] == '/';
        if (depth == 0 && text[i] == '"') quoted = !quoted;
        if (text[i] == '(' && !quoted && !escaped) {
            depths.push_back(++depth);
        } else if (text[i] == ')' && depth > 0 && !escaped) {
            depths.push_back(depth--);
        } else {
            depths.push_back(depth);
        }
    }
    return depths;
}

static size_t unquoted_angle(const std::string &text)
{
    int quotes = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') ++quotes;
        if (text[i] == '<' && quotes % 2 == 0) return i;
    }
    return std::string::npos;
}

std::string owner(const std::string &from)
{
    if (from.size() > 4096) return from;
    const std::string text = trimmed(from);
    const std::vector<int> depths = comment_depths(text);
    std::string bare;
    for (size_t i = 0; i < text.size(); ++i)
        if (depths[i] == 0) bare += text[i];
    bare = trimmed(bare);

    const size_t open = unquoted_angle(bare);
    if (open == std::string::npos) return bare;
    const size_t close = bare.find('>', open);
    return close == std::string::npos ? bare : bare.substr(open + 1, close - open - 1);
}

} // namespace reference
