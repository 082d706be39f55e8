/* Quoted-printable. */
#include <random>

#include "codec/conv.h"
#include "tests/support/log_capture.h"
#include "tests/unit/codec/codec_calls.h"

using namespace std::string_literals;

static const struct {
    const char *label;
    std::string text, encoded;
} encode_rows[] = {
    {"nothing", "", ""},
    {"plain text", "Hello, world!\n", "Hello, world!\n"},
    {"equals sign", "a=b", "a=3Db"},
    {"control characters", "\x01\r\x7f", "=01=0D=7F"},
    {"tab and blank inside", "a\tb c", "a\tb c"},
    {"blank at the end of a line", "ab \n", "ab =\n\n"},
    {"tab at the end of a line", "ab\t\n", "ab\t=\n\n"},
    {"blank line of blanks", " \n", " =\n\n"},
    {"blank at the end of the text", "ab ", "ab "},
    {"lone dot", ".\n", ".=\n\n"},
    {"lone dot in a later line", "a\n.\nb", "a\n.=\n\nb"},
    {"lone dot at the end of the text", ".", "."},
    {"two dots", "..\n", "..\n"},
    {"dot and blank", ". \n", ". =\n\n"},
    {"dot behind a blank", " .\n", " .\n"},
    {"From at the start", "From me", "From=20me"},
    {"From in a later line", "a\nFrom me\n", "a\nFrom=20me\n"},
    {"From inside a line", "a From me", "a From me"},
    {"From twice in a line", "From From ", "From=20From "},
    {"FROM", "FROM me", "FROM me"},
    {"From and a tab", "From\tme", "From\tme"},
    {"nothing behind the blank of From", "From \nx", "From=20=\n\nx"},
    {"almost From", "Fro m", "Fro m"},
};

TEST(QpEncode, ProtectsWhatTransportWouldChange)
{
    take_log();
    for (const auto &row : encode_rows) {
        GuardedOutput out(row.text.size() * 3 + 3);
        EXPECT_EQ(0, mlist_quoted_printable_encode(row.text.c_str(), out.data(), 76)) << row.label;
        EXPECT_TRUE(out.holds(row.encoded)) << row.label;
    }
    EXPECT_EQ(std::vector<std::string>{}, take_log_lines());
}

static const struct {
    const char *label;
    std::string text;
    int line_length;
    std::string encoded;
    const char *log;
} long_rows[] = {
    {"blank too many", "abc d", 3, "abc =\n", "3/128 String Too Long in Quoted Printable Encode1"},
    {"escaped blank of From too many", "From x", 6, "From=20=\n",
     "3/128 String Too Long in Quoted Printable Encode1"},
    {"escape too many", "abc=d", 5, "abc=3D=\n",
     "3/129 String Too Long in Quoted Printable Encode2"},
    {"character too many", "abcde", 4, "abcde=\n",
     "3/130 String Too Long in Quoted Printable Encode3"},
    {"second line too long", "abcd\nabcde", 4, "abcd\nabcde=\n",
     "3/130 String Too Long in Quoted Printable Encode3"},
    {"no line length at all", "a", 0, "a=\n", "3/130 String Too Long in Quoted Printable Encode3"},
    {"negative line length", "a", -5, "a=\n", "3/130 String Too Long in Quoted Printable Encode3"},
};

TEST(QpEncode, RefusesALineThatGrowsTooLong)
{
    take_log();
    for (const auto &row : long_rows) {
        GuardedOutput out(row.text.size() * 3 + 3);
        EXPECT_EQ(-1, mlist_quoted_printable_encode(row.text.c_str(), out.data(), row.line_length))
            << row.label;
        EXPECT_TRUE(out.holds(row.encoded)) << row.label;
        EXPECT_EQ(std::vector<std::string>{row.log}, take_log_lines()) << row.label;
    }
}

TEST(QpEncode, AllowsALineOfExactlyTheLength)
{
    GuardedOutput out(32);
    EXPECT_EQ(0, mlist_quoted_printable_encode("ab=\nabcde\n", out.data(), 5));
    EXPECT_TRUE(out.holds("ab=3D\nabcde\n"));
}

TEST(QpEncode, WritesOddDigitsForBytesAbove7F)
{
    GuardedOutput out(27);
    EXPECT_EQ(0, mlist_quoted_printable_encode("\x81\x92\xA3\xB4\xC5\xD6\xE7\xF8", out.data(), 76));
    EXPECT_TRUE(out.holds("=\0001=\n2=F3=r4=o5=m6= 7=\0008"s));
}

TEST(QpEncode, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    for_each_pair({{"", ""}, {"\n", "\n"}, {"From", " x\n"}, {"From ", "\n"}, {"ab", "\nFrom a"}},
                  [](const std::string &text) { ASSERT_TRUE(qp_encode_agrees(text, 76)); });
}

TEST(QpEncode, AgreesWithTheReferenceAtEveryLineLength)
{
    for_each_text("F\n .=\x80", 5, [](const std::string &text) {
        for (int line_length = -1; line_length <= 17; line_length += 2)
            ASSERT_TRUE(qp_encode_agrees(text, line_length));
    });
}

TEST(QpEncode, AgreesWithTheReferenceOnFromInAnyForm)
{
    for_each_text("From \n", 6,
                  [](const std::string &text) { ASSERT_TRUE(qp_encode_agrees(text, 76)); });
}

/* -- decoding -- */

static const struct {
    const char *label;
    std::string text, decoded;
    int result;
    const char *log; /* null for none */
} decode_rows[] = {
    {"nothing", "", "", 0, nullptr},
    {"plain text", "Hello\r\n", "Hello\r\n", 0, nullptr},
    {"escapes of both cases", "=41=6a=4F=4f", "AjOO", 0, nullptr},
    {"zero byte", "a=00b", "a\0b"s, 0, nullptr},
    {"soft break", "a=\nb", "ab", 0, nullptr},
    {"CR LF is no soft break", "a=\r\nb", "a=\r\nb", 0,
     "3/131 Can't Translate Hex to Character \r\n"},
    {"second digit wrong", "=4g", "=4g", 0, "3/131 Can't Translate Hex to Character 4g"},
    {"first digit wrong", "=g4", "=g4", 0, "3/131 Can't Translate Hex to Character g4"},
    {"an escape behind a broken one", "==41", "=A", 0, "3/131 Can't Translate Hex to Character =4"},
    {"digit above 0x7F", "=\xB1\xB1", "=\xB1\xB1", 0,
     "3/131 Can't Translate Hex to Character \xB1\xB1"},
    {"stops behind =", "ab=", "ab=", -1, "3/132 End of File after = in Quoted Printable Decode1"},
    {"stops behind a digit", "ab=4", "ab=4", -1,
     "3/133 End of File after = in Quoted Printable Decode2"},
    {"stops behind = =", "==", "==", -1, "3/133 End of File after = in Quoted Printable Decode2"},
};

TEST(QpDecode, CopiesWhatItCannotDecode)
{
    take_log();
    for (const auto &row : decode_rows) {
        GuardedOutput out(row.text.size() + 1);
        EXPECT_EQ(row.result, quoted_printable_decode(row.text.c_str(), out.data())) << row.label;
        EXPECT_TRUE(out.holds(row.decoded)) << row.label;
        std::vector<std::string> wanted;
        if (row.log != nullptr) wanted.push_back(row.log);
        EXPECT_EQ(wanted, take_log_lines()) << row.label;
    }
}

TEST(QpDecode, LogsTheFirstBrokenEscapeOfACallOnly)
{
    char out[32];
    take_log();
    for (int call = 0; call < 2; ++call) {
        EXPECT_EQ(0, quoted_printable_decode("=xy=41=zz", out));
        EXPECT_STREQ("=xyA=zz", out);
        EXPECT_EQ(std::vector<std::string>{"3/131 Can't Translate Hex to Character xy"},
                  take_log_lines());
    }
}

TEST(QpDecode, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    for_each_pair({{"", ""}, {"=", ""}, {"=", "x"}, {"a==", "41"}, {"=4", "="}},
                  [](const std::string &text) { ASSERT_TRUE(qp_decode_agrees(text)); });
}

TEST(QpDecode, AgreesWithTheReferenceOnEscapesInAnyForm)
{
    for_each_text("=4gA\n\r", 6,
                  [](const std::string &text) { ASSERT_TRUE(qp_decode_agrees(text)); });
}

TEST(QpDecode, MayDecodeATextInPlace)
{
    std::string text = "a=41=\nb=4gc=";
    EXPECT_EQ(-1, quoted_printable_decode(text.c_str(), text.data()));
    EXPECT_STREQ("aAb=4gc=", text.c_str());
    take_log();
}

TEST(QpDecode, AgreesWithTheReferenceOnChangedBytes)
{
    std::mt19937 random(3);
    for (int round = 0; round < 4000; ++round) {
        std::string text;
        for (unsigned i = random() % 40; i > 0; --i)
            text +=
                random() % 3 == 0 ? "=4a" : std::string(1, static_cast<char>(random() % 90 + 33));
        ASSERT_TRUE(qp_decode_agrees(text));
        if (text.empty()) continue;
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
        ASSERT_TRUE(qp_decode_agrees(text));
    }
}

/* -- one escape -- */

TEST(PutHexChar, WritesAByteOrSaysWhyNot)
{
    char text[4] = "";
    char *out = text;
    int reported = 0;
    take_log();
    EXPECT_EQ(0, puthexchar('4', 'a', &out, &reported));
    EXPECT_EQ(0, reported);
    EXPECT_EQ(-1, puthexchar('4', 'g', &out, &reported));
    EXPECT_EQ(-1, puthexchar('x', 'y', &out, &reported));
    EXPECT_EQ(1, reported);
    EXPECT_EQ(-1, puthexchar('4', '\0', &out, &reported));
    EXPECT_EQ(-1, puthexchar('\0', '4', &out, &reported));
    EXPECT_EQ(text + 1, out);
    EXPECT_STREQ("J", text);
    EXPECT_EQ((std::vector<std::string>{"3/131 Can't Translate Hex to Character 4g",
                                        "3/134 Error Occured in Quoted Printable Decode",
                                        "3/134 Error Occured in Quoted Printable Decode"}),
              take_log_lines());
}

TEST(QpTables, HoldTheHexadecimalDigits)
{
    EXPECT_STREQ("0123456789ABCDEF", base16);
    EXPECT_STREQ("\nFrom ", From);
    const std::string upper = "0123456789ABCDEF", lower = "0123456789abcdef";
    for (int c = 0; c < 256; ++c) {
        size_t value = upper.find(static_cast<char>(c));
        if (value == std::string::npos) value = lower.find(static_cast<char>(c));
        EXPECT_EQ(value == std::string::npos ? -1 : static_cast<int>(value), base128[c]) << c;
    }
}
