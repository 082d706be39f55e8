/* How a text becomes a string. */
#include <gtest/gtest.h>

#include "tests/support/golden.h"
#include "tests/unit/archive_fetch/reader.h"

static const struct {
    const char *label, *text, *string;
} string_rows[] = {
    {"nothing", "", "\"\""},
    {"a word", "plain", "\"plain\""},
    {"dots, hyphens, underscores, blanks", "a.b-c_d e", "\"a.b-c_d e\""},
    {"anything else", "a+b", "{3}\\r\\na+b"},
    {"a tab", "a\tb", "{3}\\r\\na\\tb"},
    {"a quote within", "a\"b", "{3}\\r\\na\"b"},
    {"a backslash", "a\\b", "{3}\\r\\na\\b"},
    {"bytes beyond ASCII", "\xe3\x81\x82", "{3}\\r\\n\\xe3\\x81\\x82"},
    {"quoted, letters and digits", "\"abc1\"", "{4}\\r\\nabc1"},
    {"quoted, a blank", "\"a b\"", "\"a b\""},
    {"quoted, escapes are left", "\"a\\\"b\" rest", "\"a\\\"b\""},
    {"quoted, the rest is lost", "\"abc\" rest", "{3}\\r\\nabc"},
    {"quoted, first character not looked at", "\".abc\"", "{4}\\r\\n.abc"},
    {"quoted, second character looked at", "\"a.bc\"", "\"a.bc\""},
    {"quoted, not closed", "\"a bc", "\"a bc\""},
    {"one quote", "\"", "{0}\\r\\n"},
    {"two quotes", "\"\"", "{1}\\r\\n\""},
    {"two quotes and more", "\"\"ab\"", "{3}\\r\\n\"ab"},
    {"quoted, a backslash at the end", "\"ab\\", "\"ab\""},
    {"quoted, a backslash first", "\"\\", "{1}\\r\\n\\"},
};

TEST(PrintString, TurnsTheRuleRoundBehindAQuote)
{
    for (const auto &row : string_rows) {
        const std::string text = printed([&] { list_print_string(row.text); });
        EXPECT_EQ(row.string, visible(text)) << row.label;
    }
}

TEST(PrintString, SendsWhatIsLongerThan79CharactersAsALiteral)
{
    const std::string just(79, 'a'), more(80, 'a');
    EXPECT_EQ("\"" + just + "\"", printed([&] { list_print_string(just.c_str()); }));
    EXPECT_EQ("{80}\r\n" + more, printed([&] { list_print_string(more.c_str()); }));
    /* behind a quote the length does not matter */
    const std::string quoted = "\"a " + more + "\"";
    EXPECT_EQ(quoted, printed([&] { list_print_string(quoted.c_str()); }));
}

TEST(PrintString, PrintsNothingForNoText)
{
    EXPECT_EQ("", printed([] { list_print_string(nullptr); }));
}
