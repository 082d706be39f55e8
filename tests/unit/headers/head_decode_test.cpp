/* Encoded words to JIS text. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "tests/support/log_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;
using Lines = std::vector<string>;

#define NIHON "=?ISO-2022-JP?B?GyRCRnxLXBsoQg==?="
#define NIHON_JIS KANJI "F|K\\" ASCII

static string decoded(const string &in, int size = LINE_SIZE)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    const int result = decode(in.c_str(), buffer.data(), size);
    EXPECT_TRUE(buffer.intact()) << in << size;
    EXPECT_TRUE(size == 0 || buffer.terminated()) << in << size;
    return result == 0 ? buffer.data() : "FAIL";
}

TEST(Decode, Table)
{
    static const struct {
        const char *label, *in, *out;
    } rows[] = {
        {"empty", "", ""},
        {"plain", "Hello  World ", "Hello  World "},
        {"base64", NIHON, NIHON_JIS},
        {"quoted-printable", "=?ISO-2022-JP?Q?=1B$BF|K\\=1B(B?=", NIHON_JIS},
        {"lower case", "=?iso-2022-jp?b?GyRCRnxLXBsoQg==?=", NIHON_JIS},
        {"lower case q", "=?iso-2022-jp?q?=1b$BF|K\\=1b(B?=", NIHON_JIS},
        {"text around", "a" NIHON "b", "a" NIHON_JIS "b"},
        {"blanks around", " a " NIHON " b ", " a " NIHON_JIS " b "},
        {"adjacent words", NIHON NIHON, NIHON_JIS NIHON_JIS},
        {"blanks between words", NIHON "   " NIHON, NIHON_JIS NIHON_JIS},
        {"tab between words", NIHON "\t" NIHON, NIHON_JIS "\t" NIHON_JIS},
        {"tab and blank between words", NIHON " \t " NIHON, NIHON_JIS " \t " NIHON_JIS},
        {"blanks before the first word", "  " NIHON, "  " NIHON_JIS},
        {"blanks behind the last word", NIHON "  ", NIHON_JIS "  "},
        {"three words", NIHON " " NIHON "  " NIHON, NIHON_JIS NIHON_JIS NIHON_JIS},
        {"blank before a foreign word", NIHON " =?UTF-8?B?5Lya?=", NIHON_JIS " =?UTF-8?B?5Lya?="},
        {"foreign charset", "=?UTF-8?Q?=41?= " NIHON, "=?UTF-8?Q?=41?= " NIHON_JIS},
        {"foreign encoding", "=?ISO-2022-JP?X?abc?=", "=?ISO-2022-JP?X?abc?="},
        {"longer charset", "=?ISO-2022-JP-2?B?QQ==?=", "=?ISO-2022-JP-2?B?QQ==?="},
        {"no closing", "x =?ISO-2022-JP?B?GyRC", "x =?ISO-2022-JP?B?GyRC"},
        {"prefix alone", "=?ISO-2022-JP?B?", "=?ISO-2022-JP?B?"},
        {"prefix cut", "=?ISO-2022-JP?B", "=?ISO-2022-JP?B"},
        {"prefix cut before the encoding", "=?ISO-2022-JP?", "=?ISO-2022-JP?"},
        {"prefix and half a closing", "=?ISO-2022-JP?B?=", "=?ISO-2022-JP?B?="},
        {"Q text that begins with an escape", "=?ISO-2022-JP?Q?=1B?=", ESC},
        {"Q prefix, escape, no closing", "=?ISO-2022-JP?Q?=1B", "=?ISO-2022-JP?Q?=1B"},
        {"empty base64 word",
         "a=?ISO-2022-JP?B?"
         "?=b",
         "ab"},
        {"empty Q word",
         "a=?ISO-2022-JP?Q?"
         "?=b",
         "ab"},
        {"kanji left open is closed", "=?ISO-2022-JP?B?GyRCRnxLXA==?=", NIHON_JIS},
        {"closing in front of a word", "?= " NIHON, "?= " NIHON_JIS},
        {"equals signs", "==?==?=?", "==?==?=?"},
        {"prefix doubled", "=" NIHON, "=" NIHON_JIS},
        {"underscore is no blank", "=?ISO-2022-JP?Q?a_b?=", "a_b"},
        {"eight-bit", "\x80\xff" NIHON, "\x80\xff" NIHON_JIS},
    };
    take_log();
    for (const auto &row : rows) {
        EXPECT_EQ(decoded(row.in), row.out) << row.label;
        EXPECT_EQ(take_log_lines(), Lines()) << row.label;
    }
}

TEST(Decode, AnUnclosedWordGoesToTheNextClosing)
{
    EXPECT_EQ(decoded("=?ISO-2022-JP?Q?a =?ISO-2022-JP?Q?b?= c"), "a =?ISO-2022-JP?Q?b c");
    EXPECT_EQ(take_log_lines(), Lines{"3/131 Can't Translate Hex to Character ?I"});
}

TEST(Decode, ANulHiddenInAWordEndsItsText)
{
    EXPECT_EQ(decoded("=?ISO-2022-JP?B?YQBi?=c"), "ac");
}

TEST(Decode, ALineEndHiddenInAWordIsABlank)
{
    EXPECT_EQ(decoded("=?ISO-2022-JP?Q?a=0D=0Ab?="), "a  b");
    EXPECT_EQ(decoded("a\rb"), "a\rb") << "only a word can hide one";
}

TEST(Decode, TheInputMustFit)
{
    take_log();
    for (int size = 0; size < 8; ++size) {
        EXPECT_EQ(decoded("Hello", size), size >= 6 ? "Hello" : "FAIL");
        EXPECT_EQ(take_log_lines(), size >= 6 ? Lines() : Lines{"1/325 strings too long (decode)"});
    }
    const string word = NIHON " " NIHON;
    for (int size = 0; size < 120; ++size)
        EXPECT_EQ(decoded(word, size),
                  size > static_cast<int>(word.size()) ? NIHON_JIS NIHON_JIS : "FAIL");
    take_log();
}

TEST(Decode, ShortWordsLeftOpenStillFit)
{
    /* Each word gains an escape sequence; the output may never pass the input. */
    string in, out;
    for (int i = 0; i < 100; ++i) {
        in += "=?ISO-2022-JP?B?GyRC?=";
        out += KANJI ASCII;
    }
    EXPECT_EQ(decoded(in, static_cast<int>(in.size()) + 1), out);
}

TEST(Decode, AWordLongerThanALineFails)
{
    take_log();
    const string text(4095, 'x');
    EXPECT_EQ(decoded("=?ISO-2022-JP?Q?" + text + "?=", 5000), text);
    EXPECT_EQ(decoded("=?ISO-2022-JP?Q?" + text + "x?=", 5000), "FAIL");
    EXPECT_EQ(take_log_lines(), Lines{"1/325 strings too long (decode)"});
}

TEST(Decode, ABrokenWordFails)
{
    take_log();
    EXPECT_EQ(decoded("a =?ISO-2022-JP?B?@@?= b"), "FAIL");
    EXPECT_TRUE(logged(323, "base64_decode fail"));
    take_log();
    EXPECT_EQ(decoded("a =?ISO-2022-JP?Q?=4?= b"), "FAIL");
    EXPECT_TRUE(logged(324, "quoted_printable_decode fail"));
    const std::vector<LogLine> lines = take_log();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().level, 3);
}

TEST(Decode, HostileTextsStayWithinTheBuffer)
{
    const std::vector<string> parts = {"=?ISO-2022-JP?B?",
                                       "=?iso-2022-jp?q?",
                                       "?=",
                                       "?",
                                       "=",
                                       " ",
                                       "=1B$B",
                                       "GyRC",
                                       "\t",
                                       "A",
                                       "@",
                                       ESC,
                                       "\xff",
                                       "=0D=0A"};
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        string in;
        for (uint32_t i = random.below(30); i > 0; --i)
            in += parts[random.below(static_cast<uint32_t>(parts.size()))];
        const int size = static_cast<int>(in.size()) + static_cast<int>(random.below(3));
        const string out = decoded(in, size);
        if (out != "FAIL") {
            ASSERT_LE(out.size(), in.size());
        }
    }
    take_log();
}
