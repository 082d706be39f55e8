/* Messages and the responses to them, byte for byte: tests/golden/fetch.

   A file there begins with a comment line ("#").  "=== message" is followed by the message, "===
   items A | B" by the response to FETCH (A B), "=== log" by the lines that this logs ("*" at the
   end: anything).  Line ends stand for CR LF, \xNN for a byte, \\ for a backslash, and a backslash
   at the end of a line takes the line end away.  "irregular" marks a response that is not by IMAP's
   grammar: it has to be refused by the independent reader just as the others have to be read. */
#include <gtest/gtest.h>
#include <stdlib.h>

#include <map>
#include <sstream>

#include "tests/reference/imap_read.h"
#include "tests/support/golden.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

namespace
{
struct Exchange {
    std::vector<std::string> items;
    bool irregular = false;
    std::string response;
    std::vector<std::string> log;
};

struct Golden {
    std::string message;
    std::vector<Exchange> exchanges;
};

std::string decode_line(const std::string &line)
{
    std::string out;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '\\') {
            out += line[i];
        } else if (i + 1 == line.size()) {
            return out;
        } else if (line[++i] == 'x') {
            out += static_cast<char>(strtol(line.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += line[i];
        }
    }
    return out + "\r\n";
}

std::vector<std::string> split_items(const std::string &text)
{
    std::vector<std::string> items;
    for (size_t from = 0; from < text.size();) {
        const size_t bar = std::min(text.find(" | ", from), text.size());
        items.push_back(text.substr(from, bar - from));
        from = bar + 3;
    }
    return items;
}

/* Takes "word" off the front of the text. */
bool take_word(std::string *text, const std::string &word)
{
    if (text->compare(0, word.size(), word) != 0) return false;
    text->erase(0, word.size());
    return true;
}

Golden read_golden(const std::string &path)
{
    Golden golden;
    std::istringstream in(read_file(path));
    std::string line;
    enum { NOTHING, MESSAGE, RESPONSE, LOG } what = NOTHING;
    while (std::getline(in, line)) {
        if (take_word(&line, "=== ")) {
            const bool irregular = take_word(&line, "irregular ");
            what = line == "message" ? MESSAGE : line == "log" ? LOG : RESPONSE;
            if (what != RESPONSE) continue;
            EXPECT_TRUE(take_word(&line, "items ")) << path << ": " << line;
            golden.exchanges.push_back({split_items(line), irregular, "", {}});
        } else if (what == MESSAGE) {
            golden.message += decode_line(line);
        } else if (what == RESPONSE) {
            golden.exchanges.back().response += decode_line(line);
        } else if (what == LOG) {
            golden.exchanges.back().log.push_back(line);
        }
    }
    return golden;
}

void expect_log(const std::vector<std::string> &expected)
{
    std::vector<std::string> logged = take_log_lines();
    ASSERT_EQ(expected.size(), logged.size()) << testing::PrintToString(logged);
    for (size_t i = 0; i < expected.size(); ++i) {
        const bool any = expected[i].back() == '*';
        const size_t length = any ? expected[i].size() - 1 : std::string::npos;
        EXPECT_EQ(expected[i].substr(0, length), logged[i].substr(0, length));
    }
}

/* Whether an independent reader can read it, and finds the shapes that it expects. */
bool is_regular(const std::string &text)
{
    const std::optional<imap::Response> response = imap::read_response(text);
    if (!response || response->sequence != 1) return false;
    for (const auto &[name, value] : response->items) {
        if (name == "ENVELOPE" && !imap::is_envelope(value)) return false;
        if (name == "BODY" && !imap::is_body(value, false)) return false;
        if (name == "BODYSTRUCTURE" && !imap::is_body(value, true)) return false;
    }
    return true;
}

/* The fixed answers to what cannot be read have shapes of their own. */
bool is_fixed_answer(const std::string &text)
{
    return text.find("NIL NIL NIL \"7BIT\" 0 0") != std::string::npos;
}

void check_golden(const std::string &path)
{
    const Golden golden = read_golden(path);
    ASSERT_FALSE(golden.exchanges.empty());
    Reader reader(golden.message);
    for (const Exchange &exchange : golden.exchanges) {
        SCOPED_TRACE(testing::PrintToString(exchange.items));
        list_mbx_freecache(reader.handle());
        reader.record(1).flags = 0;
        take_log();
        EXPECT_EQ(visible(exchange.response), visible(reader.fetch(exchange.items)));
        expect_log(exchange.log);
        if (is_fixed_answer(exchange.response)) continue;
        EXPECT_EQ(!exchange.irregular, is_regular(exchange.response));
    }
}
} // namespace

TEST(FetchGolden, AnswersEveryMessageByteForByte)
{
    const std::string directory = MLIST_FETCH_GOLDEN_DIR;
    const std::vector<std::string> names = list_directory(directory);
    EXPECT_GE(names.size(), 30u);
    for (const std::string &name : names) {
        SCOPED_TRACE(name);
        check_golden(directory + "/" + name);
    }
}
