/* JIS text to folded ISO-2022-JP encoded words. */
#include "headers/head.h"

#include <string.h>

#include "codec/conv.h"
#include "headers/head_jis.h"
#include "module/unix_sv.h"

static const char word_prefix[] = "=?ISO-2022-JP?B?";
static const char word_suffix[] = "?=";

static constexpr size_t FOLD_COLUMN = 66;       /* no word but the first may end here or later */
static constexpr size_t FIRST_WORD_COLUMN = 46; /* start of the first word's allowance */
static constexpr size_t LATER_WORD_CHARS = 13;  /* two-byte characters: a word of 62 columns */
static constexpr size_t PIECE_MAX = 2 * (FIRST_WORD_COLUMN / 3); /* bytes */

/* The header field being written. */
struct EncodedField {
    char *next;
    size_t room;     /* bytes left at next, for the NUL too */
    size_t column;   /* bytes since the line's start, without the tab of a fold */
    bool has_word;   /* one has been written */
    bool after_word; /* the last byte written ends one */
};

static int put(EncodedField *field, const char *bytes, size_t count)
{
    if (count >= field->room) {
        trace_sys(&g_logh, 1, 327, "string too long (encode_b64)");
        return -1;
    }
    memcpy(field->next, bytes, count);
    field->next += count;
    field->room -= count;
    field->column += count;
    *field->next = '\0';
    return 0;
}

static int put_ascii(EncodedField *field, const char *bytes, size_t count)
{
    if (count > 0) field->after_word = false;
    return put(field, bytes, count);
}

/* Writes what separates the next word, of length columns, from the text before it. */
static int put_separator(EncodedField *field, size_t length)
{
    const size_t blank = field->after_word ? 1 : 0;
    if (!field->has_word || field->column + blank + length < FOLD_COLUMN)
        return put(field, " ", blank);
    if (put(field, "\r\n\t", 3) < 0) return -1;
    field->column = 0;
    return 0;
}

static int put_word(EncodedField *field, const char *piece)
{
    char text[4 * ((PIECE_MAX + 2 * JIS_SHIFT_SIZE + 2) / 3) + 5];
    if (mlist_base64_encode(piece, text, sizeof text) < 0) {
        trace_sys(&g_logh, 1, 326, "base64_encode fail");
        return -1;
    }
    const size_t frame = sizeof word_prefix - 1 + sizeof word_suffix - 1;
    if (put_separator(field, frame + strlen(text)) < 0 ||
        put(field, word_prefix, sizeof word_prefix - 1) < 0 || put(field, text, strlen(text)) < 0 ||
        put(field, word_suffix, sizeof word_suffix - 1) < 0)
        return -1;
    field->has_word = field->after_word = true;
    return 0;
}

/* How many bytes of kanji the next word takes. */
static size_t piece_size(const EncodedField *field)
{
    if (field->has_word) return 2 * LATER_WORD_CHARS;
    if (field->column + 3 > FIRST_WORD_COLUMN) return 2;
    return 2 * ((FIRST_WORD_COLUMN - field->column) / 3);
}

/* Takes at most size bytes of a kanji run off *text, between ESC $ B and ESC ( B.  The bytes taken:
   fewer than size at the run's end. */
static size_t take_piece(const char **text, size_t size, char *piece_out)
{
    const char *at = *text;
    size_t taken = 0;
    memcpy(piece_out, g_kin, JIS_SHIFT_SIZE);
    while (taken < size && *at != '\0') {
        const int shift = jis_shift_at(at);
        if (shift == JIS_ASCII) break;
        if (shift > JIS_ASCII)
            at += JIS_SHIFT_SIZE; /* a kanji-in within the run says nothing new */
        else
            piece_out[JIS_SHIFT_SIZE + taken++] = *at++;
    }
    memcpy(piece_out + JIS_SHIFT_SIZE + taken, g_kout, JIS_SHIFT_SIZE);
    piece_out[taken + 2 * JIS_SHIFT_SIZE] = '\0';
    *text = at;
    return taken;
}

/* Encodes the run that begins at *text with its kanji-in; *text is then behind its kanji-out. */
static int encode_run(EncodedField *field, const char **text)
{
    char piece[PIECE_MAX + 2 * JIS_SHIFT_SIZE + 1];
    *text += JIS_SHIFT_SIZE;
    while (take_piece(text, piece_size(field), piece) > 0)
        if (put_word(field, piece) < 0) return -1;
    if (**text != '\0') *text += JIS_SHIFT_SIZE;
    return 0;
}

int encode_b64(const char *in, char *out, int size)
{
    EncodedField field = {out, size > 0 ? static_cast<size_t>(size) : 0, 0, false, false};
    if (put(&field, "", 0) < 0) return -1;
    while (*in != '\0') {
        const char *run = find_kanji_in(in);
        if (put_ascii(&field, in, static_cast<size_t>(run - in)) < 0) return -1;
        in = run;
        if (*run != '\0' && encode_run(&field, &in) < 0) return -1;
    }
    return 0;
}
