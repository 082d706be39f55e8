/* From value to bare address. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "tests/reference/owner.h"
#include "tests/support/log_capture.h"
#include "tests/unit/headers/header_job.h"

using std::string;

static string owner(const string &from)
{
    GuardedBuffer buffer(from.size() + 1);
    memcpy(buffer.data(), from.c_str(), from.size() + 1);
    make_owner_string(buffer.data());
    EXPECT_TRUE(buffer.intact()) << from;
    EXPECT_TRUE(buffer.terminated()) << from;
    return buffer.data();
}

TEST(MakeOwnerString, Table)
{
    static const struct {
        const char *label, *from, *address;
    } rows[] = {
        {"bare", " taro@example.com\r\n", "taro@example.com"},
        {"angle brackets", "Taro <taro@example.com>", "taro@example.com"},
        {"name, comment and brackets", "\"Yamada (Sales), Taro\" (work)<taro@example.com>",
         "taro@example.com"},
        {"comment before the brackets", "Taro (x) <taro@example.com> tail", "taro@example.com"},
        {"address and name", "bob@example.jp (Bob)", "bob@example.jp"},
        {"address, blanks and name", "bob@example.jp \t (Bob) \r\n", "bob@example.jp"},
        {"nested comment", "bob@example.jp (a (b) c)", "bob@example.jp"},
        {"comment first", "(Bob) bob@example.jp", "bob@example.jp"},
        {"comment inside", "bob(x)@example.jp", "bob@example.jp"},
        {"unclosed comment", "bob@example.jp (Bob", "bob@example.jp"},
        {"closing parenthesis alone", "bob@example.jp )", "bob@example.jp )"},
        {"angle in quotes", "\"a<b>c\" <x@y>", "x@y"},
        {"angle in a comment", "(<no@no>) x@y", "x@y"},
        {"unclosed angle", "Bob <x@y", "Bob <x@y"},
        {"closing angle first", "> Bob <x@y>", "x@y"},
        {"two addresses", "<a@b>, <c@d>", "a@b"},
        {"empty brackets", "MAILER-DAEMON <>", ""},
        {"blanks inside the brackets stay", "< a@b >", " a@b "},
        {"unbalanced quote hides the brackets", "\"Bob <x@y>", "\"Bob <x@y>"},
        {"unbalanced quote hides the comment", "\"Bob (x", "\"Bob (x"},
        {"backslash escapes nothing", "\"a\\\"b\" <x@y>", "\"a\\\"b\" <x@y>"},
        {"a closing angle in quotes counts", "<a\">\"b>", "a\""},
        {"empty", "", ""},
        {"blanks only", " \t\r\n", ""},
        {"comment only", "(x)", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(owner(row.from), row.address) << row.label;
}

TEST(MakeOwnerString, ASlashEscapesAParenthesisInsideAComment)
{
    EXPECT_EQ(owner("(a /) b) x@y"), "x@y");
    EXPECT_EQ(owner("(a /( b) x@y"), "x@y");
    EXPECT_EQ(owner("(a \\) b) x@y"), "b) x@y");
    EXPECT_EQ(owner("a/(b) x@y"), "a/ x@y");
}

TEST(MakeOwnerString, DeepNestingIsCounted)
{
    EXPECT_EQ(owner(string(2000, '(') + string(2000, ')') + "x@y"), "x@y");
    EXPECT_EQ(owner(string(2000, '(') + string(1999, ')') + "x@y"), "");
}

TEST(MakeOwnerString, ATextOfMoreThan4096CharactersStays)
{
    take_log();
    const string fits = "(" + string(4093, 'c') + ")x";
    EXPECT_EQ(owner(fits), "x");
    EXPECT_EQ(take_log_lines(), std::vector<string>());
    const string too_long = "(" + string(4094, 'c') + ")x";
    EXPECT_EQ(owner(too_long), too_long);
    EXPECT_EQ(take_log_lines(), std::vector<string>{"3/337 buffer too short [make_owner_string]"});
}

TEST(MakeOwnerString, AgreesWithTheSlowReference)
{
    const string alphabet = "ab@.()()<>\"\"/\\ \t\r\n\x80\xff";
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        const string from = random.text(random.below(40), alphabet);
        ASSERT_EQ(owner(from), reference::owner(from)) << testing::PrintToString(from);
    }
}
