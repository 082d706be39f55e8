/* SEARCH texts, tokens and message sets; and the bodies that are searched. */
#include <gtest/gtest.h>

#include "mlist/search.h"
#include "mlist/token.h"
#include "tests/linear/linear.h"
#include "tests/unit/archive_fetch/reader.h"

static const std::string mail = crlf("From: a@b\nSubject: s\n\nx\n");

TEST(LinearSearch, Criteria)
{
    static const char *const nested = "64 groups deep is an error";
    static const char *const first = "the first key that is none is an error";
    const Discard discard;
    Reader reader(std::vector<std::string>{mail, mail});
    demand_linear({{"ALL", repeated("ALL ")},
                   {"NOT NOT", repeated("NOT "), first},
                   {"OR OR", repeated("OR "), first},
                   {"NOT ALL", repeated("NOT ALL ")},
                   {"OR ALL ALL", repeated("OR ALL ALL ")},
                   {"groups", repeated("(ALL) ")},
                   {"open groups", repeated("("), nested},
                   {"open and closed groups", repeated("(", "()", ")"), nested},
                   {"closed groups", repeated(")"), first},
                   {"groups in quotes", repeated("(SUBJECT \"", "(", "\")")},
                   {"one text", repeated("SUBJECT ", "x", "")},
                   {"texts", repeated("SUBJECT x ")},
                   {"open quotes", repeated("SUBJECT \"", "x", "")},
                   {"quotes", repeated("\""), first},
                   {"quoted backslashes", repeated("SUBJECT \"", "\\\\", "\"")},
                   {"backslashes", repeated("(", "\\", ""), nested},
                   {"a literal", repeated("SUBJECT {", "1", "}\r\n"), first},
                   {"blanks", repeated("ALL ", " ", "ALL"), "an empty key ends the criteria"},
                   {"words", repeated("x"), first},
                   {"a number", repeated("LARGER ", "1", "")},
                   {"a date", repeated("ON ", "1", "-Jan-2026"), first},
                   {"a set", repeated("1,")},
                   {"a set without end", repeated("1,", "1,", "x")},
                   {"ranges", repeated("1:*,")},
                   {"ranges turned round", repeated("2:1,")},
                   {"colons", repeated(":"), first},
                   {"a UID set", repeated("UID ", "7:*,", "7")},
                   {"sets", repeated("1:* ")},
                   {"UID sets", repeated("UID 1:* ")}},
                  [&](std::string &text) {
                      (void)mlmbx_search(reader.handle(), text.c_str(), "iso-2022-jp", 0);
                  });
}

TEST(LinearSearch, Tokens)
{
    demand_linear({{"atoms", repeated("a ")},
                   {"one atom", repeated("a")},
                   {"quoted strings", repeated("\"a\" ")},
                   {"backslashes", repeated("\"", "\\a", "\"")},
                   {"an open quote", repeated("\"", "a", "")},
                   {"blanks", repeated(" ")}},
                  [](std::string &text) {
                      int tokens = 0;
                      for (char *token = list_gettoken_astring(text.data()); token != nullptr;
                           token = list_gettoken_astring(nullptr))
                          ++tokens;
                  });
    demand_linear({{"numbers", repeated("1,")},
                   {"a number", repeated("0"), "0 is the end"},
                   {"ranges", repeated("1:2,")},
                   {"ranges to the end", repeated("3:*,")},
                   {"stars", repeated("*"), "no number"}},
                  [](std::string &text) {
                      uint32_t number = list_gettoken_msgset(text.data(), 3);
                      while (number != 0)
                          number = list_gettoken_msgset(nullptr, 3);
                  });
}

/* -- what is searched -- */

static const std::string japanese = "Content-Type: text/plain; charset=iso-2022-jp\r\n\r\n";
static const std::string encoded = "Content-Transfer-Encoding: base64\r\n\r\n";

TEST(LinearSearch, Messages)
{
    static const std::vector<Worst> messages = {
        {"one line", repeated(japanese, "x", "")},
        {"line ends", repeated(japanese, "\r\n", "")},
        {"escapes", repeated(japanese, "\x1b$B\x1b(B", "")},
        {"what is nearly wanted", repeated(japanese, "aaaaaaaaaaaaaaab", "")},
        {"base64", repeated(encoded, "YWFh", "")},
        {"bytes that are no base64", repeated(encoded, "!", "")},
        {"parts", repeated("Content-Type: multipart/mixed; boundary=b\r\n\r\n", "--b\r\n\r\na\r\n",
                           "--b--\r\n")},
        {"beginnings of words", repeated("Subject: ", "=?ISO-2022-JP?B? ", "\r\n\r\n")},
        {"subjects", repeated("", "Subject: a\r\n", "\r\n")},
        {"a folded subject", repeated("Subject: a\r\n", " a\r\n", "\r\n")},
    };
    const Discard discard;
    for (const char *criteria :
         {"TEXT aaaaaaaaaaaaaaaaaaaaaaac", "SUBJECT none", "SENTON 1-Jan-2026"})
        demand_linear(messages, [&](std::string &text) {
            Reader reader(text);
            EXPECT_EQ(1, mlmbx_search(reader.handle(), criteria, "euc-jp", 0));
        });
}
