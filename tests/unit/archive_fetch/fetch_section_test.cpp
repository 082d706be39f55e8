/* Sections: which text leads where, and slices. */
#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/fault_os.h"
#include "tests/support/log_capture.h"
#include "tests/unit/archive_fetch/reader.h"

using Lines = std::vector<std::string>;

static const std::string simple = "Subject: s\r\n\r\nhello";

static const struct {
    const char *label, *text;
    int good;
    uint32_t start, count;
} range_rows[] = {
    {"a range", "<12.34>", 1, 12, 34},
    {"zeros", "<0.0>", 1, 0, 0},
    {"no count", "<5>", 0, 5, 0},
    {"no count behind the dot", "<5.>", 0, 5, 0},
    {"no start", "<.5>", 0, 0, 0},
    {"not closed", "<1.2", 0, 1, 2},
    {"no bracket", "1.2>", 0, 0, 0},
    {"nothing", "", 0, 0, 0},
    {"the largest", "<4294967295.4294967295>", 1, 4294967295u, 4294967295u},
    {"larger than that", "<4294967296.99999999999999999999999>", 1, 4294967295u, 4294967295u},
    {"a sign", "<-1.2>", 0, 0, 0},
};

TEST(Range, IsReadAsFarAsItGoes)
{
    for (const auto &row : range_rows) {
        uint32_t start = 9, count = 9;
        EXPECT_EQ(row.good, getrange(row.text, &start, &count)) << row.label;
        EXPECT_EQ(row.start, start) << row.label;
        EXPECT_EQ(row.count, count) << row.label;
    }
}

TEST(FetchPartial, BelievesABrokenSpecifier)
{
    Reader reader(simple);
    EXPECT_EQ("BODY[]<3> {0}\r\n", reader.items({"BODY.PEEK[]<3>"}));
    EXPECT_EQ("BODY[]<0> {0}\r\n", reader.items({"BODY.PEEK[]<"}));
    EXPECT_EQ("BODY[TEXT]<2> {0}\r\n", reader.items({"BODY.PEEK[TEXT]<2.x>"}));
}

TEST(FetchPartial, OfTheWholeMessageAnnouncesWhatWasAskedFor)
{
    Reader reader("hello");
    EXPECT_EQ("BODY[]<0> {10}\r\nhello", reader.items({"BODY.PEEK[]<0.10>"}));
    EXPECT_EQ("BODY[]<5> {10}\r\n", reader.items({"BODY.PEEK[]<5.10>"}));
    EXPECT_EQ("BODY[]<6> \"\"", reader.items({"BODY.PEEK[]<6.10>"}));
}

TEST(FetchPartial, OfTheTextAnnouncesWhatThereIs)
{
    Reader reader("A: 1\r\n\r\n" + std::string(50, 't'));
    EXPECT_EQ("BODY[TEXT]<100> \"\"", reader.items({"BODY.PEEK[TEXT]<100.10>"}));
    EXPECT_EQ("BODY[TEXT]<45> {5}\r\nttttt", reader.items({"BODY.PEEK[TEXT]<45.10>"}));
}

/* One message within a multipart, and a part that cannot be parsed. */
static const std::string nested = crlf("Content-Type: multipart/mixed; boundary=O\n\n"
                                       "--O\nX: one\n\n1\n"
                                       "--O\nContent-Type: message/rfc822\n\nY: two\n\n2\n"
                                       "--O\nContent-Type: multipart/mixed\n\n3\n"
                                       "--O--\n");

static const struct {
    const char *section, *value;
    int error; /* 1: logged as such, 2: logged, and a slice of it has no value */
} section_rows[] = {
    {"1]", "{3}\r\n1\r\n", 0},
    {"01]", "{3}\r\n1\r\n", 0},
    {"1.1]", "{3}\r\n1\r\n", 0},
    {"1.1.1]", "\"\"", 0},
    {"1.MIME]", "{10}\r\nX: one\r\n\r\n", 0},
    {"1.mIME]", "{10}\r\nX: one\r\n\r\n", 0},
    {"1.HEADER]", "{10}\r\nX: one\r\n\r\n", 0},
    {"1.text]", "{3}\r\n1\r\n", 0},
    {"2]", "{13}\r\nY: two\r\n\r\n2\r\n", 0},
    {"2.MIME]", "{32}\r\nContent-Type: message/rfc822\r\n\r\n", 0},
    {"2.HEADER]", "{10}\r\nY: two\r\n\r\n", 0},
    {"2.header]", "{10}\r\nY: two\r\n\r\n", 0},
    {"2.TEXT]", "{3}\r\n2\r\n", 0},
    {"2.1]", "{3}\r\n2\r\n", 0},
    {"2.1.MIME]", "{10}\r\nY: two\r\n\r\n", 0},
    {"2.1.HEADER]", "\"\"", 0},
    {"2.2]", "\"\"", 1},
    {"2.1.1]", "\"\"", 0},
    {"3]", "\"\"", 1},
    {"3.MIME]", "\"\"", 1},
    {"3.1]", "\"\"", 1},
    {"4]", "\"\"", 1},
    {"4.1]", "\"\"", 0},
    {"0]", "\"\"", 1},
    {"0.1]", "\"\"", 0},
    {"4294967297]", "\"\"", 1},
    {"99999999999999999999999.1]", "\"\"", 0},
    {"1", "\"\"", 1},
    {"1x]", "\"\"", 1},
    {"1.]", "\"\"", 1},
    {"1..1]", "\"\"", 0},
    {"2.HEADER.FIELDS (Y)]", "{10}\r\nY: two\r\n\r\n", 0},
    {"2.HEADER.FIELDS (X)]", "{2}\r\n\r\n", 0},
    {"2.header.fields.not (Y)]", "{2}\r\n\r\n", 0},
    {"2.HEADER.FIELDS]", "\"\"", 0},
    {"2.HEADER.FIELDS.NOT]", "{10}\r\nY: two\r\n\r\n", 0},
};

TEST(Section, LeadsToWhatItNames)
{
    for (const auto &row : section_rows) {
        Reader reader(nested);
        ASSERT_EQ(1, list_mbx_getcache(reader.handle(), 1));
        take_log();
        EXPECT_EQ(row.value, reader.section(row.section)) << row.section;
        const Lines expected = row.error ? Lines({"3/633 getsection: section err"}) : Lines();
        EXPECT_EQ(expected, take_log_lines()) << row.section;
    }
}

TEST(Section, AnswersAMissingSectionWithAnEmptyStringAndASliceOfItWithNothing)
{
    const MessageText message(simple);
    PartNode *tree = message.parse();
    take_log();
    EXPECT_EQ("\"\"", printed([&] { list_getsection(message.fd(), tree, "2]"); }));
    EXPECT_EQ(Lines({"3/633 getsection: section err"}), take_log_lines());
    EXPECT_EQ("", printed([&] { list_getsection_range(message.fd(), tree, "2]", 0, 5); }));
    EXPECT_EQ(Lines({"3/634 getsection_range: section err"}), take_log_lines());
    EXPECT_EQ("\"\"", printed([&] { list_getsection_range(message.fd(), tree, "1.1]", 0, 5); }));
    EXPECT_EQ("{3}\r\nell",
              printed([&] { list_getsection_range(message.fd(), tree, "1]", 1, 3); }));
    EXPECT_EQ("{0}\r\n", printed([&] { list_getsection_range(message.fd(), tree, "1]", 5, 3); }));
    EXPECT_EQ("\"\"", printed([&] { list_getsection_range(message.fd(), tree, "1]", 6, 3); }));
    EXPECT_EQ("{2}\r\nbj", printed([&] {
                  list_getsection_range(message.fd(), tree, "HEADER.FIELDS (SUBJECT)]", 2, 2);
              }));
    EXPECT_EQ("\"\"", printed([&] { list_getsection(message.fd(), nullptr, "1]"); }));
    list_freemime(tree);
}

TEST(FetchSection, AnswersAMissingFileWithEmptyTexts)
{
    Reader reader(simple);
    unlink(reader.file().c_str());
    static const struct {
        const char *item, *answer;
    } rows[] = {
        {"BODY.PEEK[]", "BODY[] \"\""},
        {"BODY.PEEK[]<3.4>", "BODY[]<3> \"\""},
        {"BODY.PEEK[header]", "BODY[HEADER] \"\""},
        {"BODY.PEEK[HEADER]<3.4>", "BODY[HEADER] \"\""},
        {"BODY.PEEK[text]", "BODY[TEXT] \"\""},
        {"BODY.PEEK[TEXT]<3.4>", "BODY[TEXT] \"\""},
        {"BODY.PEEK[1]", "BODY[1] \"\""},
        {"BODY.PEEK[1]<3.4>", "BODY[1]<3> \"\""},
        {"BODY.PEEK[HEADER.FIELDS (A)]", "BODY[HEADER.FIELDS (A)] \"\""},
        {"BODY.PEEK[HEADER.FIELDS.NOT (A)]", "BODY[HEADER.FIELDS.NOT (A)] \"\""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.answer, reader.items({row.item}));
}

TEST(FetchSection, EchoesWhatItHasNoMemoryFor)
{
    Reader reader(simple);
    HostMemory host;
    static const char *const sections[] = {"HEADER]", "HEADER.FIELDS (SUBJECT)]",
                                           "HEADER.FIELDS.NOT (A B)]"};
    for (const char *section : sections) {
        const std::string whole = reader.section(section);
        long nth = 0;
        for (; nth < 30; ++nth) {
            const long before = host.live_blocks;
            host.fail_allocation = nth;
            const std::string answer = reader.section(section);
            const bool reached = host.fail_allocation < 0;
            host.fail_allocation = -1;
            EXPECT_EQ(before, host.live_blocks) << section;
            EXPECT_EQ(reached ? "\"\"" : whole, answer) << section << " without " << nth;
            if (!reached) break;
        }
        EXPECT_GT(nth, 0);
        EXPECT_LT(nth, 30);
    }
}
