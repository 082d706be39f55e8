/* Address lists. */
#include <gtest/gtest.h>

#include "tests/support/golden.h"
#include "tests/unit/archive_fetch/reader.h"

static std::vector<std::string> addresses_of(const std::string &list)
{
    std::string copy = list;
    std::vector<std::string> found;
    for (char *one = list_get1addr(copy.data()); one != nullptr; one = list_get1addr(nullptr))
        found.push_back(one);
    return found;
}

TEST(AddressWalk, SplitsAtCommasOutsideOfQuotesAndComments)
{
    using List = std::vector<std::string>;
    EXPECT_EQ(List(), addresses_of(""));
    EXPECT_EQ(List(), addresses_of(" \t"));
    EXPECT_EQ(List({"a@b"}), addresses_of("a@b"));
    EXPECT_EQ(List({"a@b", "c@d "}), addresses_of(" a@b,\t c@d "));
    EXPECT_EQ(List({"\"x, y\" <a@b>", "c@d"}), addresses_of("\"x, y\" <a@b>, c@d"));
    EXPECT_EQ(List({"a@b (x, (y, z), w)", "c@d"}), addresses_of("a@b (x, (y, z), w), c@d"));
    EXPECT_EQ(List({"a\\,b@c", "d"}), addresses_of("a\\,b@c, d"));
    EXPECT_EQ(List({"\"a\\\", b\" <c>", "d"}), addresses_of("\"a\\\", b\" <c>, d"));
    EXPECT_EQ(List({"a", "", "b"}), addresses_of("a,,b"));
    EXPECT_EQ(List({"a"}), addresses_of("a, "));
    EXPECT_EQ(List({"(open, b"}), addresses_of("(open, b"));
}

static std::string shown(const std::string &list)
{
    std::string copy = list;
    return visible(printed([&] { list_parse_addr(copy.data()); }));
}

static const struct {
    const char *label, *text, *expected;
} address_rows[] = {
    {"nothing", "", ""},
    {"an address", "a@b.jp", "(NIL NIL \"a\" \"b.jp\")"},
    {"a name", "Taro <a@b.jp>", "(\"Taro\" NIL \"a\" \"b.jp\")"},
    {"several blanks", "Taro \t <a@b.jp>", "(\"Taro\" NIL \"a\" \"b.jp\")"},
    {"no blank", "Taro<a@b.jp>", "(\"Taro\" NIL \"a\" \"b.jp\")"},
    {"no name", "<a@b.jp>", "(NIL NIL \"a\" \"b.jp\")"},
    {"a quoted name", "\"Taro Y.\" <a@b.jp>", "(\"Taro Y.\" NIL \"a\" \"b.jp\")"},
    {"a quoted word", "\"Taro\" <a@b.jp>", "({4}\\r\\nTaro NIL \"a\" \"b.jp\")"},
    {"a bracket in quotes", "\"a <b\" <c@d>", "(\"a <b\" NIL \"c\" \"d\")"},
    {"an escaped bracket", "a \\< b <c@d>", "({5}\\r\\na < b NIL \"c\" \"d\")"},
    {"escapes are removed first", "\"a \\\"b\" <c@d>", "(\"a \" NIL \"c\" \"d\")"},
    {"a comment", "a@b.jp (Taro)", "(\"Taro\" NIL \"a\" \"b.jp\")"},
    {"an empty comment", "a@b.jp ()", "(NIL NIL \"a\" \"b.jp\")"},
    {"no host", "local", "(NIL NIL \"local\" NIL)"},
    {"two at signs", "a@b@c", "(NIL NIL \"a\" {3}\\r\\nb@c)"},
    {"not closed", "x <a@b", "(\"x\" NIL \"a\" \"b\")"},
    {"a backslash at the end", "a\\", "(NIL NIL {2}\\r\\na\\ NIL)"},
    {"two addresses", "a@b, c@d", "(NIL NIL \"a\" \"b\")(NIL NIL \"c\" \"d\")"},
};

TEST(Addresses, AreShownWithNameMailboxAndHost)
{
    for (const auto &row : address_rows)
        EXPECT_EQ(row.expected, shown(row.text)) << row.label;
}

TEST(Addresses, TakeANameOrNone)
{
    EXPECT_EQ("(NIL NIL \"a\" \"b\")", printed([] { list_print1addr(nullptr, "a@b"); }));
    EXPECT_EQ("(NIL NIL \"a\" \"b\")", printed([] { list_print1addr(" \t", "a@b"); }));
    EXPECT_EQ("(\"x\" NIL \"\" NIL)", printed([] { list_print1addr("x \t", ""); }));
}
