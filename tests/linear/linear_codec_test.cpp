/* Codecs: base64, quoted-printable, Japanese; and those that a search converts with. */
#include <gtest/gtest.h>
#include <stdlib.h>

#include "archive/search.h"
#include "codec/conv.h"
#include "store/ntio.h"
#include "tests/linear/linear.h"

static const std::vector<Worst> japanese_texts = {
    {"ASCII", repeated("x")},
    {"lead bytes", repeated("\xa4")},
    {"half-width katakana", repeated("\xb6")},
    {"katakana with sound marks", repeated("\xb6\xde")},
    {"single shifts of nothing", repeated("\x8e")},
    {"single shifts of katakana with marks", repeated("\x8e\xca\x8e\xdf")},
    {"one character of each kind in turn", repeated("a\xa4\xa2")},
    {"one character of Shift_JIS in turn", repeated("a\x88\x9f")},
    {"line ends", repeated("\r\n")},
    {"escapes back and forth", repeated("\x1b$B!!\x1b(B")},
    {"empty runs", repeated("\x1b$B\x1b(B")},
    {"half an escape", repeated("\x1b")},
    {"7-bit katakana with marks", repeated("\x1b(I6^\x1b(B")},
};

/* For any result. */
static char *room()
{
    static std::vector<char> memory(64 * MIB * 5 + KIB);
    return memory.data();
}

TEST(LinearCodec, ToJis)
{
    demand_linear(japanese_texts, [](std::string &text) {
        const size_t size = text.size() * 4 + 64;
        (void)euc2jis(text.c_str(), room(), static_cast<int>(size));
    });
    demand_linear(japanese_texts, [](std::string &text) {
        const size_t size = text.size() * 5 + 64;
        (void)sjis2jis(text.c_str(), room(), static_cast<int>(size - 16));
    });
}

/* Refuses the first byte that it does not know: only its strlen() reads all. */
TEST(LinearCodec, FromJis)
{
    demand_linear(japanese_texts, [](std::string &text) {
        const size_t size = text.size() * 2 + 64;
        (void)jis2sjis(text.data(), room(), static_cast<int>(size));
    });
}

static const std::vector<Worst> encoded_texts = {
    {"letters", repeated("QUFB")},
    {"escapes into a set that is on already", repeated("GyRC")},
    {"escapes back and forth", repeated("GyRCGyhC")},
    {"escapes in bytes of their own", repeated("Gxsb")},
    {"padding", repeated("=")},
    {"line ends", repeated("\r\n")},
    {"half escapes", repeated("=4")},
    {"escapes of quoted-printable", repeated("=3D")},
    {"escapes that are none", repeated("=xx")},
    {"soft line breaks", repeated("=\r\n")},
    {"From at the beginning of lines", repeated("\nFrom ")},
    {"blanks", repeated(" ")},
};

TEST(LinearCodec, Base64)
{
    demand_linear(encoded_texts, [](std::string &text) {
        (void)mlist_base64_encode(text.c_str(), room(), static_cast<int>(text.size() * 2 + 64));
    });
    demand_linear(encoded_texts,
                  [](std::string &text) { (void)mlist_base64_decode(text.c_str(), room()); });
}

TEST(LinearCodec, Base64OfStreams)
{
    const MemoryFile nowhere("");
    demand_linear({{"bytes", repeated("x")}}, [&](std::string &text) {
        const MemoryFile file(text);
        FileRecord *in = Fopen(file.fd()), *out = Fopen(nowhere.fd());
        EXPECT_EQ(0, base64_encode_stream(in, out, 4));
        Fclose(in);
        Fclose(out);
    });
}

TEST(LinearCodec, QuotedPrintable)
{
    demand_linear(encoded_texts, [](std::string &text) {
        (void)mlist_quoted_printable_encode(text.c_str(), room(), 1 << 30);
    });
    demand_linear(encoded_texts,
                  [](std::string &text) { (void)quoted_printable_decode(text.c_str(), room()); });
}

static const std::vector<Worst> encoded_words = {
    {"words", repeated("=?ISO-2022-JP?B?GyRCJCIbKEI=?= ")},
    {"beginnings of words", repeated("=?")},
    {"words without an end", repeated("=?ISO-2022-JP?B? ")},
    {"words of Q without an end", repeated("=?EUC-JP?Q?=41 ")},
    {"blanks behind a word", repeated("=?EUC-JP?Q?a?=", " ", "")},
    {"words and blanks", repeated("=?EUC-JP?Q?a?=            ")},
    {"one long word", repeated("=?ISO-2022-JP?B?", "GyRC", "?=")},
    {"question marks", repeated("?")},
};

TEST(LinearCodec, OfSearches)
{
    for (const auto convert : {search_jis2euc, search_sjis2euc, search_euc2euc, search_q_dec})
        demand_linear(japanese_texts, [&](std::string &text) {
            GrowingText out;
            EXPECT_TRUE(convert(text.data(), text.size(), &out));
        });
    std::vector<Worst> ended = encoded_texts;
    for (Worst &row : ended)
        row.bound = "an equal sign ends it";
    demand_linear(ended, [](std::string &text) {
        GrowingText out;
        EXPECT_TRUE(search_b64_dec(text.data(), text.size(), &out));
    });
    demand_linear(encoded_words, [](std::string &text) {
        GrowingText out;
        EXPECT_TRUE(search_mime_decode(text.data(), text.size(), &out));
    });
}
