/* EUC-JP to JIS. */
#include <random>

#include "codec/conv.h"
#include "tests/reference/jis.h"
#include "tests/unit/codec/codec_calls.h"

using namespace std::string_literals;

static const std::string pairs(size_t count, const std::string &pair)
{
    std::string text;
    while (count-- > 0)
        text += pair;
    return text;
}

static const struct {
    const char *label;
    std::string euc, jis;
} rows[] = {
    {"nothing", "", ""},
    {"ASCII and its controls", "a\r\n\t\x7f", "a\r\n\t\x7f"},
    {"Japanese", "\xC6\xFC\xCB\xDC", "\x1b$BF|K\\\x1b(B"},
    {"both", "a\xC6\xFC z", "a\x1b$BF|\x1b(B z"},
    {"two runs", "\xC6\xFC\n\xCB\xDC", "\x1b$BF|\x1b(B\n\x1b$BK\\\x1b(B"},
    {"half-width katakana", "\x8E\xB1", "\x1b$B%\"\x1b(B"},
    {"half-width inside a run", "\xC6\xFC\x8E\xB1\xCB\xDC", "\x1b$BF|%\"K\\\x1b(B"},
    {"lone lead byte", "\xC6", ""},
    {"lone lead byte behind a run", "\xC6\xFC\xCB", "\x1b$BF|\x1b(B"},
    {"lone lead byte behind ASCII", "a\xC6", "a"},
    {"single shift of nothing", "a\x8E", "a"},
    {"single shift of ASCII",
     "\x8E"
     "a",
     "a"},
    {"single shift inside a run", "\xC6\xFC\x8E\xFE\xA1", "\x1b$BF|~!\x1b(B"},
    {"single shift three is copied", "\x8F\xC6\xFC", "\x8F\x1b$BF|\x1b(B"},
    {"single shift three leaves the run", "\xC6\xFC\x8F", "\x1b$BF|\x1b(B\x8F"},
    {"bytes below 0xA1", "\x80\x9F\xA0", "\x80\x9F\xA0"},
    {"escapes are bytes like others", "\x1b$Ba", "\x1b$Ba"},
};

TEST(Euc2Jis, ConvertsRunByRun)
{
    for (const auto &row : rows) {
        GuardedOutput out(static_cast<size_t>(ample_size(row.euc)));
        EXPECT_EQ(0, euc2jis(row.euc.c_str(), out.data(), ample_size(row.euc))) << row.label;
        EXPECT_TRUE(out.holds(row.jis)) << row.label;
    }
}

TEST(Euc2Jis, TakesWhateverFollowsALeadByte)
{
    GuardedOutput out(64);
    EXPECT_EQ(0, euc2jis("\xC6\n\xC6\x8E\xB1", out.data(), 64));
    EXPECT_TRUE(out.holds("\x1b$BF\nF\x0e\x1b(B"));
    EXPECT_EQ(0, euc2jis("\xC6\x80z", out.data(), 64));
    EXPECT_TRUE(out.holds("\x1b$BF\0\x1b(Bz"s));
}

TEST(Euc2Jis, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    const std::string kanji = pairs(20, "\xC6\xFC"), ascii = "abcdefghijklmnopqrstuvwxyz";
    for_each_pair(
        {{"", ""},
         {kanji, kanji},
         {ascii, ascii},
         {kanji + "\xCB\xDC", ascii},
         {ascii + "x", kanji},
         {"\x8E\xB6", "\x8E\xDE"}},
        [](const std::string &text) { ASSERT_TRUE(euc2jis_agrees(text, ample_size(text))); });
}

TEST(Euc2Jis, AgreesWithTheReferenceOnShiftsAndMarksInEveryOrder)
{
    for_each_text("a\x8E\x8F\xB3\xB6\xCA\xDE\xDF\xA0\xA1\xFE", 5, [](const std::string &text) {
        ASSERT_TRUE(euc2jis_agrees(text, ample_size(text)));
    });
}

TEST(Euc2Jis, AgreesWithTheReferenceOnEveryThreeByteTextBehindAShift)
{
    for (int first = 1; first <= 0xFF; ++first)
        for (int second = 1; second <= 0xFF; ++second) {
            const std::string middle = {'\x8E', static_cast<char>(first),
                                        static_cast<char>(second)};
            ASSERT_TRUE(euc2jis_agrees(middle, 64));
            ASSERT_TRUE(euc2jis_agrees(middle + "\xDE", 64));
            ASSERT_TRUE(euc2jis_agrees("\xC6\xFC" + middle + "\xDF", 64));
        }
}

static const std::string limit_texts[] = {
    "",
    "a",
    "\xC6\xFC",
    "\xC6",
    "\x8E\xB6\x8E\xDE",
    "ab\xC6\xFC\xCB\xDC"
    "cd\x8E\xB1 \xC6",
    pairs(30, "\xC6\xFC") + "\n",
    std::string(50, 'x') + pairs(17, "\xA4\xA2") + std::string(20, 'y') + "\x8E\xB3\x8E\xDE",
};

TEST(Euc2Jis, StopsInsideItsSizeWhateverThatIs)
{
    for (const std::string &text : limit_texts) {
        const int needed = static_cast<int>(reference::euc2jis(text, 1 << 20).output.size()) + 1;
        GuardedOutput out(static_cast<size_t>(needed));
        EXPECT_EQ(-1, euc2jis(text.c_str(), out.data(), needed - 1)) << hex(text);
        EXPECT_EQ(0, euc2jis(text.c_str(), out.data(), needed)) << hex(text);
        for (int size = -2; size <= needed + 20; ++size)
            ASSERT_TRUE(euc2jis_agrees(text, size));
    }
}

TEST(Euc2Jis, IsShorterButEndedWithoutRoomForTheClosingEscape)
{
    GuardedOutput out(8);
    EXPECT_EQ(-1, euc2jis("\xC6\xFC", out.data(), 8));
    EXPECT_TRUE(out.holds("\x1b$BF|"));
}

TEST(Euc2Jis, AgreesWithTheReferenceWhereverTheTextIsCut)
{
    const std::string text = limit_texts[5] + limit_texts[7] + limit_texts[6];
    for (size_t from = 0; from < 20; ++from)
        for (size_t size = 0; size <= text.size() - from; ++size)
            ASSERT_TRUE(euc2jis_agrees(text.substr(from, size), ample_size(text)));
}

/* Well-formed text in which nothing is rare. */
static std::string random_euc(std::mt19937 *random)
{
    std::string text;
    for (unsigned runs = (*random)() % 6; runs > 0; --runs) {
        const unsigned kind = (*random)() % 4;
        for (unsigned length = (*random)() % 40; length > 0; --length) {
            const unsigned char a = static_cast<unsigned char>((*random)() % 94 + 0xA1),
                                b = static_cast<unsigned char>((*random)() % 94 + 0xA1),
                                k = static_cast<unsigned char>((*random)() % 63 + 0xA1);
            if (kind < 2) text += {static_cast<char>(a), static_cast<char>(b)};
            if (kind == 2) text += static_cast<char>((*random)() % 127 + 1);
            if (kind == 3) text += {'\x8E', static_cast<char>(k)};
        }
    }
    return text;
}

TEST(Euc2Jis, AgreesWithTheReferenceOnChangedBytesAndSizes)
{
    std::mt19937 random(4);
    for (int round = 0; round < 4000; ++round) {
        std::string text = random_euc(&random);
        ASSERT_TRUE(euc2jis_agrees(text, ample_size(text)));
        if (text.empty()) continue;
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
        ASSERT_TRUE(euc2jis_agrees(text, ample_size(text)));
        ASSERT_TRUE(euc2jis_agrees(text, static_cast<int>(random() % (text.size() * 2 + 8))));
    }
}
