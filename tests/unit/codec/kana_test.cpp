/* Half-width katakana: the tables, and sound marks in all three converters. */
#include "codec/conv_kana.h"

#include "codec/conv.h"
#include "tests/reference/jis.h"
#include "tests/unit/codec/codec_calls.h"

TEST(KanaTables, NameTheSameCharactersInBothCodes)
{
    for (unsigned i = 0; i < 63; ++i) {
        const unsigned char kana = static_cast<unsigned char>(0xA1 + i);
        EXPECT_EQ(reference::jis_of_kana(kana, 0), jis_hk2zk[i]) << i;
        EXPECT_EQ(reference::sjis_of_jis(jis_hk2zk[i]), sjis_hk2zk[i]) << i;
    }
}

TEST(KanaTables, HoldTheEscapes)
{
    EXPECT_STREQ("\x1b$B", g_kin);
    EXPECT_STREQ("\x1b$@", g_kin2);
    EXPECT_STREQ("\x1b(B", g_kout);
    EXPECT_STREQ("\x1b(J", g_kout2);
}

TEST(WideKana, TakesAMarkOnlyWhereItBelongs)
{
    for (unsigned kana = KANA_FIRST; kana <= KANA_LAST; ++kana)
        for (unsigned next = 0; next <= 0xFF; ++next) {
            const unsigned char k = static_cast<unsigned char>(kana);
            const unsigned char n = static_cast<unsigned char>(next);
            const uint16_t merged =
                n == 0xDE || n == 0xDF ? reference::jis_of_kana(k, n) : uint16_t{0};
            const uint16_t code = merged != 0 ? merged : reference::jis_of_kana(k, 0);
            const WideKana jis = jis_wide_kana(k, n), sjis = sjis_wide_kana(k, n);
            EXPECT_EQ(merged != 0, jis.took_mark) << kana << " " << next;
            EXPECT_EQ(merged != 0, sjis.took_mark) << kana << " " << next;
            EXPECT_EQ(code, jis.code) << kana << " " << next;
            EXPECT_EQ(reference::sjis_of_jis(code), sjis.code) << kana << " " << next;
        }
}

static const struct {
    const char *label, *sjis, *euc, *jis7, *jis, *wide_sjis;
} mark_rows[] = {
    {"ka and voiced mark are ga", "\xB6\xDE", "\x8E\xB6\x8E\xDE", "6^", "%,", "\x83\x4B"},
    {"ha and voiced mark are ba", "\xCA\xDE", "\x8E\xCA\x8E\xDE", "J^", "%P", "\x83\x6F"},
    {"ha and semi-voiced mark are pa", "\xCA\xDF", "\x8E\xCA\x8E\xDF", "J_", "%Q", "\x83\x70"},
    {"ho and semi-voiced mark are po", "\xCE\xDF", "\x8E\xCE\x8E\xDF", "N_", "%]", "\x83\x7C"},
    {"u and voiced mark are vu", "\xB3\xDE", "\x8E\xB3\x8E\xDE", "3^", "%t", "\x83\x94"},
    {"a and voiced mark stay two", "\xB1\xDE", "\x8E\xB1\x8E\xDE", "1^", "%\"!+",
     "\x83\x41\x81\x4A"},
    {"ka and semi-voiced mark stay two", "\xB6\xDF", "\x8E\xB6\x8E\xDF", "6_", "%+!,",
     "\x83\x4A\x81\x4B"},
    {"a mark alone", "\xDE", "\x8E\xDE", "^", "!+", "\x81\x4A"},
    {"a second mark stays", "\xB6\xDE\xDE", "\x8E\xB6\x8E\xDE\x8E\xDE", "6^^", "%,!+",
     "\x83\x4B\x81\x4A"},
    {"ta, chi, tsu", "\xC0\xDE\xC1\xDE\xC2\xDE", "\x8E\xC0\x8E\xDE\x8E\xC1\x8E\xDE\x8E\xC2\x8E\xDE",
     "@^A^B^", "%@%B%E", "\x83\x5F\x83\x61\x83\x64"},
};

TEST(WideKana, ComesOutOfEveryConverter)
{
    for (const auto &row : mark_rows) {
        const std::string jis = std::string("\x1b$B") + row.jis + "\x1b(B";
        GuardedOutput out(64);
        sjis2jis(row.sjis, out.data(), 40);
        EXPECT_TRUE(out.holds(jis)) << row.label;
        EXPECT_EQ(0, euc2jis(row.euc, out.data(), 64)) << row.label;
        EXPECT_TRUE(out.holds(jis)) << row.label;
        std::string seven = std::string("\x1b(I") + row.jis7 + "\x1b(B";
        EXPECT_NE(nullptr, jis2sjis(seven.data(), out.data(), 64)) << row.label;
        EXPECT_TRUE(out.holds(row.wide_sjis)) << row.label;
    }
}
