/* The bounded string helpers, above all at their bounds. */
#include "store/str.h"

#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#define GUARD '#'

/* A buffer in which every byte that is not written stays visible. */
struct Guarded {
    char bytes[32];
    Guarded() { memset(bytes, GUARD, sizeof(bytes)); }
    explicit Guarded(const char *text) : Guarded() { strcpy(bytes, text); }
    bool untouched_from(size_t first) const
    {
        for (size_t i = first; i < sizeof(bytes); ++i)
            if (bytes[i] != GUARD) return false;
        return true;
    }
};

TEST(Str, FormattingLeavesOneByteUnused)
{
    static const struct {
        size_t size;
        const char *text;
    } rows[] = {{9, "abcdef"}, {8, "abcdef"}, {7, "abcde"}, {3, "a"}, {2, ""}, {1, ""}};
    for (const auto &row : rows) {
        Guarded buffer;
        EXPECT_EQ(6, snprintf_(buffer.bytes, row.size, "%s", "abcdef")) << row.size;
        EXPECT_STREQ(row.text, buffer.bytes) << row.size;
        EXPECT_EQ('\0', buffer.bytes[row.size - 1]) << row.size;
        EXPECT_TRUE(buffer.untouched_from(row.size)) << row.size;
    }
}

TEST(Str, FormattingIntoNoRoomWritesNothing)
{
    Guarded buffer;
    EXPECT_EQ(0, snprintf_(buffer.bytes, 0, "%s", "abc"));
    EXPECT_EQ(0, seprintf_(buffer.bytes, 0, "%s", "abc"));
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST(Str, FormattingIfEmptyKeepsTheFirstText)
{
    Guarded buffer("first");
    EXPECT_EQ(0, seprintf_(buffer.bytes, sizeof(buffer.bytes), "second"));
    EXPECT_STREQ("first", buffer.bytes);
    buffer.bytes[0] = '\0';
    EXPECT_EQ(6, seprintf_(buffer.bytes, sizeof(buffer.bytes), "second"));
    EXPECT_STREQ("second", buffer.bytes);
    buffer.bytes[0] = '\0';
    EXPECT_EQ(6, seprintf_(buffer.bytes, 5, "second"));
    EXPECT_STREQ("sec", buffer.bytes);
}

TEST(Str, CopyingIsBoundedAndAlwaysTerminated)
{
    static const struct {
        size_t size;
        const char *text;
    } rows[] = {{10, "abcdef"}, {7, "abcdef"}, {6, "abcde"}, {2, "a"}, {1, ""}};
    for (const auto &row : rows) {
        Guarded buffer;
        EXPECT_EQ(buffer.bytes, strncpy_(buffer.bytes, "abcdef", row.size));
        EXPECT_STREQ(row.text, buffer.bytes) << row.size;
        EXPECT_EQ('\0', buffer.bytes[row.size - 1]) << row.size;
        EXPECT_TRUE(buffer.untouched_from(row.size)) << row.size;
    }
    Guarded none;
    EXPECT_EQ(none.bytes, strncpy_(none.bytes, "abc", 0));
    EXPECT_TRUE(none.untouched_from(0));
}

TEST(Str, CopyingReadsNoFurtherThanItsBound)
{
    const char unterminated[3] = {'a', 'b', 'c'};
    Guarded buffer;
    strncpy_(buffer.bytes, unterminated, 4);
    EXPECT_STREQ("abc", buffer.bytes);
}

TEST(Str, AppendingIsBoundedByWhatIsAppended)
{
    static const struct {
        size_t n;
        const char *text;
    } rows[] = {{10, "12abc"}, {4, "12abc"}, {3, "12ab"}, {1, "12"}};
    for (const auto &row : rows) {
        Guarded buffer("12");
        EXPECT_EQ(buffer.bytes, strncat_(buffer.bytes, "abc", row.n));
        EXPECT_STREQ(row.text, buffer.bytes) << row.n;
        EXPECT_EQ('\0', buffer.bytes[2 + row.n - 1]) << row.n;
        EXPECT_TRUE(buffer.untouched_from(2 + row.n < 3 ? 3 : 2 + row.n)) << row.n;
    }
    Guarded none("12");
    EXPECT_EQ(none.bytes, strncat_(none.bytes, "abc", 0));
    EXPECT_STREQ("12", none.bytes);
    EXPECT_TRUE(none.untouched_from(3));
}

TEST(Str, JoiningStoresASecondTerminator)
{
    Guarded buffer("12");
    EXPECT_EQ(buffer.bytes, strcat_(buffer.bytes, "abc"));
    EXPECT_STREQ("12abc", buffer.bytes);
    EXPECT_EQ(GUARD, buffer.bytes[6]);
    EXPECT_EQ(GUARD, buffer.bytes[7]);
    EXPECT_EQ('\0', buffer.bytes[8]); /* 5 joined + 3 */
    EXPECT_TRUE(buffer.untouched_from(9));
}

TEST(Str, PlainCopies)
{
    Guarded buffer;
    EXPECT_EQ(buffer.bytes, strcpy_(buffer.bytes, "abc"));
    EXPECT_STREQ("abc", buffer.bytes);
    char *copy = strdup_("abc");
    EXPECT_STREQ("abc", copy);
    free(copy);
    EXPECT_EQ(nullptr, strdup_(nullptr));
}

TEST(Str, SkippingBlanks)
{
    EXPECT_STREQ("a \t", skip_space_tab(" \t a \t"));
    EXPECT_STREQ("", skip_space_tab(" \t"));
    EXPECT_STREQ("\r\n", skip_space_tab("\r\n"));
    EXPECT_STREQ("", skip_space_tab(static_cast<const char *>(nullptr)));
    char text[] = "\t x";
    EXPECT_EQ(text + 2, skip_space_tab(text));
}

TEST(Str, SkippingDigits)
{
    EXPECT_STREQ("a1", skipdigit("0123456789a1"));
    EXPECT_STREQ("-1", skipdigit("-1"));
    EXPECT_STREQ("", skipdigit("42"));
    EXPECT_STREQ("\xB1", skipdigit("1\xB1"));
}

TEST(Str, ReadingNumbers)
{
    static const struct {
        const char *text;
        uint32_t number;
    } rows[] = {
        {"42", 42},
        {" \t42x", 42},
        {"", 0},
        {"x", 0},
        {"-5", 0},
        {"+5", 0},
        {"\n5", 0},
        {"4294967295", 4294967295u},
        {"4294967296", 0},
        {"4294967301", 5},
        {"99999999999999999999", 1661992959u}, /* 10^20 - 1 modulo 2^32 */
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.number, atodw(row.text)) << row.text;
    EXPECT_EQ(0u, atodw(nullptr));
}

TEST(Str, TheLastByte)
{
    char text[] = "abc", empty[] = "";
    EXPECT_EQ(text + 2, jumpend(text));
    EXPECT_EQ(empty, jumpend(empty));
}

typedef void (*Trim)(char *);

static std::string trimmed(Trim trim, const char *text)
{
    char buffer[64];
    strcpy(buffer, text);
    trim(buffer);
    return buffer;
}

TEST(Str, ChoppingCutsAtTheFirstLineEnd)
{
    EXPECT_EQ("abc", trimmed(chop, "abc\r\n"));
    EXPECT_EQ("abc", trimmed(chop, "abc\rdef\n"));
    EXPECT_EQ("", trimmed(chop, "\nabc"));
    EXPECT_EQ("abc ", trimmed(chop, "abc "));
    EXPECT_EQ("", trimmed(chop, ""));
}

TEST(Str, StrippingTheEndTakesBlanksAndLineEnds)
{
    EXPECT_EQ(" a b", trimmed(strip_endchar, " a b \t\r\n"));
    EXPECT_EQ("", trimmed(strip_endchar, " \t\r\n"));
    EXPECT_EQ("", trimmed(strip_endchar, ""));
    EXPECT_EQ("a\v", trimmed(strip_endchar, "a\v"));
}

TEST(Str, StrippingEverywhereTakesBlanksAndLineEnds)
{
    EXPECT_EQ("abc", trimmed(strip_space_tab_endchar, " a\tb \r\n c\n"));
    EXPECT_EQ("", trimmed(strip_space_tab_endchar, " \t\r\n"));
    EXPECT_EQ("abc", trimmed(strip_space_tab_endchar, "abc"));
    EXPECT_EQ("", trimmed(strip_space_tab_endchar, ""));
}

TEST(Str, FindingIsCaseSensitive)
{
    const char *text = "one two Two";
    EXPECT_EQ(text + 4, findstr(text, "two"));
    EXPECT_EQ(text + 8, findstr(text, "Two"));
    EXPECT_EQ(nullptr, findstr(text, "TWO"));
    EXPECT_EQ(text, findstr(text, ""));
    EXPECT_EQ(nullptr, findstr("", "x"));
}
