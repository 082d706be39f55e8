/* Any bytes as "grant" (even first byte) or "subscribe": who may post, who may subscribe, beside a
   plain way over their lines.  The first line behind that byte is the address that asks. */
#include "fuzz/demand.h"
#include "fuzz/quick_list.h"
#include "store/file.h"

static std::string trimmed_end(std::string text)
{
    while (!text.empty() && std::string(" \t\r\n").find(text.back()) != std::string::npos)
        text.pop_back();
    return text;
}

static std::string trimmed(const std::string &text)
{
    const size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin);
}

/* Whether an entry of "subscribe" admits a domain. */
static bool admits(const std::string &entry, const std::string &domain)
{
    if (entry.empty()) return false;
    if (entry[0] != '*') return same_nocase(entry, domain);
    return entry.size() > 1 && domain.ends_with(entry.substr(1));
}

template <class Test> static std::string first_line(const std::string &contents, const Test &allows)
{
    for (const std::string &piece : pieces_of(contents))
        if (allows(trimmed(trimmed_end(piece)))) return trimmed_end(piece);
    return "";
}

/* An empty "grant" asks the roster, in which alice stands. */
static std::string expected_grant(const ArgumentAndFile &input)
{
    if (input.contents.empty())
        return same_nocase(input.argument, "alice@example.net") ? "alice@example.net ON \r\n" : "";
    return first_line(input.contents,
                      [&](const std::string &entry) { return same_nocase(entry, input.argument); });
}

static std::string expected_subscribe(const ArgumentAndFile &input)
{
    const size_t at = input.argument.find('@');
    if (at == std::string::npos || at + 1 == input.argument.size()) return "";
    if (input.contents.empty()) return "\n";
    const std::string domain = input.argument.substr(at + 1);
    return first_line(input.contents,
                      [&](const std::string &entry) { return admits(entry, domain); });
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QuickList quick;
    if (size < 1 || size > 50000) return 0;
    const ArgumentAndFile input = argument_and_file(data + 1, size - 1);
    char line[LINE_SIZE];
    if (data[0] % 2 == 0) {
        quick.list.put("member", "bob@example.jp ON \r\nalice@example.net ON \r\n");
        quick.list.put("grant", input.contents);
        demand(get_grant(quick.job(), input.argument.c_str(), line) == 0);
        demand(line == expected_grant(input));
    } else {
        quick.list.put("subscribe", input.contents);
        demand(get_subscribe(quick.job(), input.argument.c_str(), line) == 0);
        demand(line == expected_subscribe(input));
    }
    return 0;
}
