/* Shift_JIS to JIS. */
#include <limits.h>

#include <random>

#include "codec/conv.h"
#include "tests/reference/jis.h"
#include "tests/unit/codec/codec_calls.h"

using namespace std::string_literals;

static const std::string repeated(size_t count, const std::string &piece)
{
    std::string text;
    while (count-- > 0)
        text += piece;
    return text;
}

static const struct {
    const char *label;
    std::string sjis, jis;
} rows[] = {
    {"nothing", "", ""},
    {"ASCII and its controls", "a\r\n\t\x7f", "a\r\n\t\x7f"},
    {"Japanese", "\x93\xFA\x96\x7B", "\x1b$BF|K\\\x1b(B"},
    {"both", "a\x93\xFA z", "a\x1b$BF|\x1b(B z"},
    {"two runs", "\x93\xFA\n\x96\x7B", "\x1b$BF|\x1b(B\n\x1b$BK\\\x1b(B"},
    {"half-width katakana", "\xB1", "\x1b$B%\"\x1b(B"},
    {"half-width inside a run", "\x93\xFA\xB1\x96\x7B", "\x1b$BF|%\"K\\\x1b(B"},
    {"first and last code", "\x81\x40\xEF\xFC", "\x1b$B!!~~\x1b(B"},
    {"trail bytes on both sides of 0x7F and 0x9F", "\x81\x7E\x81\x80\x81\x9E\x81\x9F",
     "\x1b$B!_!`!~\"!\x1b(B"},
    {"lead bytes on both sides of the katakana", "\x9F\xFC\xE0\x40", "\x1b$B^~_!\x1b(B"},
    {"lone lead byte", "\x93", ""},
    {"lone lead byte behind a run", "\x93\xFA\x96", "\x1b$BF|\x1b(B"},
    {"lone lead byte behind ASCII", "a\x93", "a"},
};

TEST(Sjis2Jis, ConvertsRunByRun)
{
    for (const auto &row : rows) {
        GuardedOutput out(static_cast<size_t>(ample_size(row.sjis)));
        EXPECT_EQ(out.data(), sjis2jis(row.sjis.c_str(), out.data(), ample_size(row.sjis) - 11))
            << row.label;
        EXPECT_TRUE(out.holds(row.jis)) << row.label;
    }
}

TEST(Sjis2Jis, GivesAnEmptyTextForNone)
{
    GuardedOutput out(1);
    EXPECT_EQ(out.data(), sjis2jis(nullptr, out.data(), 100));
    EXPECT_TRUE(out.holds(""));
}

TEST(Sjis2Jis, CalculatesWithAnyPairOfBytes)
{
    GuardedOutput out(64);
    sjis2jis("\x93\nx", out.data(), 50);
    EXPECT_TRUE(out.holds("\x1b$BEk\x1b(Bx"));
    sjis2jis("\xF0\x9Fx", out.data(), 50);
    EXPECT_TRUE(out.holds("\x1b$B\0!\x1b(Bx"s));
    sjis2jis("\x80\x40\xFF\x40\xF0\x40", out.data(), 50);
    EXPECT_TRUE(out.holds("\x1b$B\x9f!\x1d!\xff!\x1b(B"));
}

TEST(Sjis2Jis, ConvertsEveryCharacterByRowAndCell)
{
    for (unsigned jis = 0x2121; jis <= 0x7E7E; ++jis) {
        if ((jis & 0xFF) < 0x21 || (jis & 0xFF) > 0x7E) continue;
        const uint16_t code = reference::sjis_of_jis(static_cast<uint16_t>(jis));
        const std::string sjis = {static_cast<char>(code >> 8), static_cast<char>(code)};
        const std::string wanted = {static_cast<char>(jis >> 8), static_cast<char>(jis)};
        for (const size_t count : {1, 8, 9}) {
            GuardedOutput out(64);
            sjis2jis(repeated(count, sjis).c_str(), out.data(), 50);
            ASSERT_TRUE(out.holds("\x1b$B" + repeated(count, wanted) + "\x1b(B")) << hex(sjis);
        }
    }
}

TEST(Sjis2Jis, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    const std::string kanji = repeated(20, "\x93\xFA"), ascii = "abcdefghijklmnopqrstuvwxyz";
    for_each_pair(
        {{"", ""},
         {kanji, kanji},
         {ascii, ascii},
         {kanji + "\x96\x7B", ascii},
         {ascii + "x", kanji},
         {"\xB6", "\xDE"}},
        [](const std::string &text) { ASSERT_TRUE(sjis2jis_agrees(text, ample_size(text))); });
}

TEST(Sjis2Jis, AgreesWithTheReferenceOnMarksAndLeadBytesInEveryOrder)
{
    for_each_text(
        "a\x80\x81\x9F\xA0\xB3\xB6\xCA\xDE\xDF\xE0\xF0\xFC", 5,
        [](const std::string &text) { ASSERT_TRUE(sjis2jis_agrees(text, ample_size(text))); });
}

TEST(Sjis2Jis, AgreesWithTheReferenceOnEveryKanaAndMarkBehindAnyByte)
{
    for (int first = 1; first <= 0xFF; ++first)
        for (int second = 0xA0; second <= 0xE0; ++second)
            for (const char *third : {"", "\xDE", "\xDF", "a", "\x81"})
                ASSERT_TRUE(sjis2jis_agrees(
                    std::string{static_cast<char>(first), static_cast<char>(second)} + third, 64));
}

static const std::string limit_texts[] = {
    "",
    "a",
    "\x93\xFA",
    "\x93",
    "\xB6\xDE",
    "ab\x93\xFA\x96\x7B"
    "cd\xB1 \x93",
    repeated(30, "\x93\xFA") + "\n",
    repeated(12, "a\x93\xFA"),
    std::string(50, 'x') + repeated(17, "\x82\xA0") + std::string(20, 'y') + "\xB3\xDE\xB1\xDE",
};

TEST(Sjis2Jis, StopsBehindItsLimitWhateverThatIs)
{
    for (const std::string &text : limit_texts)
        for (int limit = -20; limit <= ample_size(text) + 20; ++limit)
            ASSERT_TRUE(sjis2jis_agrees(text, limit));
    for (const int limit : {INT_MIN, INT_MIN + 1})
        ASSERT_TRUE(sjis2jis_agrees("abc", limit));
    GuardedOutput out(64);
    EXPECT_EQ(out.data(), sjis2jis("abc", out.data(), INT_MAX));
    EXPECT_TRUE(out.holds("abc"));
}

TEST(Sjis2Jis, MayExceedItsLimitByElevenBytes)
{
    /* ASCII up to one byte in front of the end, then an escape, a character and the way back */
    const int limit = 10;
    GuardedOutput out(static_cast<size_t>(limit) + 11);
    sjis2jis("abcdefghijkl\x93\xFA\x96\x7B", out.data(), limit);
    EXPECT_TRUE(out.holds("abcdefghijkl\x1b$BF|\x1b(B"));
    EXPECT_EQ(static_cast<size_t>(limit) + 11, out.touched());
}

TEST(Sjis2Jis, AgreesWithTheReferenceWhereverTheTextIsCut)
{
    const std::string text = limit_texts[5] + limit_texts[8] + limit_texts[6];
    for (size_t from = 0; from < 20; ++from)
        for (size_t size = 0; size <= text.size() - from; ++size)
            ASSERT_TRUE(sjis2jis_agrees(text.substr(from, size), ample_size(text)));
}

/* Well-formed text in which nothing is rare. */
static std::string random_sjis(std::mt19937 *random)
{
    std::string text;
    for (unsigned runs = (*random)() % 6; runs > 0; --runs) {
        const unsigned kind = (*random)() % 4;
        for (unsigned length = (*random)() % 40; length > 0; --length) {
            const unsigned jis = ((*random)() % 94 + 0x21) << 8 | ((*random)() % 94 + 0x21);
            const uint16_t code = reference::sjis_of_jis(static_cast<uint16_t>(jis));
            if (kind < 2) text += {static_cast<char>(code >> 8), static_cast<char>(code)};
            if (kind == 2) text += static_cast<char>((*random)() % 127 + 1);
            if (kind == 3) text += static_cast<char>((*random)() % 63 + 0xA1);
        }
    }
    return text;
}

TEST(Sjis2Jis, AgreesWithTheReferenceOnChangedBytesAndLimits)
{
    std::mt19937 random(5);
    for (int round = 0; round < 4000; ++round) {
        std::string text = random_sjis(&random);
        ASSERT_TRUE(sjis2jis_agrees(text, ample_size(text)));
        if (text.empty()) continue;
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
        ASSERT_TRUE(sjis2jis_agrees(text, ample_size(text)));
        ASSERT_TRUE(sjis2jis_agrees(text, static_cast<int>(random() % (text.size() * 2 + 8))));
    }
}
