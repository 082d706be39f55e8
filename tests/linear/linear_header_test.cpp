/* Subjects, encoded words of headers, dates and addresses.  Whole header lines: see the deliveries,
   which read them. */
#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "headers/head.h"
#include "tests/linear/linear.h"

static const std::vector<Worst> subjects = {
    {"letters", repeated("x")},
    {"blanks", repeated(" ")},
    {"prefixes", repeated("Re: ")},
    {"opening brackets", repeated("[")},
    {"tags", repeated("[mylist:00012] ")},
    {"tags with prefixes", repeated("Re: [mylist:1] ")},
    {"a tag of digits", repeated("[mylist:", "1", "]")},
    {"beginnings of words", repeated("=?")},
    {"words without an end", repeated("=?ISO-2022-JP?B? ")},
    {"words", repeated("=?ISO-2022-JP?B?GyRCJCIbKEI=?= ")},
    {"words with blanks between", repeated("=?ISO-2022-JP?B?GyRC?=          ")},
    {"folded words", repeated("=?ISO-2022-JP?B?GyRCJCIbKEI=?=\r\n\t")},
    {"one word without end", repeated("=?ISO-2022-JP?B?", "GyRC", "")},
    {"escapes back and forth", repeated("\x1b$B$\"\x1b(B")},
    {"empty runs", repeated("\x1b$B\x1b(B")},
    {"escapes into the old set", repeated("\x1b$@\x1b$B")},
    {"escapes alone", repeated("\x1b")},
    {"one run", repeated("\x1b$B", "$\"", "\x1b(B")},
    {"an open run", repeated("\x1b$B", "$\"", "")},
    {"line ends", repeated("\r\n\t")},
};

/* Subjects are collected up to 1,024 characters, but nothing here relies on it. */
TEST(LinearHeader, TagsOfASubject)
{
    auto job = std::make_unique<DeliveryJob>();
    strcpy(job->list_name, "mylist");
    strcpy(job->settings.subject_format, "[%M:%05S]");
    for (const int mode : {0, 1})
        demand_linear(
            [] {
                std::vector<Worst> rows = subjects;
                for (Worst &row : rows)
                    row.bound = "stops where no tag can be";
                return rows;
            }(),
            [&](std::string &text) {
                int re = 0;
                (void)detect_subfmt(job.get(), text.data(), &re, mode);
            });
}

TEST(LinearHeader, EncodedWordsBothWays)
{
    std::vector<char> out(64 * MIB * 5);
    const std::vector<Worst> stopping = [] {
        std::vector<Worst> rows = subjects;
        for (Worst &row : rows)
            row.bound = "a word has at most 4,095 characters; stops behind a longer one";
        return rows;
    }();
    demand_linear(stopping, [&](std::string &text) {
        (void)decode(text.c_str(), out.data(), static_cast<int>(out.size()));
    });
    demand_linear(stopping, [&](std::string &text) {
        (void)encode_b64(text.c_str(), out.data(), static_cast<int>(out.size()));
    });
}

TEST(LinearHeader, JisText)
{
    demand_linear(subjects, [](std::string &text) { (void)mlist_strlen(text.c_str()); });
    demand_linear(subjects, [](std::string &text) {
        int cut = 0;
        (void)sprtjis(text.c_str(), 1 << 30, 0, &cut);
        (void)does_encode(text.c_str());
    });
}

TEST(LinearHeader, DatesAndOwners)
{
    static const char *const area = "takes at most 4,096 characters";
    demand_linear({{"digits", repeated("1"), area},
                   {"blanks", repeated(" "), area},
                   {"days", repeated("Mon, "), area}},
                  [](std::string &text) {
                      char out[64];
                      datestr(text.c_str(), out, sizeof(out));
                  });
    demand_linear({{"angle brackets", repeated("<"), area},
                   {"comments", repeated("("), area},
                   {"comments that close", repeated("(a)"), area},
                   {"quotes", repeated("\""), area},
                   {"backslashes", repeated("\\"), area},
                   {"blanks", repeated(" "), area},
                   {"addresses", repeated("a@b, "), area}},
                  [](std::string &text) { make_owner_string(text.data()); });
}
