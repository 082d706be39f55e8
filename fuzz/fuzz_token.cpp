/* Any text as a command line: its atoms and quoted strings beside a plain reader of them, in memory
   of exactly the line's size. */
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/demand.h"
#include "mlist/token.h"

/* Up to the end of the line, a quoted string without end, or a literal. */
static std::vector<std::string> expected_tokens(std::string line)
{
    std::vector<std::string> tokens;
    while (!line.empty() && line[0] != '{') {
        std::string token;
        size_t end = 0;
        if (line[0] == '"') {
            for (end = 1; end < line.size() && line[end] != '"'; ++end) {
                if (line[end] == '\\' && ++end == line.size()) break;
                token += line[end];
            }
            if (end == line.size()) break;
            ++end; /* the closing quote */
        } else {
            end = std::min(line.find_first_of(" \r\n"), line.size());
            token = line.substr(0, end);
        }
        tokens.push_back(token);
        line.erase(0, end);
        if (line.empty() || line[0] != ' ') break;
        line.erase(0, 1);
    }
    return tokens;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string line(reinterpret_cast<const char *>(data), size);
    line.resize(strlen(line.c_str()));
    const std::vector<std::string> expected = expected_tokens(line);
    std::vector<char> text(line.c_str(), line.c_str() + line.size() + 1);
    char *start = text.data();
    for (const std::string &wanted : expected) {
        const char *token = list_gettoken_astring(start);
        demand(token != nullptr && wanted == token);
        start = nullptr;
    }
    demand(list_gettoken_astring(start) == nullptr);
    demand(list_gettoken_astring(nullptr) == nullptr);
    return 0;
}
