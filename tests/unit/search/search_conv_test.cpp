/* Conversions of criteria and messages to EUC-JP. */
#include <gtest/gtest.h>

#include "archive/search.h"
#include "tests/support/log_capture.h"

using Convert = bool (*)(const char *, size_t, GrowingText *);

static std::string converted(Convert convert, const std::string &text)
{
    GrowingText out;
    EXPECT_TRUE(convert(text.data(), text.size(), &out));
    return out.count() > 0 ? std::string(out.items(), out.count()) : "";
}

static const struct {
    const char *label;
    Convert convert;
    std::string in, out;
} rows[] = {
    {"JIS: a run", search_jis2euc, "a\x1b$B$\"\x1b(Bb",
     "a\xa4\xa2"
     "b"},
    {"JIS: line ends are dropped, also in a run", search_jis2euc, "\x1b$B$\"\r\n$$\x1b(B\nx",
     "\xa4\xa2\xa4\xa4x"},
    {"JIS: the old escape", search_jis2euc, "\x1b$@$\"\x1b(J", "\xa4\xa2"},
    {"JIS: half an escape ends the text", search_jis2euc, "ab\x1b$", "ab"},
    {"EUC: also a CR or LF alone", search_euc2euc, "\n\ra\rb\r\rc\n\nd\r", "abcd"},
    {"JIS: an escape behind an escape", search_jis2euc, "\x1b$B\x1b(B\x1b$B$\"", "\xa4\xa2"},
    {"JIS: a line end at every place", search_jis2euc, "\n\x1b$B\r$\n\"\r\n\x1b(B\r", "\xa4\xa2"},
    {"SJIS: line ends are dropped", search_sjis2euc, "\r\na\r\x82\xa0\nb\n",
     "a\xa4\xa2"
     "b"},
    {"EUC: line ends are dropped", search_euc2euc, "\xa4\xa2\r\n\xa4\xa4", "\xa4\xa2\xa4\xa4"},
    {"SJIS: two-byte characters", search_sjis2euc, "a\x82\xa0\x88\x9f", "a\xa4\xa2\xb0\xa1"},
    {"SJIS: half-width kana become wide", search_sjis2euc, "\xb1", "\xa5\xa2"},
    {"SJIS: a voiced mark is merged", search_sjis2euc, "\xb6\xde\xb1\xde",
     "\xa5\xac\xa5\xa2\xa1\xab"},
    {"SJIS: half a character at the end is dropped", search_sjis2euc, "a\x82", "a"},
    {"SJIS: rows that JIS lacks stay", search_sjis2euc, "\xf0\x40", "\xf0\x40"},
    {"SJIS: a broken pair stays", search_sjis2euc, "\x82\x20", "\x82 "},
    {"base64", search_b64_dec, "QUJD\r\nREU=trailing", "ABCDE"},
    {"base64: one and two characters left", search_b64_dec, "QQ", "A"},
    {"base64: nothing", search_b64_dec, "====", ""},
    {"Q", search_q_dec, "a_b=41=4g=", "a bA=4g="},
    {"an encoded word", search_mime_decode, "x =?ISO-2022-JP?B?GyRCJCIbKEI=?= y", "x \xa4\xa2 y"},
    {"blanks between words go", search_mime_decode,
     "=?iso-2022-jp?b?GyRCJCIbKEI=?=\r\n =?EUC-JP?Q?=A4=A4?= z", "\xa4\xa2\xa4\xa4 z"},
    {"Shift_JIS", search_mime_decode, "=?Shift_JIS?Q?=82=A0?=", "\xa4\xa2"},
    {"other charsets stay", search_mime_decode, "=?UTF-8?Q?a?=", "=?UTF-8?Q?a?="},
    {"a word without end stays", search_mime_decode, "=?EUC-JP?Q?a", "=?EUC-JP?Q?a"},
    {"empty words", search_mime_decode, "=?ISO-2022-JP?Q?\?= =?Shift_JIS?B?\?= =?EUC-JP?Q?\?=x",
     "x"},
    {"an equals sign alone", search_mime_decode, "a=?=?b", "a=?=?b"},
};

TEST(SearchConversion, GivesEucText)
{
    for (const auto &row : rows)
        EXPECT_EQ(row.out, converted(row.convert, row.in)) << row.label;
}

TEST(SearchConversion, AForeignCharacterInBase64IsLoggedAndSkipped)
{
    (void)take_log();
    EXPECT_EQ("ABC", converted(search_b64_dec, "QU*JD"));
    EXPECT_TRUE(logged(812, "search_b64_dec: illegal character"));
}

TEST(SearchConversion, TakesAnyBytesOfAnyLength)
{
    for (const Convert convert : {search_jis2euc, search_sjis2euc, search_euc2euc, search_b64_dec,
                                  search_q_dec, search_mime_decode})
        for (unsigned a = 0; a < 256; ++a)
            for (unsigned b = 0; b < 256; ++b) {
                const char text[2] = {static_cast<char>(a), static_cast<char>(b)};
                GrowingText out;
                EXPECT_TRUE(convert(text, 1, &out));
                EXPECT_TRUE(convert(text, 2, &out));
            }
}
