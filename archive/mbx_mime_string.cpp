/* How a text becomes a string of IMAP. */
#include <stdio.h>
#include <string.h>

#include "archive/mime.h"
#include "module/guards.h"
#include "module/sink.h"

#define LONGEST_QUOTED 79

void put_bytes(const char *data, size_t size)
{
    KeepErrno keep;
    (void)fwrite(data, 1, size, mlist_get_output()); /* a reader that went away is the host's */
}

void put_text(const char *text)
{
    put_bytes(text, strlen(text));
}

static void put_literal(const char *text, size_t length)
{
    out_printf("{%zu}\r\n", length);
    put_bytes(text, length);
}

static void put_quoted(const char *text, size_t length)
{
    put_bytes("\"", 1);
    put_bytes(text, length);
    put_bytes("\"", 1);
}

static bool is_plain(const char *text, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (!is_ascii_alnum(c) && c != '.' && c != '-' && c != '_' && c != ' ') return false;
    }
    return true;
}

/* What a double quote begins.
   KEPT: the first character is not looked at, not even for the closing quote; letters and digits
   alone make a literal and anything else is quoted as it stands, just the other way round than
   without quotes; what follows the closing quote is lost.
   Test: PrintString.TurnsTheRuleRoundBehindAQuote */
static void print_quoted_content(const char *content, size_t length)
{
    bool alphanumeric = true;
    size_t end = length < 1 ? length : 1;
    for (; end < length && content[end] != '"'; ++end) {
        if (!is_ascii_alnum(static_cast<unsigned char>(content[end]))) alphanumeric = false;
        if (content[end] != '\\') continue;
        if (end + 1 == length) break; /* or it would escape the quote that we set */
        ++end;
    }
    if (alphanumeric)
        put_literal(content, end);
    else
        put_quoted(content, end);
}

void print_string(const char *text, size_t length)
{
    if (length > 0 && text[0] == '"')
        print_quoted_content(text + 1, length - 1);
    else if (length <= LONGEST_QUOTED && is_plain(text, length))
        put_quoted(text, length);
    else
        put_literal(text, length);
}

void list_print_string(const char *text)
{
    if (text != nullptr) print_string(text, strlen(text));
}
