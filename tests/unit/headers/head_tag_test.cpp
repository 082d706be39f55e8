/* The list's subject tag, made and found. */
#include "headers/head.h"

#include <gtest/gtest.h>
#include <string.h>

#include "mlist/mlist.h"
#include "tests/unit/headers/header_job.h"

using std::string;

/* -- making -- */

static string tag(HeaderJob &job, int size = LINE_SIZE)
{
    GuardedBuffer buffer(static_cast<size_t>(size));
    char *result = make_subfmt(job.get(), buffer.data(), size);
    EXPECT_TRUE(buffer.intact()) << size;
    EXPECT_TRUE(result == nullptr || result == buffer.data());
    return result != nullptr ? result : "NULL";
}

TEST(MakeSubfmt, Directives)
{
    static const struct {
        const char *format;
        uint32_t number;
        const char *tag;
    } rows[] = {
        {"[%M:%S]", 7, "[mylist:7]"},
        {"[%M:%0S]", 7, "[mylist:00007]"},
        {"%0S", 99999, "99999"},
        {"%0S", 100000, "100000"},
        {"%S", 4294967295u, "4294967295"},
        {"%0S", 4294967295u, "4294967295"},
        {"%%M", 7, "%M"},
        {"%%%M", 7, "%mylist"},
        {"a%09b%20c", 7, "a\tb c"},
        {"%", 7, "%"},
        {"x%", 7, "x%"},
        {"%0", 7, "%0"},
        {"%0x", 7, "%0x"},
        {"%2", 7, "%2"},
        {"%21", 7, "%21"},
        {"%m%s", 7, "%m%s"},
        {"%x%M", 7, "%xmylist"},
        {"", 7, ""},
    };
    for (const auto &row : rows) {
        HeaderJob job;
        job.set_format(row.format);
        job->new_number = row.number;
        EXPECT_EQ(tag(job), row.tag) << row.format;
    }
}

TEST(MakeSubfmt, FitsInSizeMinusOneCharacters)
{
    HeaderJob job;
    job.set_format("[%M:%0S]"); /* 14 characters */
    for (int size = 0; size < 40; ++size)
        EXPECT_EQ(tag(job, size), size >= 15 ? "[mylist:00012]" : "NULL") << size;
}

TEST(MakeSubfmt, FormatsOf63Characters)
{
    HeaderJob job;
    job.set_format(string(63, 'x'));
    EXPECT_EQ(tag(job), string(63, 'x'));
    job.set_format(string(62, 'x') + "%");
    EXPECT_EQ(tag(job), string(62, 'x') + "%");
    job.set_format(string(61, 'x') + "%0");
    EXPECT_EQ(tag(job), string(61, 'x') + "%0");
    job.set_format(string(61, 'x') + "%%");
    EXPECT_EQ(tag(job), string(61, 'x') + "%");
}

/* -- finding -- */

static string rest(HeaderJob &job, const string &subject, int *re_flag, int mode = 0)
{
    GuardedBuffer buffer(subject.size() + 1);
    memcpy(buffer.data(), subject.c_str(), subject.size() + 1);
    const char *found = detect_subfmt(job.get(), buffer.data(), re_flag, mode);
    EXPECT_GE(found, buffer.data());
    EXPECT_LE(found, buffer.data() + subject.size());
    EXPECT_EQ(string(buffer.data()), subject) << "the subject itself is not changed";
    return found;
}

struct DetectRow {
    const char *label, *format, *subject, *rest;
    int re_flag;
};

static const DetectRow detect_rows[] = {
    {"nothing to remove", "[%M:%S]", "Hello", "Hello", 0},
    {"blanks", "[%M:%S]", " \tHello ", "Hello ", 0},
    {"tag", "[%M:%S]", "[mylist:7]  Hello", "Hello", 0},
    {"tag without a blank", "[%M:%S]", "[mylist:7]Hello", "Hello", 0},
    {"padded number", "[%M:%S]", "[mylist:00007] Hello", "Hello", 0},
    {"number for a padded one", "[%M:%0S]", "[mylist:7] Hello", "Hello", 0},
    {"very long number", "[%M:%S]", "[mylist:123456789012345678901234567890] x", "x", 0},
    {"no number", "[%M:%S]", "[mylist:] Hello", "[mylist:] Hello", 0},
    {"no number at the end", "%M%S", "mylist", "mylist", 0},
    {"case matters", "[%M:%S]", "[MYLIST:7] Hello", "[MYLIST:7] Hello", 0},
    {"mismatch at the last byte", "[%M:%S]", "[mylist:7) Hello", "[mylist:7) Hello", 0},
    {"text ends within the tag", "[%M:%S]", "[mylist:7", "[mylist:7", 0},
    {"text ends within the name", "[%M:%S]", "[myl", "[myl", 0},
    {"one prefix", "[%M:%S]", "Re: Hello", "Hello", 1},
    {"prefixes", "[%M:%S]", "re:RE: \t rE:Hello", "Hello", 1},
    {"prefix and tag", "[%M:%S]", "Re: [mylist:7] Hello", "Hello", 1},
    {"prefix, tag, prefix", "[%M:%S]", "Re: [mylist:7] re: Hello", "Hello", 1},
    {"tag, prefix", "[%M:%S]", "[mylist:7] re: Hello", "re: Hello", 0},
    {"prefix, mismatch", "[%M:%S]", "Re: [mylist:] re: x", "[mylist:] re: x", 1},
    {"no prefix but a word", "[%M:%S]", "Regarding: x", "Regarding: x", 0},
    {"blank before the colon", "[%M:%S]", "Re : x", "Re : x", 0},
    {"percent sign", "%%%M", "%mylist x", "x", 0},
    {"tab and blank", "[%09%20]", "[\t ] x", "x", 0},
    {"unknown directive", "%xM", "%xM y", "y", 0},
    {"trailing percent sign", "%M%", "mylist% y", "y", 0},
    {"zero directive cut short", "%M%0", "mylist%0 y", "y", 0},
    {"empty format", "", "[mylist:7] x", "[mylist:7] x", 0},
    {"empty subject", "[%M:%S]", "", "", 0},
    {"groups stay", "[%M:%S]", "[foo] (bar) x", "[foo] (bar) x", 0},
    {"kanji behind the tag", "[%M:%S]", "[mylist:7] " KANJI "F|" ASCII, KANJI "F|" ASCII, 0},
};

TEST(DetectSubfmt, Table)
{
    for (const DetectRow &row : detect_rows) {
        HeaderJob job;
        job.set_format(row.format);
        int re_flag = 0;
        EXPECT_EQ(rest(job, row.subject, &re_flag), row.rest) << row.label;
        EXPECT_EQ(re_flag, row.re_flag) << row.label;
    }
}

TEST(DetectSubfmt, ReAfterTheTagStaysWithoutOneBefore)
{
    HeaderJob job;
    int re_flag = 0;
    EXPECT_EQ(rest(job, "[mylist:7] RE: Re: x", &re_flag), "RE: Re: x");
    EXPECT_EQ(re_flag, 0);
    EXPECT_EQ(rest(job, "re:[mylist:7] RE: Re: x", &re_flag), "x");
    EXPECT_EQ(re_flag, 1);
}

TEST(DetectSubfmt, OtherModesLeaveTheFlagAlone)
{
    HeaderJob job;
    int re_flag = 5;
    EXPECT_EQ(rest(job, "Re: [mylist:7] x", &re_flag, 1), "x");
    EXPECT_EQ(re_flag, 5);
    EXPECT_EQ(rest(job, "x", &re_flag, 0), "x");
    EXPECT_EQ(re_flag, 5);
}

struct GroupRow {
    const char *label, *subject, *rest_1, *rest_2; /* force_remove_bracket 1 and 2 */
};

static const GroupRow group_rows[] = {
    {"square", "[a] x", "x", "x"},
    {"round", "(a) x", "x", "x"},
    {"several", "[a](b) \t[c]x", "x", "x"},
    {"empty group", "[]x", "x", "x"},
    {"tag behind a group", "[a] [mylist:7] x", "x", "x"},
    {"inner opening bracket", "[a [b] x", "x", "x"},
    {"inner opening of the other kind", "[a (b] x", "x", "x"},
    {"other kind closes first", "[a) b] x", "[a) b] x", "[a) b] x"},
    {"other kind closes first in the second", "[a] (b] c) x", "(b] c) x", "(b] c) x"},
    {"not closed", "[a", "[a", "[a"},
    {"not closed at the end", "[", "[", "["},
    {"closing bracket alone", "] x", "] x", "] x"},
    {"a prefix ends the leading groups", "[a] re: [b] x", "re: [b] x", "re: [b] x"},
    {"behind a prefix", "Re: [a] re: (b) x", "x", "[a] re: (b) x"},
    {"behind a prefix, not closed", "Re: re: (b x", "(b x", "(b x"},
    {"behind a prefix and the tag", "Re: [mylist:7] [a] x", "x", "[a] x"},
    {"closed only by a byte of a kanji", "[" KANJI "%]%)" ASCII " x", "[" KANJI "%]%)" ASCII " x",
     "[" KANJI "%]%)" ASCII " x"},
    {"kanji in the group", "[" KANJI "%]%)" ASCII "] x", "x", "x"},
    {"kanji left open", "[" KANJI "%]] x", "[" KANJI "%]] x", "[" KANJI "%]] x"},
    {"lone escape", "[" ESC "] x", "x", "x"},
    {"lone escape at the end", "[" ESC, "[" ESC, "[" ESC},
};

TEST(DetectSubfmt, BracketGroups)
{
    for (const GroupRow &row : group_rows) {
        HeaderJob job;
        int re_flag = 0;
        force_remove_bracket = 1;
        EXPECT_EQ(rest(job, row.subject, &re_flag), row.rest_1) << row.label;
        force_remove_bracket = 2;
        EXPECT_EQ(rest(job, row.subject, &re_flag), row.rest_2) << row.label;
    }
}

TEST(DetectSubfmt, FindsEveryTagThatMakeSubfmtWrites)
{
    const string alphabet = "%%%%MS0290x[]: ";
    for (uint32_t seed = 0; seed < 20000; ++seed) {
        RandomBytes random(seed);
        HeaderJob job;
        const string format = random.text(random.below(64), alphabet);
        job.set_format(format);
        const string made = tag(job);
        /* A number swallows the digits behind it, and blanks before the tag go first. */
        if (format.find('S') != string::npos || made.find_first_not_of(" \t") != 0) continue;
        int re_flag = 0;
        ASSERT_EQ(rest(job, made + "|text", &re_flag), "|text") << format;
    }
}
