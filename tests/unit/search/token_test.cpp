/* Tokens of an IMAP command line. */
#include <gtest/gtest.h>

#include <thread>

#include "mlist/token.h"

using Numbers = std::vector<uint32_t>;

/* All numbers of a set, the final 0 left out. */
static Numbers numbers_of(std::string text, uint32_t maximum)
{
    Numbers numbers;
    for (uint32_t n = list_gettoken_msgset(text.data(), maximum); n != 0;
         n = list_gettoken_msgset(nullptr, maximum))
        numbers.push_back(n);
    return numbers;
}

static const struct {
    const char *label, *text;
    uint32_t maximum;
    Numbers numbers;
} set_rows[] = {
    {"numbers and a range", "1:3,5", 10, {1, 2, 3, 5}},
    {"a range to the end", "7:*", 9, {7, 8, 9}},
    {"a number above the maximum", "11", 10, {}},
    {"a range above the maximum", "9:11", 10, {}},
    {"an error in a later element", "1,2,x,3", 10, {1, 2}},
    {"a reversed range is its first number", "5:3,7", 10, {5, 7}},
    {"a star alone", "*", 10, {}},
    {"a star first", "*:3", 10, {}},
    {"digits before a star", "1:3*", 10, {}},
    {"zero ends the set", "0,5", 10, {}},
    {"a huge number", "4294967297", 4294967295u, {}},
    {"the largest number", "4294967295", 4294967295u, {4294967295u}},
    {"a range up to the largest", "4294967294:*", 4294967295u, {4294967294u, 4294967295u}},
    {"a comma at the end", "1,", 10, {1}},
};

TEST(MessageSet, IsReadNumberByNumber)
{
    for (const auto &row : set_rows)
        EXPECT_EQ(row.numbers, numbers_of(row.text, row.maximum)) << row.label;
}

TEST(MessageSet, ALineEndIsAcceptedOnlyBehindARange)
{
    EXPECT_EQ((Numbers{1, 2}), numbers_of("1:2\r\n", 10));
    EXPECT_EQ((Numbers{}), numbers_of("1\r\n", 10));
}

TEST(MessageSet, ABlankHandsTheRestToTheAstringTokenizer)
{
    std::string text = "1:2,4 TEXT \"a b\"";
    EXPECT_EQ(1u, list_gettoken_msgset(text.data(), 10));
    EXPECT_EQ(2u, list_gettoken_msgset(nullptr, 10));
    EXPECT_EQ(4u, list_gettoken_msgset(nullptr, 10));
    EXPECT_EQ(0u, list_gettoken_msgset(nullptr, 10));
    EXPECT_STREQ("TEXT", list_gettoken_astring(nullptr));
    EXPECT_STREQ("a b", list_gettoken_astring(nullptr));
    EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
}

TEST(MessageSet, AnErrorLeavesNoRest)
{
    std::string text = "1,x REST";
    EXPECT_EQ(1u, list_gettoken_msgset(text.data(), 10));
    EXPECT_EQ(0u, list_gettoken_msgset(nullptr, 10));
    EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
    EXPECT_EQ(0u, list_gettoken_msgset(nullptr, 10));
}

static std::vector<std::string> astrings_of(std::string text)
{
    std::vector<std::string> tokens;
    for (const char *t = list_gettoken_astring(text.data()); t != nullptr;
         t = list_gettoken_astring(nullptr))
        tokens.push_back(t);
    return tokens;
}

TEST(Astring, AtomsEndAtBlanksAndLineEnds)
{
    EXPECT_EQ((std::vector<std::string>{"a", "b\"c", "d"}), astrings_of("a b\"c d\r\nrest"));
    EXPECT_EQ((std::vector<std::string>{}), astrings_of(""));
    EXPECT_EQ((std::vector<std::string>{"a", "", "b"}), astrings_of("a  b"));
}

TEST(Astring, QuotedStringsAreUnescapedInPlace)
{
    EXPECT_EQ((std::vector<std::string>{"a\"b"}), astrings_of("\"a\\\"b\""));
    EXPECT_EQ((std::vector<std::string>{"x y", "z"}), astrings_of("\"x y\" z"));
    EXPECT_EQ((std::vector<std::string>{"x"}), astrings_of("\"x\"z behind"));
    EXPECT_EQ((std::vector<std::string>{"", "a"}), astrings_of("\"\" a"));
    EXPECT_EQ((std::vector<std::string>{}), astrings_of("\"no end"));
    EXPECT_EQ((std::vector<std::string>{}), astrings_of("\"no end\\"));
}

TEST(Astring, ALiteralStaysWhereItIs)
{
    std::string text = "{5}";
    EXPECT_EQ(nullptr, list_gettoken_astring(text.data()));
    EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
    EXPECT_EQ("{5}", text);
}

TEST(Astring, EachThreadHasItsOwnPlace)
{
    std::string mine = "a b";
    EXPECT_STREQ("a", list_gettoken_astring(mine.data()));
    std::thread([] {
        EXPECT_EQ(nullptr, list_gettoken_astring(nullptr));
        std::string theirs = "x y";
        EXPECT_STREQ("x", list_gettoken_astring(theirs.data()));
    }).join();
    EXPECT_STREQ("b", list_gettoken_astring(nullptr));
}
