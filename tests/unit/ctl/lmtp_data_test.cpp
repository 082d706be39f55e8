#include "host/mlistctl/lmtp_client.h"

#include <gtest/gtest.h>

static std::string encoded(std::string_view text, size_t piece)
{
    DataEncoder encoder;
    std::string out;
    for (size_t at = 0; at < text.size(); at += piece)
        encoder.encode(text.substr(at, piece), out);
    encoder.finish(out);
    return out;
}

TEST(MailData, IsSentWithLineEndsAndDotsOfTheWire)
{
    static const struct {
        const char *label, *text, *wire;
    } rows[] = {
        {"nothing", "", ".\r\n"},
        {"LF line ends", "a\nb\n", "a\r\nb\r\n.\r\n"},
        {"CR LF line ends", "a\r\nb\r\n", "a\r\nb\r\n.\r\n"},
        {"no last line end", "a\nb", "a\r\nb\r\n.\r\n"},
        {"a dot line", "a\n.\nb\n", "a\r\n..\r\nb\r\n.\r\n"},
        {"a line that begins with dots", "..a\n", "...a\r\n.\r\n"},
        {"a dot in a line", "a.b\n", "a.b\r\n.\r\n"},
        {"a dot after a lone CR", "a\r.\n", "a.\r\n.\r\n"},
        {"a dot after a CR at a line's start", "\r.\n", "..\r\n.\r\n"},
        {"several CRs before LF", "a\r\r\nb\n", "a\r\nb\r\n.\r\n"},
        {"empty lines", "\n\n", "\r\n\r\n.\r\n"},
    };
    for (const auto &row : rows)
        for (size_t piece : {1, 2, 3, 100})
            EXPECT_EQ(encoded(row.text, piece), row.wire) << row.label << ", pieces of " << piece;
}
