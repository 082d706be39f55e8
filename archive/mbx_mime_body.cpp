/* BODY and BODYSTRUCTURE. */
#include <string.h>

#include "archive/mime.h"
#include "module/sink.h"
#include "module/unix_sv.h"
#include "store/str.h"

namespace
{
struct Text {
    const char *start;
    size_t length;
};

/* A content type taken apart. */
struct ContentType {
    Text type;
    Text subtype;           /* start null: none */
    const char *parameters; /* null: none */
};
} // namespace

static ContentType split_content_type(const char *value)
{
    if (value == nullptr) return {{"TEXT", 4}, {"PLAIN", 5}, "CHARSET=US-ASCII"};
    const size_t type = strcspn(value, "/");
    if (value[type] == '\0') return {{value, type}, {nullptr, 0}, nullptr};
    const char *subtype = value + type + 1;
    const size_t length = strcspn(subtype, " \t;");
    const char *rest = subtype[length] != '\0' ? skip_space_tab(subtype + length + 1) : nullptr;
    return {{value, type}, {subtype, length}, rest};
}

static bool is_word(const Text &text, const char *word)
{
    return text.start != nullptr && text.length == strlen(word) &&
           same_bytes_nocase(text.start, word, text.length);
}

/* Each of these ends with a blank. */

static void print_word(const Text &text)
{
    if (text.start != nullptr)
        print_string(text.start, text.length);
    else
        put_text("NIL");
    put_text(" ");
}

static void print_value(const char *text, const char *otherwise)
{
    if (text == nullptr) return put_text(otherwise);
    list_print_string(text);
    put_text(" ");
}

static void print_common_fields(const PartNode *part, const ContentType &type)
{
    list_parse_cparam(type.parameters);
    print_value(part->content_id, "NIL ");
    print_value(part->description, "NIL ");
    print_value(part->transfer_encoding, "\"7BIT\" ");
}

static void print_line_count(MessageBytes *bytes, const PartNode *part)
{
    if (part->line_count_text != nullptr) return put_text(part->line_count_text);
    const uint64_t body = static_cast<uint64_t>(part->start) + part->header_length;
    uint32_t lines = part->lines;
    if (part->lines_known == 0)
        lines = body > UINT32_MAX
                    ? 0
                    : count_lines(bytes, static_cast<uint32_t>(body), part->body_length);
    out_printf("%u", lines);
}

static void print_end(const PartNode *part, int extensions)
{
    if (extensions != 0) {
        put_text(" NIL ");
        list_parse_cdp(part->disposition);
        put_text(" NIL");
    }
    put_text(")");
}

static void print_multipart(MessageBytes *bytes, const PartNode *part, const ContentType &type,
                            int extensions)
{
    put_text("(");
    for (uint32_t i = 0; i < part->child_count; ++i)
        getbody(bytes, part->children[i], extensions);
    put_text(" ");
    if (type.subtype.start != nullptr)
        print_string(type.subtype.start, type.subtype.length);
    else
        put_text("NIL");
    if (extensions != 0) {
        put_text(" ");
        list_parse_cparam(type.parameters);
        list_parse_cdp(part->disposition);
        put_text(" NIL");
    }
    put_text(")");
}

static void print_text(MessageBytes *bytes, const PartNode *part, const ContentType &type,
                       int extensions)
{
    put_text("(\"TEXT\" ");
    print_word(type.subtype);
    print_common_fields(part, type);
    out_printf("%u ", part->body_length);
    print_line_count(bytes, part);
    print_end(part, extensions);
}

static void print_message(MessageBytes *bytes, const PartNode *part, const ContentType &type,
                          int extensions)
{
    const PartNode *enclosed = part->enclosed;
    if (enclosed == nullptr) {
        trace_sys(&g_logh, 1, 632, "getbody: mime parse err, rfc822=NIL");
        return put_text("NIL");
    }
    put_text("(\"MESSAGE\" \"RFC822\" ");
    print_common_fields(part, type);
    out_printf("%u ", part->body_length);
    (void)getenvelope(bytes, enclosed->start, enclosed->header_length); /* printed either way */
    put_text(" ");
    getbody(bytes, enclosed, extensions);
    put_text(" ");
    print_line_count(bytes, part);
    print_end(part, extensions);
}

static void print_basic(const PartNode *part, const ContentType &type, int extensions)
{
    put_text("(");
    print_word(type.type);
    print_word(type.subtype);
    print_common_fields(part, type);
    out_printf("%u", part->body_length);
    print_end(part, extensions);
}

void getbody(MessageBytes *bytes, const PartNode *part, int extensions)
{
    if (part == nullptr) {
        trace_sys(&g_logh, 1, 631, "getbody: mime parse err, mp=NULL");
        return put_text("NIL");
    }
    const ContentType type = split_content_type(part->content_type);
    /* KEPT: it is the parts that make a multipart, not its type.
       Test: BodyStructure.DescribesAMultipartWithoutPartsAsABasicType */
    if (part->child_count > 0) return print_multipart(bytes, part, type, extensions);
    if (is_word(type.type, "TEXT")) return print_text(bytes, part, type, extensions);
    if (is_word(type.type, "MESSAGE") && is_word(type.subtype, "RFC822"))
        return print_message(bytes, part, type, extensions);
    print_basic(part, type, extensions);
}

void list_getbody(int fd, const PartNode *part, int extensions)
{
    MessageBytes bytes(fd);
    getbody(&bytes, part, extensions);
}
