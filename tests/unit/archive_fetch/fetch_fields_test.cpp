/* Lists of header fields and what they choose. */
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "archive/fetch.h"
#include "tests/unit/archive_fetch/reader.h"

using Names = std::vector<std::string>;

/* One name "(none)" when there is no list. */
static Names names_of(const std::string &text)
{
    int count = -1;
    char **list = parse_header_list(text.c_str(), &count);
    if (list == nullptr) {
        EXPECT_EQ(0, count) << text;
        return {"(none)"};
    }
    EXPECT_EQ(nullptr, list[count]);
    const Names names(list, list + count);
    mlist_release(list);
    return names;
}

TEST(HeaderList, IsReadWithItsQuotesAndEscapes)
{
    EXPECT_EQ(Names({"A", "Bc", "d-e"}), names_of("(A Bc d-e)]"));
    EXPECT_EQ(Names({"A b", "c\"d)"}), names_of("(\"A b\" \"c\\\"d)\")"));
    EXPECT_EQ(Names({"a\\ b", "c\\)d"}), names_of("(a\\ b c\\)d)"));
    EXPECT_EQ(Names({"A", "", "B"}), names_of("(A  B)"));
    EXPECT_EQ(Names({"A"}), names_of("(A )"));
    EXPECT_EQ(Names({""}), names_of("(\"\")"));
    EXPECT_EQ(Names({"a\"b c\"d"}), names_of("(a\"b c\"d)"));
}

TEST(HeaderList, IsNoneWithoutNamesOrEnd)
{
    for (const char *text : {"", "A", "(", "()", "(A", "(A B", "(\"A)", "(A\\)", "(\"a\\", " (A)"})
        EXPECT_EQ(Names({"(none)"}), names_of(text)) << text;
}

static const std::string header = crlf("Subject: one\nsubject: two\nSUBJECT:three\nTo: a,\n\tb\n"
                                       " c\nX-Subject: no\nto: d\n\n");

TEST(FetchHeaderFields, KeepsFieldsByNameWhateverTheCase)
{
    Reader reader(header + "body");
    EXPECT_EQ("{30}\r\n" + crlf("Subject: one\nsubject: two\n\n"),
              reader.section("HEADER.FIELDS (SUBJECT)]"))
        << "none without a blank";
    EXPECT_EQ("{25}\r\n" + crlf("To: a,\n\tb\n c\nto: d\n\n"),
              reader.section("HEADER.FIELDS (to)]"));
    EXPECT_EQ("{2}\r\n\r\n", reader.section("HEADER.FIELDS (Subj)]"));
}

TEST(FetchHeaderFields, DropsFieldsByNameInTheirCaseOnly)
{
    Reader reader(header + "body");
    std::string rest = header;
    rest.erase(0, 14);
    EXPECT_EQ("{" + std::to_string(rest.size()) + "}\r\n" + rest,
              reader.section("HEADER.FIELDS.NOT (Subject)]"));
    rest = header;
    rest.erase(rest.find("To: a"), 16);
    EXPECT_EQ("{" + std::to_string(rest.size()) + "}\r\n" + rest,
              reader.section("HEADER.FIELDS.NOT (To Nothing \"\")]"));
    EXPECT_EQ("{" + std::to_string(header.size()) + "}\r\n" + header,
              reader.section("HEADER.FIELDS.NOT (SUBJECT TO)]"));
}

TEST(FetchHeaderFields, ComparesLongNamesAsFarAsTheyFit)
{
    const std::string name(60, 'n'), longer(70, 'l');
    Reader reader(name + ": 1\r\n" + longer + ": 2\r\n" + std::string(62, 'l') + "x\r\n" +
                  std::string(61, 'l') + "x\r\n\r\n");
    EXPECT_EQ("{67}\r\n" + name + ": 1\r\n\r\n", reader.section("HEADER.FIELDS (" + name + ")]"));
    EXPECT_EQ("{142}\r\n" + longer + ": 2\r\n" + std::string(62, 'l') + "x\r\n\r\n",
              reader.section("HEADER.FIELDS (" + longer + "yyy)]"));
}

/* -- against a plain form -- */

static bool begins(const std::string &line, const std::string &name, bool ignore_case)
{
    const std::string pattern = (name + ": ").substr(0, 62);
    if (line.size() < pattern.size()) return false;
    return std::equal(pattern.begin(), pattern.end(), line.begin(), [&](char a, char b) {
        return ignore_case ? tolower(a) == tolower(b) : a == b;
    });
}

/* Each name's occurrences are taken out in turn. */
static std::string without(std::string text, const Names &names)
{
    for (const std::string &name : names)
        for (size_t at = 0; at < text.size();) {
            size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
            if (!begins(text.substr(at), name, false)) {
                at = end;
                continue;
            }
            while (end < text.size() && (text[end] == ' ' || text[end] == '\t'))
                end = std::min(text.find('\n', end), text.size() - 1) + 1;
            text.erase(at, end - at);
        }
    return text;
}

static std::string only(const std::string &text, const Names &names)
{
    std::string kept;
    for (size_t at = 0; at < text.size();) {
        size_t end = at;
        do {
            end = text.find("\r\n", end);
            end = end == std::string::npos ? text.size() : end + 2;
        } while (end < text.size() && (text[end] == ' ' || text[end] == '\t'));
        const std::string field = text.substr(at, end - at);
        if (std::any_of(names.begin(), names.end(),
                        [&](const std::string &name) { return begins(field, name, true); }))
            kept += field;
        at = end;
    }
    return kept + "\r\n";
}

static std::string filtered(FieldFilter filter, const std::string &text, Names names)
{
    std::vector<char *> list;
    for (std::string &name : names)
        list.push_back(name.data());
    GrowingText out;
    EXPECT_TRUE(filter_fields(filter, list.data(), list.size(), text.c_str(), &out));
    return out.items();
}

TEST(FetchHeaderFields, AgreesWithAPlainForm)
{
    std::mt19937 random(7);
    const auto piece = [&](std::initializer_list<const char *> pieces) {
        return std::string(pieces.begin()[random() % pieces.size()]);
    };
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (unsigned lines = random() % 12; lines > 0; --lines)
            text += piece({"a", "A", "b", "ab", "aB", " ", "\t", ""}) +
                    piece({": ", ":", ": a: ", ""}) + piece({"", "x", "a: "}) +
                    piece({"\r\n", "\r\n", "\r\n", "\n", "\r"});
        Names names;
        for (unsigned count = random() % 5; count > 0; --count)
            names.push_back(piece({"a", "A", "b", "ab", "a: a", "", " ", "aB"}));
        ASSERT_EQ(without(text, names), filtered(FieldFilter::DROP, text, names)) << text;
        ASSERT_EQ(only(text, names), filtered(FieldFilter::KEEP, text, names)) << text;
    }
}

TEST(FetchHeaderFields, ChoosesAmongManyNames)
{
    std::string list, text;
    for (int i = 0; i < 20000; ++i)
        list += "name" + std::to_string(i) + " ";
    for (int i = 0; i < 20000; ++i)
        text += "x" + std::to_string(i) + ": 1\r\n";
    Reader reader(text + "\r\n");
    EXPECT_EQ("{2}\r\n\r\n", reader.section("HEADER.FIELDS (" + list + ")]"));
    EXPECT_EQ(0u, reader.section("HEADER.FIELDS.NOT (" + list + ")]").find('{'));
}
