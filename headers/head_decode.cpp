/* ISO-2022-JP encoded words to JIS text. */
#include "headers/head.h"

#include <string.h>

#include "codec/conv.h"
#include "module/ascii.h"
#include "module/unix_sv.h"

struct EncodedWord {
    const char *begin, *end; /* the whole of it; both at the end of the text when there is none */
    const char *text;        /* what is encoded */
    size_t length;
    bool base64;
};

/* Length of "=?ISO-2022-JP?B?" or its "Q" form at text, or 0. */
static size_t word_prefix_at(const char *text)
{
    static const char charset[] = "=?ISO-2022-JP?";
    if (!begins_nocase(text, charset)) return 0;
    const char *encoding = text + sizeof charset - 1;
    if (ascii_lower(static_cast<unsigned char>(*encoding)) != 'b' &&
        ascii_lower(static_cast<unsigned char>(*encoding)) != 'q')
        return 0;
    return encoding[1] == '?' ? sizeof charset + 1 : 0;
}

/* The next word of a text that can be decoded. */
static EncodedWord find_word(const char *text)
{
    for (const char *at = strchr(text, '='); at != nullptr; at = strchr(at + 1, '=')) {
        const size_t prefix = word_prefix_at(at);
        if (prefix == 0) continue;
        /* Searched behind the prefix, whose own "?" may stand before a "=".  What is not closed
           here is not closed later either. */
        const char *close = strstr(at + prefix, "?=");
        if (close == nullptr) break;
        const char *encoded = at + prefix;
        return {at, close + 2, encoded, static_cast<size_t>(close - encoded),
                ascii_lower(static_cast<unsigned char>(encoded[-2])) == 'b'};
    }
    const char *end_of_text = text + strlen(text);
    return {end_of_text, end_of_text, end_of_text, 0, false};
}

static int too_long()
{
    trace_sys(&g_logh, 1, 325, "strings too long (decode)");
    return -1;
}

/* Words may hide line ends; put back into a header line they would begin a line of their own. */
static void blank_line_ends(char *text)
{
    for (char *at = strpbrk(text, "\r\n"); at != nullptr; at = strpbrk(at + 1, "\r\n"))
        *at = ' ';
}

static int decode_word(const EncodedWord &word, char *out)
{
    char encoded[LINE_SIZE];
    if (word.length >= sizeof encoded) return too_long();
    memcpy(encoded, word.text, word.length);
    encoded[word.length] = '\0';
    if (word.base64 && mlist_base64_decode(encoded, out) < 0) {
        trace_sys(&g_logh, 3, 323, "base64_decode fail");
        return -1;
    }
    if (!word.base64 && quoted_printable_decode(encoded, out) < 0) {
        trace_sys(&g_logh, 3, 324, "quoted_printable_decode fail");
        return -1;
    }
    blank_line_ends(out);
    return 0;
}

static bool all_blanks(const char *begin, const char *end)
{
    return begin + strspn(begin, " ") >= end;
}

/* Copies what stands before the word.  Blanks between two words belong to the folding; tabs do
   not.  Returns where the next byte goes. */
static char *copy_gap(const char *in, const EncodedWord &word, bool after_word, char *out)
{
    const bool between_words = after_word && *word.begin != '\0';
    if (between_words && all_blanks(in, word.begin)) return out;
    const size_t length = static_cast<size_t>(word.begin - in);
    memcpy(out, in, length);
    return out + length;
}

/* The output is never ahead of the input: a word loses the 18 bytes of its frame and a quarter of
   its text (quoted-printable at least does not grow) and gains at most one escape sequence.  So
   when the input fits, every step does, with the slack that the base64 decoder asks for. */
int decode(const char *in, char *out, int size)
{
    if (size <= 0) return too_long();
    *out = '\0';
    if (strlen(in) + 1 > static_cast<size_t>(size)) return too_long();

    bool after_word = false;
    for (;;) {
        const EncodedWord word = find_word(in);
        out = copy_gap(in, word, after_word, out);
        *out = '\0';
        if (*word.begin == '\0') return 0;
        if (decode_word(word, out) < 0) {
            *out = '\0';
            return -1;
        }
        out += strlen(out);
        in = word.end;
        after_word = true;
    }
}
