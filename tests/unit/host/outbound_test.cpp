/* What a message gets on its way out: missing header lines, line ends. */
#include <gtest/gtest.h>
#include <stdlib.h>

#include "host/mlistd/outbound/fixups.h"
#include "host/mlistd/outbound/lines.h"
#include "host/mlistd/spool/calls.h"
#include "tests/unit/host/scratch.h"

#include <fcntl.h>

namespace
{
std::string in_pieces(auto lines, std::string_view text, size_t size)
{
    std::string out;
    for (size_t at = 0; at < text.size(); at += size)
        lines.feed(text.substr(at, size), out);
    lines.finish(out);
    return out;
}

TEST(WireLines, EveryLineEndsWithCrLfAndNoDotEndsTheMessage)
{
    static const struct {
        const char *label;
        std::string text, wire;
    } rows[] = {
        {"mail as it should be", "a\r\nb\r\n", "a\r\nb\r\n"},
        {"lone LF", "a\nb\n", "a\r\nb\r\n"},
        {"mixed", "a\nb\r\nc\n", "a\r\nb\r\nc\r\n"},
        {"no end", "a\r\nb", "a\r\nb\r\n"},
        {"ends with CR", "a\r", "a\r\n"},
        {"empty", "", ""},
        {"dots", ".\r\n..\r\na.b\r\n.x\n", "..\r\n...\r\na.b\r\n..x\r\n"},
        {"a dot at the very end", "a\r\n.", "a\r\n..\r\n"},
        {"a smuggled end with LF", "a\n.\nMAIL FROM:<x>\n", "a\r\n..\r\nMAIL FROM:<x>\r\n"},
        {"a smuggled end with CR", "a\r.\rMAIL\r\n", "a . MAIL\r\n"},
        {"CR CR LF", "a\r\r\nb\r\n", "a \r\nb\r\n"},
        {"CR at the start of a line", "\r.\r\n", " .\r\n"},
        {"blank lines", "\n\r\n\n", "\r\n\r\n\r\n"},
        {"NUL", std::string("a\0.\n", 4), std::string("a\0.\r\n", 5)},
    };
    for (const auto &row : rows)
        for (size_t size = 1; size <= row.text.size() + 1; size++)
            EXPECT_EQ(row.wire, in_pieces(WireLines(), row.text, size))
                << row.label << " in pieces of " << size;
}

TEST(UnixLines, CrLfBecomesLfAndNothingElseChanges)
{
    static const struct {
        const char *label, *text, *unix_text;
    } rows[] = {
        {"mail", "a\r\nb\r\n", "a\nb\n"},
        {"Unix", "a\n\nb\n", "a\n\nb\n"},
        {"lone CR", "a\rb\r\n", "a\rb\n"},
        {"no end", "a", "a\n"},
        {"CR CR LF", "a\r\r\n", "a\r\n"},
        {"dots", ".\r\n", ".\n"},
        {"empty", "", ""},
    };
    for (const auto &row : rows)
        for (size_t size = 1; size <= std::string_view(row.text).size() + 1; size++)
            EXPECT_EQ(row.unix_text, in_pieces(UnixLines(), row.text, size))
                << row.label << " in pieces of " << size;
}

class Fixups : public testing::Test
{
  protected:
    Fixups()
    {
        setenv("TZ", "JST-9", 1);
        tzset();
    }
    std::string lines(std::string_view message, const FixupSettings &settings = {})
    {
        const std::string before = "not the message Date: x\r\n";
        const Fd file(
            open(scratch_.write("m", before + std::string(message)).c_str(), O_RDONLY | O_CLOEXEC));
        const auto found =
            missing_header_lines({file.get(), static_cast<off_t>(before.size()),
                                  static_cast<off_t>(message.size()), "id", list_, 1763746000},
                                 settings);
        EXPECT_TRUE(found);
        return found ? *found : "";
    }
    Scratch scratch_;
    std::string list_ = "alpha@example.jp";
    const std::string date_ = "Date: Sat, 22 Nov 2025 02:26:40 +0900\r\n";
    const std::string id_ = "Message-ID: <id.mlist@example.jp>\r\n";
};

TEST_F(Fixups, OnlyWhatIsMissingIsAdded)
{
    static const std::string long_header = "X: " + std::string(70'000, 'x') + "\r\n";
    const struct {
        const char *label;
        std::string message, added;
    } rows[] = {
        {"both there", "Date: x\r\nMessage-ID: <x>\r\n\r\n", ""},
        {"any case", "DATE:x\nmessage-id:y\n\n", ""},
        {"no date", "Message-Id: <x>\r\n\r\nDate: body\r\n", date_},
        {"no id", "Subject: s\r\nDate: x\r\n\r\n", id_},
        {"neither", "Subject: s\r\n\r\nbody", date_ + id_},
        {"empty", "", date_ + id_},
        {"no header", "\r\nDate: x\r\nMessage-ID: y\r\n", date_ + id_},
        {"no body", "Date: x\r\nMessage-ID: y\r\n", ""},
        {"no line end", "Date: x\r\nMessage-ID: y", ""},
        {"folded names do not count", "Subject: s\r\n Date: x\r\n\r\n", date_ + id_},
        {"names that only begin so", "Date-Received: x\r\nX-Date: y\r\n\r\n", date_ + id_},
        {"behind a long line", long_header + "Date: x\r\n\r\n", id_},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.added, lines(row.message)) << row.label;
}

TEST_F(Fixups, AreConfigurable)
{
    EXPECT_EQ(id_, lines("", {.add_date = false}));
    EXPECT_EQ(date_, lines("", {.add_message_id = false}));
    EXPECT_EQ("", lines("", {.add_date = false, .add_message_id = false}));
    list_ = "";
    EXPECT_EQ("Message-ID: <id.mlist@host>\r\n",
              lines("", {.add_date = false, .hostname = "host"}));
}

TEST_F(Fixups, DatesCarryTheOffsetOfTheirZone)
{
    EXPECT_EQ("Sat, 22 Nov 2025 02:26:40 +0900", mail_date(1763746000));
    setenv("TZ", "XST3:30", 1);
    tzset();
    EXPECT_EQ("Thu, 1 Jan 1970 20:30:00 -0330", mail_date(86400));
}
} // namespace
