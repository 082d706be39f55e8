/* From value to bare address. */
#include "headers/head.h"

#include <string.h>

#include "module/unix_sv.h"
#include "store/str.h"

/* Removes comments in place.

   KEPT: the escape character inside a comment is "/", not a backslash.
   Test: MakeOwnerString.ASlashEscapesAParenthesisInsideAComment */
static void drop_comments(char *text)
{
    char *out = text;
    int depth = 0;
    bool quoted = false;
    char before = '\0';
    for (const char *at = text; *at != '\0'; before = *at++) {
        if (depth == 0) {
            if (*at == '"') quoted = !quoted;
            if (*at == '(' && !quoted)
                depth = 1;
            else
                *out++ = *at;
        } else if (before != '/') {
            if (*at == '(') ++depth;
            if (*at == ')') --depth;
        }
    }
    *out = '\0';
}

/* The first "<" outside double quotes, or null. */
static const char *find_angle(const char *text)
{
    bool quoted = false;
    for (text = strpbrk(text, "<\""); text != nullptr; text = strpbrk(text + 1, "<\"")) {
        if (*text == '<' && !quoted) return text;
        if (*text == '"') quoted = !quoted;
    }
    return nullptr;
}

static void keep_address(char *text)
{
    const char *open = find_angle(text);
    const char *close = open != nullptr ? strchr(open, '>') : nullptr;
    const char *start = close != nullptr ? open + 1 : skip_space_tab(text);
    const size_t length = close != nullptr ? static_cast<size_t>(close - start) : strlen(start);
    memmove(text, start, length);
    text[length] = '\0';
}

void make_owner_string(char *text)
{
    if (strlen(text) > LINE_SIZE) {
        trace_sys(&g_logh, 3, 337, "buffer too short [make_owner_string]");
        return;
    }
    drop_comments(text);
    strip_endchar(text);
    keep_address(text);
}
