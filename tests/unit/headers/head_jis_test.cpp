/* Measuring and cutting JIS text. */
#include "headers/head.h"

#include <gtest/gtest.h>

#include "tests/unit/headers/header_job.h"

using std::string;

TEST(DoesEncode, LooksForAKanjiIn)
{
    static const struct {
        const char *text;
        int answer;
    } rows[] = {{"", 0},           {"abc", 0},     {"a" KANJI, 1},    {ESC "$@F|", 1}, {ASCII, 0},
                {ESC "(J", 0},     {ESC "(I1", 0}, {ESC "$A", 0},     {ESC, 0},        {ESC "$", 0},
                {ESC ESC "$B", 1}, {"$B", 0},      {ESC "$" KANJI, 1}};
    for (const auto &row : rows)
        EXPECT_EQ(does_encode(row.text), row.answer) << row.text;
}

TEST(MlistStrlen, CountsToTheFirstNul)
{
    EXPECT_EQ(mlist_strlen(""), 0);
    EXPECT_EQ(mlist_strlen("abc\0def"), 3);
    EXPECT_EQ(mlist_strlen(KANJI), 3);
}

struct CutRow {
    const char *label, *text;
    int limit, initial_mode, mode, cut;
};

static const CutRow cut_rows[] = {
    {"ASCII", "abcdef", 3, 0, 0, 3},
    {"exactly the text", "abc", 3, 0, 0, 3},
    {"text ends first", "abc", 4, 0, -1, 3},
    {"empty text", "", 1, 0, -1, 0},
    {"limit 0", "abc", 0, 0, 0, 0},
    {"negative limit", "abc", -1, 0, 0, 0},
    {"limit 0 in kanji", "F|", 0, 1, 1, 0},
    {"escapes do not count", "a" KANJI "F|" ASCII "bc", 4, 0, 0, 10},
    {"between two kanji", KANJI "F|K\\", 2, 0, 1, 5},
    {"within a kanji", KANJI "F|K\\", 3, 0, 1, 5},
    {"within the first kanji", KANJI "F|", 1, 0, 1, 3},
    {"before the kanji-out", KANJI "F|" ASCII "x", 2, 0, 1, 5},
    {"old kanji-in", ESC "$@F|K\\", 3, 0, 2, 5},
    {"kanji-out to JIS Roman", KANJI "F|" ESC "(Jab", 3, 0, 0, 9},
    {"begins in kanji", "F|K\\", 3, 1, 1, 2},
    {"begins in old kanji", "F|", 1, 2, 2, 0},
    {"count restarts at a kanji-in", KANJI "F|K" KANJI "8l8l", 4, 0, 1, 9},
    {"unknown escapes count", ESC "(Iab", 4, 0, 0, 4},
    {"lone escape at the end", "ab" ESC, 3, 0, 0, 3},
    {"lone escape, text ends", "ab" ESC, 4, 0, -1, 3},
    {"kanji-in at the end", "ab" KANJI, 3, 0, -1, 5},
};

TEST(Sprtjis, CutsWithoutSplittingACharacter)
{
    for (const CutRow &row : cut_rows) {
        int cut = -7;
        EXPECT_EQ(sprtjis(row.text, row.limit, row.initial_mode, &cut), row.mode) << row.label;
        EXPECT_EQ(cut, row.cut) << row.label;
    }
}

TEST(Sprtjis, AnyTextIsCutWithinItself)
{
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        const string text = random.text(random.below(60), string("\x1b\x1b$(B@JIab\xff"));
        const int limit = static_cast<int>(random.below(50));
        int cut = -7;
        const int mode = sprtjis(text.c_str(), limit, static_cast<int>(random.below(3)), &cut);
        ASSERT_GE(cut, 0);
        ASSERT_LE(cut, static_cast<int>(text.size()));
        ASSERT_TRUE(mode >= -1 && mode <= 2);
        if (mode >= 0) {
            ASSERT_GE(cut, limit - 1);
        }
    }
}
