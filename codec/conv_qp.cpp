/* Quoted-printable: the other encoding of a header's encoded words.  Lines end in LF here. */
#include <string.h>

#include "codec/conv.h"
#include "module/unix_sv.h"

const char base16[] = "0123456789ABCDEF";

const signed char base128[256] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  -1, -1, -1, -1, -1, -1, -1, 10, 11, 12, 13, 14, 15, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, 10, 11, 12, 13, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
};

/* -- encoding -- */

const char From[] = "\nFrom ";

/* KEPT: the digits of high nibbles 8 to 15 are not hexadecimal, and the first and the last of them
   end the text for its reader: only 7-bit text is ever encoded here.
   Test: QpEncode.WritesOddDigitsForBytesAbove7F */
static const char high_digits[] = {
    '0', '1', '2', '3', '4', '5', '6', '7', '\0', '\n', 'F', 'r', 'o', 'm', ' ', '\0',
};

enum class LineSoFar { empty, dot, text, ends_in_blank };

/* The text on its way out. */
struct QpLine {
    char *out;
    int line_length;
    int column = 0;
    LineSoFar so_far = LineSoFar::empty;
    int from_matched =
        1; /* of From; a text begins like behind a line end; -1 no more in this line */
};

/* Whether c is the space of a "From " that begins the line. */
static bool completes_from(QpLine *line, char c)
{
    if (line->from_matched < 0 || c != From[line->from_matched]) {
        line->from_matched = -1;
        return false;
    }
    ++line->from_matched;
    if (From[line->from_matched] != '\0') return false;
    line->from_matched = -1;
    return true;
}

static void put_escape(QpLine *line, unsigned char c)
{
    *line->out++ = '=';
    *line->out++ = high_digits[c >> 4];
    *line->out++ = base16[c & 15];
    line->column += 3;
}

static void put_plain(QpLine *line, char c)
{
    *line->out++ = c;
    ++line->column;
}

static void put_soft_break(QpLine *line)
{
    *line->out++ = '=';
    *line->out++ = '\n';
}

/* A lone dot and white space at the end would not survive transport: a soft break covers them. */
static void put_line_end(QpLine *line)
{
    if (line->so_far == LineSoFar::dot || line->so_far == LineSoFar::ends_in_blank)
        put_soft_break(line);
    *line->out++ = '\n';
    line->column = 0;
    line->so_far = LineSoFar::empty;
    line->from_matched = 1;
}

static int test_length(QpLine *line, int msgno, const char *text)
{
    if (line->column <= line->line_length) return 0;
    put_soft_break(line);
    trace_sys(&g_logh, 3, msgno, "%s", text);
    return -1;
}

static int encode_byte(QpLine *line, char c)
{
    if (c == '\n') {
        put_line_end(line);
        return 0;
    }
    const bool from_space = completes_from(line, c);
    if (c == ' ' || c == '\t') {
        line->so_far = LineSoFar::ends_in_blank;
        if (from_space)
            put_escape(line, ' ');
        else
            put_plain(line, c);
        return test_length(line, 128, "String Too Long in Quoted Printable Encode1");
    }
    line->so_far = c == '.' && line->so_far == LineSoFar::empty ? LineSoFar::dot : LineSoFar::text;
    if (c >= 33 && c <= 126 && c != '=') {
        put_plain(line, c);
        return test_length(line, 130, "String Too Long in Quoted Printable Encode3");
    }
    put_escape(line, static_cast<unsigned char>(c));
    return test_length(line, 129, "String Too Long in Quoted Printable Encode2");
}

int mlist_quoted_printable_encode(const char *in, char *out, int line_length)
{
    QpLine line = {out, line_length};
    int result = 0;
    for (; result == 0 && *in != '\0'; ++in)
        result = encode_byte(&line, *in);
    *line.out = '\0';
    return result;
}

/* -- decoding -- */

int puthexchar(int hi, int lo, char **out, int *reported)
{
    if (hi == '\0' || lo == '\0') {
        trace_sys(&g_logh, 3, 134, "Error Occured in Quoted Printable Decode");
        return -1;
    }
    const int high = base128[hi & 0xFF], low = base128[lo & 0xFF];
    if (high < 0 || low < 0) {
        if (!*reported) trace_sys(&g_logh, 3, 131, "Can't Translate Hex to Character %c%c", hi, lo);
        *reported = 1;
        return -1;
    }
    *(*out)++ = static_cast<char>(high << 4 | low);
    return 0;
}

/* The text stops inside an escape: what there is of it is passed on. */
static int stop_in_escape(const char *escape, char *out, int msgno, const char *text)
{
    memmove(out, escape, strlen(escape) + 1);
    trace_sys(&g_logh, 3, msgno, "%s", text);
    return -1;
}

int quoted_printable_decode(const char *in, char *out)
{
    int reported = 0;
    const char *escape;
    while ((escape = strchr(in, '=')) != nullptr) {
        memmove(out, in, static_cast<size_t>(escape - in));
        out += escape - in;
        in = escape + 1;
        if (in[0] == '\0')
            return stop_in_escape(escape, out, 132,
                                  "End of File after = in Quoted Printable Decode1");
        if (in[0] == '\n') {
            ++in;
            continue;
        }
        if (in[1] == '\0')
            return stop_in_escape(escape, out, 133,
                                  "End of File after = in Quoted Printable Decode2");
        if (puthexchar(static_cast<unsigned char>(in[0]), static_cast<unsigned char>(in[1]), &out,
                       &reported) == 0)
            in += 2;
        else
            *out++ = '=';
    }
    memmove(out, in, strlen(in) + 1);
    return 0;
}
