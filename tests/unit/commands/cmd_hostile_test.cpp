/* Whatever a stranger sends: an answer, in a time that does not depend on it, and never a damaged
   roster. */
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>

#include "store/file.h"
#include "tests/unit/commands/commands_test.h"

static const std::string roster = "alice@example.net ON \r\nbob@example.jp OFF\r\n";

class HostileCommands : public CommandTest
{
  protected:
    HostileCommands()
    {
        for (const uint32_t number : {3, 4, 7})
            archive_sample(number);
    }
    std::mt19937 random{31};
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

    /* A line of what commands are made of and of any other byte but NUL. */
    std::string any_line()
    {
        static const char *const words[] = {
            "help", "subscribe", "unsubscribe",     "member", "off", "on", "summary",
            "get",  "stat",      "digest",          "push",   "all", "*",  "1-4294967295",
            "5-3",  ",,,",       "last:",           " ",      "\t",  "#",  "# ",
            "%s%n", "\r",        "0123456789ABCDEF"};
        std::string text = below(3) != 0 ? "# " : "";
        if (below(2) == 0) text += words[below(11)];
        for (uint32_t pieces = below(6); pieces > 0; --pieces)
            if (below(2) == 0)
                text += words[below(sizeof(words) / sizeof(words[0]))];
            else
                text +=
                    std::string(below(4) == 0 ? below(160) : 1, static_cast<char>(1 + below(255)));
        text = text.substr(0, text.find('\n')).substr(0, 1022);
        return text + (below(8) == 0 ? "" : below(8) == 0 ? "\n" : "\r\n");
    }
};

TEST_F(HostileCommands, AnyLineIsAnsweredByOneMailAtMost)
{
    for (int round = 0; round < 3000; ++round) {
        if (round % 50 == 0) {
            list.put("member", roster);
            job()->settings.confirmation = round % 100 == 0 ? 3 : 0;
        }
        host.submissions.clear();
        const std::string text = any_line();
        ASSERT_EQ(1, line(text)) << text;
        ASSERT_LE(host.submissions.size(), 1u) << text;
        ASSERT_TRUE(list.get("member").starts_with(roster));
        ASSERT_TRUE(list_directory(list.control("msg")).empty()) << text;
        if (host.submissions.empty()) continue;
        ASSERT_TRUE(sent().starts_with("From: mylist@example.jp\r\nTo: carol@example.com\r\n"));
        ASSERT_NE(std::string::npos, sent().find("\r\n-\r\n")) << text;
    }
}

TEST_F(HostileCommands, ArgumentsThatPromiseTrouble)
{
    static const struct {
        const char *line, *answer;
    } rows[] = {
        {"# get 1-4294967295\r\n", ">>> get 3,4,7\r\nSucceeded"},
        {"# get 4294967295-0\r\n", ">>> get 3,4,7\r\nSucceeded"},
        {"# get 5-3\r\n", ">>> get 3,4\r\nSucceeded"},
        {"# get ,,,\r\n", ">>> get ,,,\r\nFailed"},
        {"# get *\r\n", ">>> get 3,4,7\r\nSucceeded"},
        {"# get -\r\n", ">>> get -\r\nFailed"},
        {"# get %s%n\r\n", ">>> get %s%n\r\nFailed"},
        {"# get 99999999999999999999999999\r\n", ">>> get 99999999999999999999999999\r\nFailed"},
        {"# summary 1-4294967295\r\n", ">>> summary 1-4294967295\r\nSucceeded"},
        {"# summary 5-3\r\n", ">>> summary 5-3\r\nSucceeded"},
        {"# summary ,,,\r\n", ">>> summary ,,,\r\nFailed"},
        {"# summary *\r\n", ">>> summary *\r\nSucceeded"},
        {"# summary last:99999999999\r\n", ">>> summary last:99999999999\r\nSucceeded"},
    };
    for (const auto &row : rows) {
        forget();
        EXPECT_EQ(1, line(row.line)) << row.line;
        EXPECT_NE(std::string::npos, sent().find("\r\n" + std::string(row.answer) + "\r\n"))
            << row.line << sent();
    }
    forget();
    std::string ranges;
    while (ranges.size() < 1000)
        ranges += "1-4294967295,";
    EXPECT_EQ(1, line("# get " + ranges + "\r\n"));
    EXPECT_NE(std::string::npos, sent().find(">>> get 3,4,7\r\nSucceeded"));
}

TEST_F(HostileCommands, ManyWideRangesOverAnArchiveWithAWideGapTakeNoTime)
{
    archive_sample(80000000);
    std::string ranges;
    while (ranges.size() < 1000)
        ranges += "8-79999999,";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, cmd_get(job(), ranges.c_str()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    EXPECT_TRUE(sent().ends_with("Failed\r\n-\r\n"));
}

TEST_F(HostileCommands, ThousandsOfCommandsInOneMail)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 4000; ++i)
        ASSERT_EQ(1, line(i % 2 == 0 ? "# stat\r\n" : "# foo\r\n"));
    EXPECT_EQ(4000u, host.submissions.size());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
    const int next = dup(0);
    close(next);
    EXPECT_LT(next, 20) << "descriptors stay open";
}

static const std::string strange_senders[] = {
    "",
    "@",
    "no-domain",
    "%s%n@example.com",
    "john doe@example.com",
    "\"john doe\"@example.com",
    "x@example.com ON",
    "alice@example.net OFF",
    " leading@example.com",
    "\xa4\xe8\xa4\xa6@example.com",
    "tab\there@example.com",
    "cr\rhere@example.com",
    std::string(1000, 'a') + "@example.com",
    std::string(4050, 'b') + "@example.com",
    std::string(4082, 'c') + "@example.com",
};

TEST_F(HostileCommands, StrangeSendersGetAnAnswerAndDamageNobody)
{
    for (const std::string &sender : strange_senders)
        for (const int days : {0, 3}) {
            SCOPED_TRACE(sender.substr(0, 40));
            list.put("member", roster);
            list.put("active", "alice@example.net\r\n");
            list.put("digest", "");
            list.put("confirm", "");
            job()->settings.confirmation = days;
            send_as(sender);
            for (const char *word : {"help", "subscribe", "member", "off", "on", "digest", "stat",
                                     "summary", "get all", "push", "unsubscribe"}) {
                host.submissions.clear();
                const int result = line("# " + std::string(word) + "\r\n");
                EXPECT_TRUE(result == 1 || result == -1) << word;
                EXPECT_EQ(1u, host.submissions.size()) << word;
            }
            std::string found = list.get("member");
            EXPECT_TRUE(found.starts_with(roster)) << found.substr(0, 200);
            EXPECT_TRUE(list.get("active").starts_with("alice@example.net\r\n"));
            EXPECT_TRUE(found.ends_with("\r\n"));
            char member[LINE_SIZE];
            EXPECT_EQ(0, get_member(job(), "bob@example.jp", member));
            EXPECT_STREQ("bob@example.jp OFF\r\n", member);
        }
}

/* -- rosters that somebody edited -- */

struct RosterLine {
    std::string address, word, end;
    bool has_blank = true;
};

static std::string text_of(const std::vector<RosterLine> &lines)
{
    std::string text;
    for (const RosterLine &line : lines)
        text += line.address + (line.has_blank ? " " + line.word : "") + line.end;
    return text;
}

/* What stands on the lines, whatever their ends are. */
static std::vector<std::string> contents(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        while (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
        at = end + 1;
    }
    return lines;
}

static bool has_status(const std::string &word)
{
    return word.starts_with("ON") || word.starts_with("OFF") || word.starts_with("DGT");
}

class EditedRoster : public HostileCommands
{
  protected:
    std::vector<RosterLine> any_roster()
    {
        static const char *const words[] = {"ON ", "OFF", "DGT", "QUT", "ON", "ONX", ""};
        std::vector<RosterLine> lines;
        const bool large = below(4) == 0;
        for (uint32_t count = large ? 220 + below(80) : below(8); count > 0; --count) {
            RosterLine line;
            line.address = below(6) == 0 ? "carol@example.com"
                                         : "m" + std::to_string(below(9999)) +
                                               std::string(large ? below(40) : 0, 'x') + "@x";
            line.word = words[below(7)];
            line.end = below(5) == 0 ? "\n" : "\r\n";
            line.has_blank = below(9) != 0;
            lines.push_back(line);
        }
        if (!lines.empty() && below(4) == 0) lines.back().end = "";
        return lines;
    }
};

TEST_F(EditedRoster, KeepsEveryLineThatACommandDoesNotMean)
{
    static const char *const commands[] = {"subscribe", "unsubscribe", "on", "off", "digest"};
    static const char *const words[] = {"", "", "ON ", "OFF", "DGT"};
    for (int round = 0; round < 800; ++round) {
        const std::vector<RosterLine> lines = any_roster();
        const std::string text = text_of(lines);
        list.put("member", text);
        const size_t chosen = below(5);
        std::vector<std::string> wanted;
        bool member = false, changed = false;
        for (const RosterLine &line : lines) {
            const std::string whole = line.address + (line.has_blank ? " " + line.word : "");
            const bool mine = line.has_blank && line.address == "carol@example.com";
            member = member || mine;
            if (mine && chosen == 1) continue;
            if (mine && chosen > 1 && !changed && has_status(line.word)) {
                changed = true;
                wanted.push_back(line.address + " " + words[chosen] +
                                 (line.word.size() > 3 ? line.word.substr(3) : ""));
                continue;
            }
            wanted.push_back(whole);
        }
        if (chosen == 0 && !member) wanted.push_back("carol@example.com ON ");

        send_as("carol@example.com");
        host.submissions.clear();
        ASSERT_EQ(1, line("# " + std::string(commands[chosen]) + "\r\n"));
        ASSERT_EQ(1u, host.submissions.size());
        ASSERT_EQ(chosen < 2 || changed, sent().find("\r\nSucceeded\r\n") != std::string::npos);
        ASSERT_EQ(wanted, contents(list.get("member"))) << commands[chosen] << " on\n" << text;
    }
}
