/* Parameter lists, dispositions, RFC 2231. */
#include <gtest/gtest.h>
#include <string.h>

#include "tests/support/golden.h"
#include "tests/unit/archive_fetch/reader.h"

struct TextRow {
    const char *label, *text, *expected;
};

static const TextRow parameter_rows[] = {
    {"nothing", "", "NIL "},
    {"no value", "flag", "NIL "},
    {"one", "charset=x", "(\"charset\" \"x\") "},
    {"two", "a=1;b=2", "(\"a\" \"1\" \"b\" \"2\") "},
    {"blanks behind the semicolon", "a=1; \t b=2", "(\"a\" \"1\" \"b\" \"2\") "},
    {"blanks before it belong to the value", "a=1 ; b=2", "(\"a\" \"1 \" \"b\" \"2\") "},
    {"a semicolon in quotes", "a=\"x;y\";b=2", "(\"a\" \"x;y\" \"b\" \"2\") "},
    {"an escaped quote", "a=\"x\\\";y\";b=2", "(\"a\" \"x\\\";y\" \"b\" \"2\") "},
    {"it ends where there is no value", "a=1; b; c=3", "(\"a\" \"1\") "},
    {"nothing before the first semicolon", "; a=1", "() "},
    {"a semicolon at the end", "a=1;", "(\"a\" \"1\") "},
    {"an empty value", "a=", "(\"a\" \"\") "},
    {"an empty name", "=1", "(\"\" \"1\") "},
    {"an equals sign in the value", "a=b=c", "(\"a\" {3}\\r\\nb=c) "},
    {"segments are joined", "n*0=\"a \"; n*1=b", "(\"n\" \"a b\") "},
};

TEST(Parameters, AreListedByNameAndValue)
{
    for (const TextRow &row : parameter_rows)
        EXPECT_EQ(row.expected, visible(printed([&] { list_parse_cparam(row.text); })))
            << row.label;
    EXPECT_EQ("NIL ", printed([] { list_parse_cparam(nullptr); }));
}

static const TextRow disposition_rows[] = {
    {"alone", "attachment", "NIL"},
    {"without a value", "attachment; x", "NIL"},
    {"a value behind the first parameter", "attachment; x; y=1", "NIL"},
    {"one", "attachment;filename=a.txt", "(\"attachment\" (\"filename\" \"a.txt\"))"},
    {"two", "inline; \tfilename=\"a b\"; size=3", "(\"inline\" (\"filename\" \"a b\"))"},
    {"segments", "attachment; filename*0=a; filename*1=\".b\"",
     "(\"attachment\" (\"filename\" \"a.b\"))"},
};

TEST(Disposition, ShowsTheFirstParameterOnly)
{
    for (const TextRow &row : disposition_rows)
        EXPECT_EQ(row.expected, visible(printed([&] { list_parse_cdp(row.text); }))) << row.label;
    EXPECT_EQ("NIL", printed([] { list_parse_cdp(nullptr); }));
}

TEST(NextParameter, FindsTheSemicolonOutsideOfQuotes)
{
    const char *text = "a=\"x;y\\\";\";b\\;c;d";
    EXPECT_STREQ(";b\\;c;d", nextparam(text));
    EXPECT_STREQ(";d", nextparam(nextparam(text) + 1));
    EXPECT_EQ(nullptr, nextparam("d"));
    EXPECT_EQ(nullptr, nextparam("\"open;"));
    EXPECT_EQ(nullptr, nextparam("end\\"));
}

static std::string joined(const std::string &text)
{
    char *result = rfc2231(text.c_str());
    if (result == nullptr) return "(null)";
    const std::string copy = result;
    mlist_release(result);
    return copy;
}

static const TextRow rfc2231_rows[] = {
    {"nothing", "", "(null)"},
    {"nothing to join", "a=1; b=2", "a=1; b=2"},
    {"blanks separate too", "a=1 b=2\tc=3", "a=1; b=2; c=3"},
    {"a blank before a semicolon makes an empty one", "a=1 ; b=2", "a=1; ; b=2"},
    {"quotes protect", "a=\"1; 2\"; b=3", "a=\"1; 2\"; b=3"},
    {"a backslash protects", "a=1\\;2;b=3", "a=1\\;2; b=3"},
    {"segments", "n*0=a;n*1=b;n*2=c", "n=\"abc\""},
    {"segments behind another", "x=1; n*0=a; n*1=b; y=2", "x=1; n=\"ab\"; y=2"},
    {"quoted segments", "n*0=\"a b\"; n*1=\"c;d\"", "n=\"a bc;d\""},
    {"another name ends the run", "n*0=a; m*1=b", "n=\"a\"; m*1=b"},
    {"a longer name is another one", "n*0=a; nm=b", "n=\"a\"; nm=b"},
    {"two runs", "n*0=a; n*1=b; m*0=c; m*1=d", "n=\"ab\"; m=\"cd\""},
    {"encoded segments", "n*0*=x''%41; n*1*=%42", "n=x''%41%42"},
    {"a plain one among them", "n*0*=x''a; n*1=\"b c\"; n*2*=d", "n=x''ab%20cd"},
    {"an escaped quote in it", "n*0*=x''a; n*1=\"b\\\"", "n=x''ab%22"},
    {"an escaped letter is encoded", "n*0*=x''; n*1=a\\b", "n=x''a%62"},
    {"no segment at all", "n*0*=", "n="},
    {"behind another", "a=1; n*0*=x''a", "a=1; n=x''a"},
};

TEST(Rfc2231, JoinsSegments)
{
    for (const TextRow &row : rfc2231_rows)
        EXPECT_EQ(row.expected, joined(row.text)) << row.label;
}

TEST(Rfc2231, ShowsBytesBeyondAsciiAsFF)
{
    EXPECT_EQ("n=x''a%FF%FFz", joined("n*0*=x''; n*1=a\x80\xffz"));
    EXPECT_EQ("n=x''%FF", joined("n*0*=x''; n*1=\\\xe3")) << "escaped";
    EXPECT_EQ("n=x''\x80", joined("n*0*=x''\x80")) << "an encoded segment is left as it is";
    EXPECT_EQ("n=\"\x80\"", joined("n*0=\x80"));
}

TEST(Rfc2231, CutsNameAndFirstValue)
{
    const std::string name(300, 'n'), value(1100, 'v');
    EXPECT_EQ(name.substr(0, 255) + "=\"" + value.substr(0, 1023) + "\"",
              joined(name + "*0=" + value));
}
