/* Structure of messages, header fields, addresses, parameters, and what FETCH is asked for. */
#include <gtest/gtest.h>
#include <string.h>

#include "archive/fetch.h"
#include "tests/linear/linear.h"
#include "tests/unit/archive_fetch/reader.h"

/* -- whole messages -- */

static std::string multipart(const std::string &boundary)
{
    return "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n";
}

static const std::string deep = "Content-Type: message/rfc822\r\n\r\n";
static const std::string nested = "--b\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n";

static const std::vector<Worst> messages = {
    {"one header line", repeated("Subject: ", "x", "\r\n\r\nbody\r\n")},
    {"continuation lines", repeated("Subject: x\r\n", " \r\n", "\r\nbody\r\n")},
    {"fields", repeated("", "To: a@b\r\n", "\r\nbody\r\n")},
    {"content types", repeated("", "Content-Type: text/plain\r\n", "\r\nbody\r\n")},
    {"carriage returns", repeated("Subject: ", "\r", "\r\n\r\nbody\r\n")},
    {"no header at all", repeated("\r\n")},
    {"boundaries", repeated(multipart("b"), "--b\r\n", "")},
    {"parts", repeated(multipart("b"), "--b\r\n\r\nx\r\n", "--b--\r\n")},
    {"lines that are nearly boundaries",
     repeated(multipart("bbbbbbbbbbbbbbbbbbbbbbbbc"), "--bbbbbbbbbbbbbbbbbbbbbbbbb\r\n", "")},
    {"dashes", repeated(multipart("b"), "--\r\n", "")},
    {"one line of dashes", repeated(multipart("b"), "-", "")},
    {"an empty boundary", repeated(multipart("\"\""), "--\r\n", "")},
    {"a long boundary",
     repeated("Content-Type: multipart/mixed; boundary=", "b", "\r\n\r\n--b\r\n")},
    {"messages in messages", repeated(deep)},
    {"multiparts in multiparts", repeated(multipart("b"), nested, "")},
    {"empty lines in a multipart", repeated(multipart("b"), "\r\n", "--b\r\n")},
    {"carriage returns in a multipart", repeated(multipart("b") + "--b\r\n", "\r", "\r\n--b\r\n")},
    {"lines of a text", repeated("Content-Type: text/plain\r\n\r\n", "\n", "")},
    {"parameters", repeated("Content-Type: text/plain", "; a=b", "\r\n\r\nbody\r\n")},
    {"parameters in pieces", repeated("Content-Type: text/plain", "; a*0=b", "\r\n\r\nbody\r\n")},
    {"semicolons", repeated("Content-Type: text/plain", ";", "\r\n\r\nbody\r\n")},
    {"quotes in a type", repeated("Content-Type: text/plain; a=", "\"", "\r\n\r\nbody\r\n")},
    {"slashes in a type", repeated("Content-Type: ", "/", "\r\n\r\nbody\r\n")},
    {"addresses", repeated("To: ", "a@b, ", "\r\n\r\n")},
    {"comments", repeated("To: ", "(", "\r\n\r\n")},
    {"backslashes", repeated("To: ", "\\", "\r\n\r\n")},
    {"angle brackets", repeated("From: ", "<", "\r\n\r\n")},
    {"a date of digits", repeated("Date: ", "1", "\r\n\r\n")},
};

TEST(LinearMime, StructureAndEnvelope)
{
    const Discard discard;
    demand_linear(messages, [](std::string &text) {
        const MemoryFile file(text);
        const uint32_t size = static_cast<uint32_t>(text.size());
        const uint32_t header = header_size_of(text);
        PartNode *parts = list_getmime(file.fd(), 0, header, size - header);
        list_getbody(file.fd(), parts, 1);
        (void)list_getenvelope(file.fd(), 0, header);
        list_freemime(parts);
    });
}

/* -- pieces -- */

TEST(LinearMime, FieldsAddressesAndParameters)
{
    const Discard discard;
    demand_linear({{"folds", repeated("a: b\r\n", " \r\n", "")},
                   {"fields", repeated("a:\r\n")},
                   {"carriage returns", repeated("\r")}},
                  [](std::string &text) {
                      for (char *field = list_get1header(text.data()); field != nullptr;)
                          field = list_get1header(nullptr);
                  });
    demand_linear({{"commas", repeated(",")},
                   {"blanks", repeated(" ")},
                   {"addresses", repeated("a@b,")},
                   {"open comments", repeated("(")},
                   {"open quotes", repeated("\"")},
                   {"backslashes", repeated("\\")},
                   {"names without addresses", repeated("\"a\" <,")}},
                  [](std::string &text) { list_parse_addr(text.data()); });
    demand_linear({{"parameters", repeated("a=b;")},
                   {"semicolons", repeated(";")},
                   {"quotes", repeated("\"")},
                   {"pieces of one", repeated("a*0=b;")},
                   {"encoded pieces", repeated("a*0*=''%41;")},
                   {"stars", repeated("*")},
                   {"equal signs", repeated("=")}},
                  [](std::string &text) {
                      mlist_release(rfc2231(text.c_str()));
                      list_parse_cparam(text.c_str());
                      list_parse_cdp(text.c_str());
                  });
}

TEST(LinearMime, Strings)
{
    const Discard discard;
    demand_linear({{"letters", repeated("x")},
                   {"quotes", repeated("\"")},
                   {"backslashes", repeated("\"", "\\", "")}},
                  [](std::string &text) { list_print_string(text.c_str()); });
}

/* -- what is asked for -- */

static const std::string mail =
    crlf("Subject: s\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n");

/* A list of names of so many letters, no two alike as long as there are others. */
static Make different_names(size_t letters)
{
    return [letters](size_t size) {
        std::string text = "BODY.PEEK[HEADER.FIELDS (";
        text.reserve(size + letters + 3);
        for (uint32_t number = 0; text.size() < size; ++number) {
            uint32_t rest = number * 2654435761u; /* scattered over all there are */
            for (size_t i = 0; i < letters; ++i, rest /= 26)
                text += static_cast<char>('a' + rest % 26);
            text += ' ';
        }
        return text + ")]";
    };
}

/* Names of one byte each, of every value that a name can have. */
static std::string names_of_a_byte()
{
    std::string text;
    for (int byte = 1; byte < 256; ++byte)
        if (strchr(" )\"\\", byte) == nullptr)
            text += std::string(1, static_cast<char>(byte)) + " ";
    return text;
}

TEST(LinearFetch, Items)
{
    const Discard discard;
    Reader reader(mail);
    demand_linear(
        {{"an unknown item", repeated("X")},
         {"digits", repeated("BODY.PEEK[", "1", "]")},
         {"parts of parts", repeated("BODY.PEEK[", "1.", "]"),
          "leaves the tree at its second step"},
         {"zeros", repeated("BODY.PEEK[", "0", "]")},
         {"dots", repeated("BODY.PEEK[", ".", "]"), "a dot behind no number ends it"},
         {"brackets", repeated("BODY.PEEK[", "]", "")},
         {"slices", repeated("BODY.PEEK[", "]<", ""), "the first counts"},
         {"digits of a slice of a part", repeated("BODY.PEEK[1]<1.", "1", ">")},
         {"a slice of digits", repeated("BODY.PEEK[]<", "1", ".1>")},
         {"names", repeated("BODY.PEEK[HEADER.FIELDS (", "A ", ")]")},
         {"names that differ", different_names(4)},
         {"long names that differ", different_names(12)},
         {"names of every byte", repeated("BODY.PEEK[HEADER.FIELDS (", names_of_a_byte(), ")]")},
         {"one name", repeated("BODY.PEEK[HEADER.FIELDS (", "A", ")]")},
         {"quotes", repeated("BODY.PEEK[HEADER.FIELDS (", "\"", ")]")},
         {"blanks", repeated("BODY.PEEK[HEADER.FIELDS (", " ", ")]")},
         {"a list without end", repeated("BODY.PEEK[HEADER.FIELDS (", "A ", "")},
         {"names to leave out", repeated("BODY.PEEK[HEADER.FIELDS.NOT (", "A ", ")]")}},
        [&](std::string &text) {
            char *items[] = {text.data(), nullptr};
            mlmbx_fetch(reader.handle(), 1, items);
        });
}

TEST(LinearFetch, HeaderFieldsOfALongHeader)
{
    const Discard discard;
    const std::string many = "HEADER.FIELDS.NOT (" + names_of_a_byte() + ")]";
    for (const char *section :
         {"HEADER.FIELDS (SUBJECT X)]", "HEADER.FIELDS.NOT (Subject X)]", many.c_str()})
        demand_linear({{"fields", repeated("Subject: x\r\n")},
                       {"continuation lines", repeated("Subject: x\r\n", " \r\n", "")},
                       {"one line", repeated("Subject: ", "x", "\r\n")},
                       {"empty lines", repeated("\r\n")},
                       {"carriage returns", repeated("\r")},
                       {"line feeds", repeated("\n")},
                       {"fields of a byte", repeated("\x01: \n")}},
                      [&](std::string &text) {
                          const MemoryFile file(text);
                          PartNode part = {};
                          part.header_length = static_cast<uint32_t>(text.size());
                          list_getsection(file.fd(), &part, section);
                      });
}
