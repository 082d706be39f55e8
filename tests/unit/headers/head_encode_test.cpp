/* JIS text to folded encoded words. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>

#include "tests/support/log_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

static string encoded(const string &in, int size = 64 * 1024)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    const int result = encode_b64(in.c_str(), buffer.data(), size);
    EXPECT_TRUE(buffer.intact()) << size;
    EXPECT_TRUE(size == 0 || buffer.terminated()) << size;
    return result == 0 ? buffer.data() : "FAIL";
}

/* n times the first character of the kanji table's third row. */
static string kanji(size_t n)
{
    string text;
    while (n-- > 0)
        text += "#0";
    return text;
}

static string run(size_t n)
{
    return KANJI + kanji(n) + ASCII;
}

TEST(EncodeB64, Table)
{
    static const struct {
        const char *label, *in, *out;
    } rows[] = {
        {"empty", "", ""},
        {"plain", "Subject: Hello", "Subject: Hello"},
        {"kanji-out alone", "a" ASCII "b", "a" ASCII "b"},
        {"half-width kana alone", ESC "(I12" ASCII, ESC "(I12" ASCII},
        {"lone escape", "a" ESC, "a" ESC},
        {"run", KANJI "F|K\\8l" ASCII, "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?="},
        {"old kanji-in", ESC "$@F|K\\8l" ASCII, "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?="},
        {"kanji-out to JIS Roman", KANJI "F|K\\8l" ESC "(Jx",
         "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?=x"},
        {"run left open", KANJI "F|K\\8l", "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?="},
        {"kanji-in within a run", KANJI "F|" ESC "$@K\\" KANJI "8l" ASCII,
         "=?ISO-2022-JP?B?GyRCRnxLXDhsGyhC?="},
        {"empty run", "a" KANJI ASCII "b", "ab"},
        {"kanji-in at the end", "a" KANJI, "a"},
        {"odd byte", KANJI "F" ASCII, "=?ISO-2022-JP?B?GyRCRhsoQg==?="},
        {"adjacent runs", KANJI "F|" ASCII KANJI "K\\" ASCII,
         "=?ISO-2022-JP?B?GyRCRnwbKEI=?= =?ISO-2022-JP?B?GyRCS1wbKEI=?="},
        {"blanks between runs", KANJI "F|" ASCII "  " KANJI "K\\" ASCII,
         "=?ISO-2022-JP?B?GyRCRnwbKEI=?=  =?ISO-2022-JP?B?GyRCS1wbKEI=?="},
        {"no blank next to ASCII", "a" KANJI "F|" ASCII "b", "a=?ISO-2022-JP?B?GyRCRnwbKEI=?=b"},
    };
    take_log();
    for (const auto &row : rows) {
        EXPECT_EQ(encoded(row.in), row.out) << row.label;
        EXPECT_EQ(take_log_lines(), Lines()) << row.label;
    }
}

TEST(EncodeB64, TheFirstWordFillsItsLine)
{
    /* Columns before the word, characters that it takes, columns of the word. */
    static const struct {
        size_t column, chars, width;
    } rows[] = {{0, 15, 66}, {1, 15, 66}, {24, 7, 46}, {28, 6, 42}, {40, 2, 34},
                {43, 1, 30}, {44, 1, 30}, {46, 1, 30}, {47, 1, 30}, {100, 1, 30}};
    for (const auto &row : rows) {
        const string before(row.column, 'x');
        const string out = encoded(before + run(40));
        const string first = out.substr(0, out.find("\r\n"));
        EXPECT_EQ(first.size(), row.column + row.width) << row.column;
        EXPECT_EQ(encoded(before + run(row.chars)), first) << row.column;
    }
}

TEST(EncodeB64, LaterWordsHoldThirteenCharacters)
{
    const string out = encoded(run(15 + 13 + 13 + 1));
    EXPECT_EQ(out, encoded(run(15)) + "\r\n\t" + encoded(run(13)) + "\r\n\t" + encoded(run(13)) +
                       "\r\n\t" + encoded(run(1)));
}

TEST(EncodeB64, AWordFoldsWhenItWouldReachColumn66)
{
    /* A word of one character is 30 columns wide: 30 + gap + 30. */
    for (const size_t gap : {1u, 5u, 6u, 20u}) {
        const string text = run(1) + string(gap, 'x') + run(1);
        const string word = encoded(run(1));
        EXPECT_EQ(encoded(text), word + string(gap, 'x') + (gap < 6 ? "" : "\r\n\t") + word);
    }
}

TEST(EncodeB64, TheColumnRestartsAtAFoldedWord)
{
    const string word = encoded(run(1)), wide = encoded(run(13));
    /* 66, then 62 (folded), then 30 would reach 93 (folded), then 30 + 1 + 30 stays. */
    EXPECT_EQ(encoded(run(15 + 13) + " " + run(1) + run(1)),
              encoded(run(15)) + "\r\n\t" + wide + " \r\n\t" + word + " " + word);
}

TEST(EncodeB64, EverySizeIsKept)
{
    take_log();
    for (const string &in : {string("Subject: Hello"), "Re: " + run(30) + " x " + run(2)}) {
        const string full = encoded(in);
        for (int size = 0; size < static_cast<int>(full.size()) + 3; ++size) {
            const bool fits = size > static_cast<int>(full.size());
            EXPECT_EQ(encoded(in, size), fits ? full : "FAIL") << size;
            EXPECT_EQ(take_log_lines(),
                      fits ? Lines() : Lines{"1/327 string too long (encode_b64)"});
        }
    }
}

/* -- properties -- */

/* Removes a kanji-out that is followed at once by a kanji-in: where words meet. */
static string merged(string text)
{
    for (size_t at; (at = text.find(ASCII KANJI)) != string::npos;)
        text.erase(at, 6);
    return text;
}

/* Kanji runs, ASCII and blanks; what stands between two runs is never blanks alone. */
static string random_text(RandomBytes &random)
{
    const string letters = "abcXYZ0189.,:-_[]()?= ";
    string jis_bytes;
    for (char byte = 0x21; byte < 0x7f; ++byte)
        jis_bytes += byte;
    string text = "Subject: [mylist:12] ";
    for (uint32_t i = random.below(8); i > 0; --i) {
        if (random.below(2) == 0) text += random.text(random.below(20), letters) + "|";
        if (random.below(2) != 0)
            text += KANJI + random.text(2 * (1 + random.below(40)), jis_bytes) + ASCII;
    }
    return text;
}

static std::vector<string> words_of(const string &text)
{
    std::vector<string> words;
    for (size_t at = 0; (at = text.find("=?ISO-2022-JP?B?", at)) != string::npos;) {
        const size_t end = text.find("?=", at + 16) + 2;
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

TEST(EncodeB64, DecodeGivesTheTextBack)
{
    for (uint32_t seed = 0; seed < 5000; ++seed) {
        RandomBytes random(seed);
        const string text = random_text(random);
        const string out = encoded(text);
        for (const string &word : words_of(out))
            ASSERT_LE(word.size(), 75u);
        char back[64 * 1024];
        ASSERT_EQ(decode(unfold(out).c_str(), back, sizeof back), 0);
        ASSERT_EQ(merged(back), merged(text)) << out;
    }
}

TEST(EncodeB64, LinesOfATagAndKanjiStayWithin76Columns)
{
    for (size_t column = 9; column <= 46; ++column)
        for (size_t count = 1; count < 120; ++count) {
            const string out = encoded(string(column, 't') + run(count)) + "\r\n";
            size_t begin = 0;
            for (size_t end; (end = out.find("\r\n", begin)) != string::npos; begin = end + 2)
                ASSERT_LE(end - begin, 76u) << out;
        }
}

TEST(EncodeB64, HostileTextsStayWithinTheBuffer)
{
    const string alphabet = "\x1b\x1b\x1b$$(BB@JI ab#0\xff";
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        const string in = random.text(random.below(200), alphabet);
        const string out = encoded(in);
        ASSERT_NE(out, "FAIL");
        for (size_t at = 0; (at = out.find('\n', at)) != string::npos; ++at)
            ASSERT_EQ(out.substr(at - 1, 6), "\r\n\t=?I");
        encoded(in, static_cast<int>(random.below(static_cast<uint32_t>(out.size()) + 2)));
    }
    take_log();
}
