/* mlist_base64_encode, mlist_base64_decode, base256to64 and their tables. */
#include <string.h>

#include <random>

#include "codec/conv.h"
#include "codec/conv_b64.h"
#include "tests/reference/base64.h"
#include "tests/support/log_capture.h"
#include "tests/unit/codec/codec_calls.h"

static std::string encoded(const std::string &text)
{
    GuardedOutput out(text.size() * 2 + 16);
    EXPECT_EQ(
        0, mlist_base64_encode(text.c_str(), out.data(), static_cast<int>(text.size()) * 2 + 16));
    return out.data();
}

struct Decoded {
    int result;
    std::string text;
};

static Decoded decoded(const std::string &text)
{
    GuardedOutput out(text.size() * 3 / 4 + 8);
    const int result = mlist_base64_decode(text.c_str(), out.data());
    EXPECT_LE(out.touched(), text.size() * 3 / 4 + 8) << text;
    return {result, out.data()};
}

/* -- tables -- */

TEST(Base64Tables, DecodingTableIsTheInverseOfTheAlphabet)
{
    ASSERT_EQ(64u, strlen(b64_enc_t));
    for (int c = 0; c < 256; ++c) {
        const char *place = c == 0 ? nullptr : strchr(b64_enc_t, c);
        EXPECT_EQ(place == nullptr ? -1 : place - b64_enc_t, b64_dec_t[c]) << c;
    }
}

/* -- one group -- */

TEST(Base256To64, WritesAGroupAndMovesOn)
{
    char text[16] = "";
    char *out = text;
    base256to64('M', 'a', 'n', 0, &out);
    base256to64('M', 'a', 0, 1, &out);
    base256to64('M', 0, 0, 2, &out);
    *out = '\0';
    EXPECT_STREQ("TWFuTWE=TQ==", text);
}

TEST(Base256To64, DoesNotLookAtMissingBytes)
{
    char text[16] = "";
    char *out = text;
    base256to64('M', 'a', 0xFF, 1, &out);
    base256to64('M', 0xFF, 0xFF, 2, &out);
    *out = '\0';
    EXPECT_STREQ("TWE=TQ==", text);
}

/* -- encoding -- */

static const struct {
    const char *plain, *base64;
} rfc_rows[] = {
    {"", ""},
    {"f", "Zg=="},
    {"fo", "Zm8="},
    {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="},
    {"fooba", "Zm9vYmE="},
    {"foobar", "Zm9vYmFy"},
};

TEST(Base64Encode, GivesThePublishedForms)
{
    for (const auto &row : rfc_rows)
        EXPECT_EQ(row.base64, encoded(row.plain)) << row.plain;
}

TEST(Base64Encode, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    const std::string before = "0123456789", behind = "abcdefghijklmnopqrstuvwxyz";
    for_each_pair(
        {{"", ""}, {before, behind}, {before + "x", behind}, {before + "xy", behind}},
        [](const std::string &text) { ASSERT_TRUE(base64_encode_agrees(text, ample_size(text))); });
}

/* Every byte at every place of a block, every remainder behind the blocks, and not a byte read or
   written too far; whichever of the forms this processor takes in the end. */
TEST(Base64Encode, FormsForBlocksAgreeWithTheReference)
{
    const struct {
        const char *label;
        size_t (*encode)(const unsigned char *in, size_t size, char *out);
    } forms[] = {{"any processor", b64_encode_blocks}, {"wide", b64_encode_wide}};
    std::mt19937 random(20261121);
    for (const auto &form : forms)
        for (int round = 0; round < 3000; ++round) {
            std::vector<unsigned char> in(static_cast<size_t>(round) % 120);
            for (unsigned char &byte : in)
                byte = static_cast<unsigned char>(round < 256 ? round : random());
            const std::string expected = reference::base64_of(std::string(in.begin(), in.end()));
            GuardedOutput out(in.size() / 3 * 4);
            const size_t took = form.encode(in.data(), in.size(), out.data());
            ASSERT_EQ(0u, took % 3) << form.label;
            ASSERT_LE(took, in.size()) << form.label;
            ASSERT_EQ(expected.substr(0, took / 3 * 4), std::string(out.data(), took / 3 * 4))
                << form.label;
            ASSERT_LE(out.touched(), took / 3 * 4) << form.label;
        }
}

TEST(Base64Encode, DemandsRoomForOneGroupMore)
{
    for (size_t length = 0; length <= 60; ++length) {
        const std::string text(length, 'x');
        const int needed = static_cast<int>(length / 3 * 4 + 4 + 1);
        for (int size = -2; size <= needed + 20; ++size) {
            ASSERT_TRUE(base64_encode_agrees(text, size));
            GuardedOutput out(static_cast<size_t>(std::max(size, 0)));
            EXPECT_EQ(size >= needed ? 0 : -1, mlist_base64_encode(text.c_str(), out.data(), size));
        }
    }
    take_log();
}

TEST(Base64Encode, LogsATextThatIsTooLong)
{
    char out[16];
    take_log();
    EXPECT_EQ(-1, mlist_base64_encode("abcdef", out, 12));
    EXPECT_EQ(std::vector<std::string>{"3/120 String Too Long in Base64 Encode"}, take_log_lines());
    EXPECT_STREQ("", out);
    EXPECT_EQ(0, mlist_base64_encode("abcdef", out, 13));
    EXPECT_STREQ("YWJjZGVm", out);
    EXPECT_EQ(std::vector<std::string>{}, take_log_lines());
}

/* -- decoding -- */

TEST(Base64Decode, ReadsThePublishedForms)
{
    for (const auto &row : rfc_rows) {
        const Decoded text = decoded(row.base64);
        EXPECT_EQ(0, text.result) << row.base64;
        EXPECT_EQ(row.plain, text.text);
    }
    EXPECT_EQ(std::vector<std::string>{}, take_log_lines());
}

static const struct {
    const char *label, *text;
    int result;
    const char *output, *log; /* log: null for none */
} decode_rows[] = {
    {"first byte illegal", "!AAA", -1, "", "3/121 Illegal Character in Base64 Decode1"},
    {"padding first", "=AAA", -1, "", "3/121 Illegal Character in Base64 Decode1"},
    {"line end between groups", "QUJD\r\nQUJD", -1, "ABC",
     "3/121 Illegal Character in Base64 Decode1"},
    {"blank behind the text", "QUJD ", -1, "ABC", "3/121 Illegal Character in Base64 Decode1"},
    {"lone character", "Q", -1, "", "3/122 Illegal Character in Base64 Decode2"},
    {"lone character behind a group", "QUJDQ", -1, "ABC",
     "3/122 Illegal Character in Base64 Decode2"},
    {"second byte illegal", "Q!==", -1, "", "3/123 Illegal Character in Base64 Decode3"},
    {"padding second", "Q===", -1, "", "3/123 Illegal Character in Base64 Decode3"},
    {"two characters", "QQ", 0, "A", "3/124 Illegal Character in Base64 Decode4"},
    {"two and padding", "QQ=", 0, "A", nullptr},
    {"whatever follows padding", "QQ=!\x80garbage", 0, "A", nullptr},
    {"third byte illegal", "QQ!=", -1, "A", "3/125 Illegal Character in Base64 Decode5"},
    {"three characters", "QUI", 0, "AB", "3/126 Illegal Character in Base64 Decode6"},
    {"three and padding", "QUI=", 0, "AB", nullptr},
    {"fourth byte illegal", "QUI!", -1, "AB", "3/127 Illegal Character in Base64 Decode7"},
    {"first byte above 0x7F", "\x80QUI", -1, "", "3/121 Illegal Character in Base64 Decode1"},
    {"second byte above 0x7F", "Q\xFFUI", -1, "", "3/123 Illegal Character in Base64 Decode3"},
    {"third byte above 0x7F", "QU\xC1I", -1, "A", "3/125 Illegal Character in Base64 Decode5"},
    {"fourth byte above 0x7F", "QUI\xC1", -1, "AB", "3/127 Illegal Character in Base64 Decode7"},
};

TEST(Base64Decode, TellsWhatIsWrongByItsPlaceInTheGroup)
{
    take_log();
    for (const auto &row : decode_rows) {
        const Decoded text = decoded(row.text);
        EXPECT_EQ(row.result, text.result) << row.label;
        EXPECT_EQ(row.output, text.text) << row.label;
        std::vector<std::string> wanted;
        if (row.log != nullptr) wanted.push_back(row.log);
        EXPECT_EQ(wanted, take_log_lines()) << row.label;
    }
}

static const struct {
    const char *label, *plain, *tidy;
} tidy_rows[] = {
    {"closed run", "a\x1b$BF|\x1b(Bb", "a\x1b$BF|\x1b(Bb"},
    {"run closed as it likes", "\x1b$BF|\x1b(J", "\x1b$BF|\x1b(J"},
    {"open run", "\x1b$BF|", "\x1b$BF|\x1b(B"},
    {"open run of the old set", "\x1b$@F|", "\x1b$@F|\x1b(J"},
    {"entered twice", "\x1b$BF|\x1b$BK\\\x1b(B", "\x1b$BF|K\\\x1b(B"},
    {"other set inside a run", "\x1b$BF|\x1b$@K\\", "\x1b$BF|K\\\x1b(B"},
    {"other way round", "\x1b$@F|\x1b$BK\\", "\x1b$@F|K\\\x1b(J"},
    {"entered three times", "\x1b$B\x1b$B\x1b$@F|", "\x1b$BF|\x1b(B"},
    {"two runs", "\x1b$BF|\x1b(B \x1b$@K\\", "\x1b$BF|\x1b(B \x1b$@K\\\x1b(J"},
    {"escape that is none", "\x1bx\x1b", "\x1bx\x1b"},
    {"escape cut short", "\x1b$", "\x1b$"},
    {"doubled ESC", "\x1b\x1b$BF|", "\x1b\x1b$BF|\x1b(B"},
    {"katakana set", "\x1b(IF", "\x1b(IF"},
    {"kanji-out alone", "a\x1b(Bb", "a\x1b(Bb"},
    {"deleting joins nothing", "\x1b$B\x1b\x1b$B$@", "\x1b$B\x1b$@\x1b(B"},
};

TEST(Base64Decode, TidiesEscapesOfTheResult)
{
    for (const auto &row : tidy_rows) {
        const Decoded text = decoded(reference::base64_of(row.plain));
        EXPECT_EQ(0, text.result) << row.label;
        EXPECT_EQ(hex(row.tidy), hex(text.text)) << row.label;
    }
}

TEST(Base64Decode, EndsTheTextAtAZeroByte)
{
    const std::string plain("\x1b$BF|\0\x1b(Bxyz", 13);
    const Decoded text = decoded(reference::base64_of(plain));
    EXPECT_EQ(hex("\x1b$BF|\x1b(B"), hex(text.text));
}

TEST(Base64Decode, AgreesWithTheReferenceOnEveryOneAndTwoByteText)
{
    const std::string before = "QUJDREVGR0hJSktM";
    for_each_pair({{"", ""},
                   {"Q", ""},
                   {"QU", "Q"},
                   {before, ""},
                   {"", before},
                   {before + "Q", before},
                   {before + "QU", before + "QUJDREVGR0hJSktM"}},
                  [](const std::string &text) { ASSERT_TRUE(base64_decode_agrees(text)); });
}

TEST(Base64Decode, AgreesWithTheReferenceOnEscapesInEveryOrder)
{
    /* pieces that join to whole, doubled and broken escapes */
    const std::vector<std::string> pieces = {
        "\x1b", "\x1b$B", "\x1b$@", "\x1b(B",     "\x1b(J",
        "$B",   "F|",     "a",      "\x1b$B\x1b", std::string("\0", 1)};
    for (const std::string &p1 : pieces)
        for (const std::string &p2 : pieces)
            for (const std::string &p3 : pieces)
                for (const std::string &p4 : pieces)
                    ASSERT_TRUE(base64_decode_agrees(reference::base64_of(p1 + p2 + p3 + p4)));
}

TEST(Base64Decode, AgreesWithTheReferenceWhereverTheTextIsCut)
{
    std::string plain;
    for (int i = 1; i < 100; ++i)
        plain += static_cast<char>(i * 37);
    const std::string text = reference::base64_of(plain);
    for (size_t size = 0; size <= text.size(); ++size)
        ASSERT_TRUE(base64_decode_agrees(text.substr(0, size)));
}

TEST(Base64Decode, MayDecodeATextInPlace)
{
    std::string plain;
    for (int i = 1; i < 256; ++i)
        plain += i == 0x1B ? ' ' : static_cast<char>(i);
    std::string text = reference::base64_of(plain) + "Q"; /* room of the contract */
    text.pop_back();
    EXPECT_EQ(0, mlist_base64_decode(text.c_str(), text.data()));
    EXPECT_EQ(plain, std::string(text.c_str()));
}

TEST(Base64Decode, AgreesWithTheReferenceOnChangedBytes)
{
    std::mt19937 random(1);
    for (int round = 0; round < 4000; ++round) {
        std::string plain(random() % 120, ' ');
        for (char &c : plain)
            c = static_cast<char>(random() % 4 == 0 ? "\x1b$@(BJ"[random() % 6] : random());
        std::string text = reference::base64_of(plain);
        ASSERT_TRUE(base64_decode_agrees(text));
        if (text.empty()) continue;
        text[random() % text.size()] = static_cast<char>(random() % 255 + 1);
        ASSERT_TRUE(base64_decode_agrees(text));
    }
}

TEST(Base64, TextsComeBack)
{
    std::mt19937 random(2);
    for (size_t length = 0; length < 400; ++length) {
        std::string plain(length, ' ');
        for (char &c : plain)
            c = static_cast<char>(random() % 227 + 28); /* no zero byte and no ESC */
        ASSERT_EQ(plain, decoded(encoded(plain)).text);
    }
}
