/* JIS to Shift_JIS. */
#include <limits.h>

#include <random>

#include "codec/conv.h"
#include "tests/reference/jis.h"
#include "tests/unit/codec/codec_calls.h"

static const std::string repeated(size_t count, const std::string &piece)
{
    std::string text;
    while (count-- > 0)
        text += piece;
    return text;
}

static const struct {
    const char *label;
    std::string jis;
    const char *sjis; /* null: refused */
} rows[] = {
    {"nothing", "", ""},
    {"printable ASCII", " a~", " a~"},
    {"Japanese", "\x1b$BF|K\\\x1b(B", "\x93\xFA\x96\x7B"},
    {"the old set", "\x1b$@F|K\\\x1b(J", "\x93\xFA\x96\x7B"},
    {"both", "a\x1b$BF|\x1b(B z", "a\x93\xFA z"},
    {"entered twice", "\x1b$BF|\x1b$BK\\\x1b(B", "\x93\xFA\x96\x7B"},
    {"first and last code", "\x1b$B!!~~\x1b(B", "\x81\x40\xEF\xFC"},
    {"trail bytes on both sides of 0x7F and 0x9F", "\x1b$B!_!`!~\"!\x1b(B",
     "\x81\x7E\x81\x80\x81\x9E\x81\x9F"},
    {"lead bytes on both sides of the katakana", "\x1b$B^~_!\x1b(B", "\x9F\xFC\xE0\x40"},
    {"half-width katakana", "\x1b(I1\x1b(B", "\x83\x41"},
    {"half-width first and last", "\x1b(I!_\x1b(B", "\x81\x42\x81\x4B"},
    {"katakana behind a run", "\x1b$BF|\x1b(I1\x1b$BF|\x1b(B", "\x93\xFA\x83\x41\x93\xFA"},
    {"empty runs", "\x1b$B\x1b(I\x1b(B", ""},
    {"any set of one byte is ASCII",
     "\x1b(Aa\x1b(\x01"
     "b",
     "ab"},
    {"half a character in front of an escape", "\x1b$BF|K\x1b(Ba",
     "\x93\xFA"
     "a"},
    {"line end", "a\n", nullptr},
    {"tab", "a\tb", nullptr},
    {"0x7F", "\x7f", nullptr},
    {"top bit", "\x80", nullptr},
    {"run without its end", "\x1b$BF|", nullptr},
    {"run that stops inside a character", "\x1b$BF", nullptr},
    {"katakana run without its end", "\x1b(I1", nullptr},
    {"katakana run with a blank", "\x1b(I1 2\x1b(B", nullptr},
    {"katakana run with 0x60", "\x1b(I`\x1b(B", nullptr},
    {"katakana run with a line end", "\x1b(I1\n\x1b(B", nullptr},
    {"another two-byte set", "\x1b$(D\"/\x1b(B", nullptr},
    {"another two-byte set, short form", "\x1b$AF|\x1b(B", nullptr},
    {"escape that is none", "\x1b.A", nullptr},
    {"ESC alone", "a\x1b", nullptr},
    {"escape cut short", "a\x1b$", nullptr},
    {"other escape cut short", "a\x1b(", nullptr},
};

TEST(Jis2Sjis, ConvertsRunByRunOrRefuses)
{
    for (const auto &row : rows) {
        std::string in = row.jis;
        GuardedOutput out(64);
        const char *result = jis2sjis(in.data(), out.data(), 64);
        if (row.sjis == nullptr) {
            EXPECT_EQ(nullptr, result) << row.label;
        } else {
            EXPECT_EQ(out.data(), result) << row.label;
            EXPECT_TRUE(out.holds(row.sjis)) << row.label;
        }
    }
}

TEST(Jis2Sjis, LeavesTopBitsInItsInput)
{
    std::string in = "a\x1b$B" + repeated(10, "F|") + "\x1b(I1\x1b(Bb";
    GuardedOutput out(64);
    EXPECT_NE(nullptr, jis2sjis(in.data(), out.data(), 64));
    EXPECT_EQ(hex("a\x1b$B" + repeated(10, "\xC6\xFC") + "\x1b(I1\x1b(Bb"), hex(in));
    /* and takes them for what they were */
    GuardedOutput again(64);
    EXPECT_NE(nullptr, jis2sjis(in.data(), again.data(), 64));
    EXPECT_STREQ(out.data(), again.data());
}

TEST(Jis2Sjis, CalculatesWithAnyPairOfBytes)
{
    std::string in = "\x1b$B\n\n\x80\xFF"
                     "F\n\x1b(B";
    GuardedOutput out(64);
    EXPECT_NE(nullptr, jis2sjis(in.data(), out.data(), 64));
    EXPECT_TRUE(out.holds("\x35\x08\x70\xFD\x93\x08"));
}

TEST(Jis2Sjis, ConvertsEveryCharacterByRowAndCell)
{
    for (unsigned jis = 0x2121; jis <= 0x7E7E; ++jis) {
        if ((jis & 0xFF) < 0x21 || (jis & 0xFF) > 0x7E) continue;
        const uint16_t code = reference::sjis_of_jis(static_cast<uint16_t>(jis));
        const std::string sjis = {static_cast<char>(code >> 8), static_cast<char>(code)};
        const std::string pair = {static_cast<char>(jis >> 8), static_cast<char>(jis)};
        for (const size_t count : {1, 8, 9}) {
            std::string in = "\x1b$B" + repeated(count, pair) + "\x1b(B";
            GuardedOutput out(64);
            ASSERT_NE(nullptr, jis2sjis(in.data(), out.data(), 64)) << hex(pair);
            ASSERT_TRUE(out.holds(repeated(count, sjis))) << hex(pair);
        }
    }
}

TEST(Jis2Sjis, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    const std::string kanji = repeated(20, "F|"), ascii = "abcdefghijklmnopqrstuvwxyz";
    for_each_pair(
        {{"", ""},
         {ascii, ascii},
         {"\x1b$B", "\x1b(B"},
         {"\x1b$B" + kanji, kanji + "\x1b(B"},
         {"\x1b(I", "\x1b(B"},
         {"\x1b(I3", "^6_\x1b(B"},
         {"\x1b", "F|\x1b(Ba"}},
        [](const std::string &text) { ASSERT_TRUE(jis2sjis_agrees(text, ample_size(text))); });
}

TEST(Jis2Sjis, AgreesWithTheReferenceOnEveryChangeOfSet)
{
    const std::vector<std::string> pieces = {
        "\x1b$B", "\x1b$@", "\x1b(B", "\x1b(J", "\x1b(I", "\x1b$(D",  "\x1b",
        "F|",     "a",      "3^",     "J_",     "\n",     "\xC6\xFC", repeated(9, "F|")};
    for (const std::string &p1 : pieces)
        for (const std::string &p2 : pieces)
            for (const std::string &p3 : pieces)
                for (const std::string &p4 : pieces)
                    ASSERT_TRUE(jis2sjis_agrees(p1 + p2 + p3 + p4 + "\x1b(B", 200));
}

TEST(Jis2Sjis, AgreesWithTheReferenceOnKanaAndMarksInEveryOrder)
{
    for_each_text("3@JN^_!`", 4, [](const std::string &text) {
        ASSERT_TRUE(jis2sjis_agrees("\x1b(I" + text + "\x1b(B", 64));
    });
}

static const std::string limit_texts[] = {
    "",
    "a",
    "abcdefghijklmnopqrstuvwxyz",
    "\x1b$BF|\x1b(B",
    "\x1b(I6^1^\x1b(B",
    "ab\x1b$B" + repeated(20, "F|") + "\x1b(I1\x1b(B" + std::string(40, 'x'),
    "\x1b$B" + repeated(20, "F|"),
};

TEST(Jis2Sjis, StopsInsideItsLimitWhateverThatIs)
{
    for (const std::string &text : limit_texts) {
        for (int limit = -5; limit <= ample_size(text); ++limit)
            ASSERT_TRUE(jis2sjis_agrees(text, limit));
        ASSERT_TRUE(jis2sjis_agrees(text, INT_MIN));
    }
}

TEST(Jis2Sjis, RefusesATextThatReachesItsLimit)
{
    GuardedOutput out(4);
    std::string ascii = "abcd", kanji = "a\x1b$BF|\x1b(B";
    EXPECT_EQ(nullptr, jis2sjis(ascii.data(), out.data(), 4));
    ascii = "abc";
    EXPECT_EQ(out.data(), jis2sjis(ascii.data(), out.data(), 4));
    EXPECT_EQ(nullptr, jis2sjis(kanji.data(), out.data(), 3));
    EXPECT_EQ(out.data(), jis2sjis(kanji.data(), out.data(), 4));
    EXPECT_TRUE(out.holds("a\x93\xFA"));
}

TEST(Jis2Sjis, AgreesWithTheReferenceWhereverTheTextIsCut)
{
    const std::string &text = limit_texts[5];
    for (size_t size = 0; size <= text.size(); ++size) {
        ASSERT_TRUE(jis2sjis_agrees(text.substr(0, size), 200));
        ASSERT_TRUE(jis2sjis_agrees(text.substr(0, size) + "\x1b(B", 200));
    }
}

/* Well-formed text in which nothing is rare. */
static std::string random_jis(std::mt19937 *random)
{
    std::string text;
    for (unsigned runs = (*random)() % 6; runs > 0; --runs) {
        const unsigned kind = (*random)() % 4;
        if (kind < 2) text += kind == 0 ? "\x1b$B" : "\x1b$@";
        if (kind == 2) text += "\x1b(I";
        for (unsigned length = (*random)() % 40; length > 0; --length) {
            if (kind < 2) text += static_cast<char>((*random)() % 94 + 0x21);
            if (kind < 2) text += static_cast<char>((*random)() % 94 + 0x21);
            if (kind == 2) text += static_cast<char>((*random)() % 63 + 0x21);
            if (kind == 3) text += static_cast<char>((*random)() % 95 + 0x20);
        }
        if (kind < 3) text += "\x1b(B";
    }
    return text;
}

TEST(Jis2Sjis, AgreesWithTheReferenceOnChangedBytesAndLimits)
{
    std::mt19937 random(6);
    for (int round = 0; round < 4000; ++round) {
        std::string text = random_jis(&random);
        ASSERT_TRUE(jis2sjis_agrees(text, ample_size(text)));
        if (text.empty()) continue;
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
        ASSERT_TRUE(jis2sjis_agrees(text, ample_size(text)));
        ASSERT_TRUE(jis2sjis_agrees(text, static_cast<int>(random() % (text.size() + 8))));
    }
}

TEST(Jis2Sjis, BringsBackWhatSjis2JisMade)
{
    std::mt19937 random(7);
    for (int round = 0; round < 500; ++round) {
        std::string sjis;
        for (unsigned length = random() % 60; length > 0; --length) {
            const unsigned jis = (random() % 94 + 0x21) << 8 | (random() % 94 + 0x21);
            const uint16_t code = reference::sjis_of_jis(static_cast<uint16_t>(jis));
            if (random() % 5 == 0)
                sjis += static_cast<char>(random() % 95 + 0x20);
            else
                sjis += {static_cast<char>(code >> 8), static_cast<char>(code)};
        }
        GuardedOutput jis(static_cast<size_t>(ample_size(sjis))), back(sjis.size() + 1);
        sjis2jis(sjis.c_str(), jis.data(), ample_size(sjis) - 11);
        ASSERT_EQ(back.data(),
                  jis2sjis(jis.data(), back.data(), static_cast<int>(sjis.size()) + 1));
        ASSERT_TRUE(back.holds(sjis));
    }
}
