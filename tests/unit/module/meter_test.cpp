/* The header's size while a journal is written, against reading the journal. */
#include "module/mlist_meter.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/reference/line_reader.h"

typedef std::vector<std::string> Texts;

static uint32_t metered(const Texts &texts)
{
    HeaderMeter meter = {};
    for (const std::string &text : texts)
        meter_text(&meter, text.c_str());
    return metered_size(&meter);
}

/* What the lines up to the first empty one add up to; 0 when there is none. */
static uint32_t read_size(const Texts &texts)
{
    std::string journal;
    for (const std::string &text : texts)
        journal += text;
    reference::LineReader reader(journal);
    size_t sum = 0;
    while (const auto line = reader.next(8192)) {
        sum += line->size();
        if (*line == "\r\n") return static_cast<uint32_t>(sum);
    }
    return 0;
}

TEST(HeaderMeter, AddsUpWhatReadingWould)
{
    static const struct {
        const char *label;
        Texts texts;
        uint32_t size;
    } rows[] = {
        {"plain", {"A: b\r\n", "\r\n"}, 8},
        {"bare line feeds", {"A: b\n", "C: d\r\n", "\n"}, 14},
        {"several lines in a text", {"A: b\r\nC: d\r\n", "\r\n"}, 14},
        {"a line in several texts", {"A:", " b", "\r", "\n", "\r", "\n"}, 8},
        {"what follows does not count", {"A: b\r\n", "\r\n", "body\r\n", "\r\n"}, 8},
        {"nothing but the empty line", {"\r\n"}, 2},
        {"two carriage returns are a line", {"A: b\r\n", "\r\r\n", "\n"}, 11},
        {"no empty line", {"A: b\r\n", "", "body\r\n"}, 0},
        {"nothing", {}, 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.size, metered(row.texts)) << row.label;
        EXPECT_EQ(row.size, read_size(row.texts)) << row.label;
    }
}

TEST(HeaderMeter, DoesNotGuessBeyondOneBlock)
{
    const std::string line = std::string(8170, 'x') + "\r\n";
    EXPECT_EQ(8174u, metered({line, "\r\n"}));
    EXPECT_EQ(0u, metered({"12345" + line, "\r\n"}));
}

TEST(HeaderMeter, AgreesWithTheReaderOnRandomHeaders)
{
    static const char *const pieces[] = {"A", ": b", "\r\n", "\r\n", "\n", "\r", ""};
    std::mt19937 random(1);
    for (int run = 0; run < 20000; ++run) {
        Texts texts;
        for (unsigned count = random() % 12; count > 0; --count)
            texts.push_back(pieces[random() % std::size(pieces)]);
        ASSERT_EQ(read_size(texts), metered(texts)) << ::testing::PrintToString(texts);
    }
}
