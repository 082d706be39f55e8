/* Decoding for comparison: base64, the "Q" encoding (RFC 2047), and encoded words. */
#include <string.h>

#include "archive/search.h"
#include "codec/conv.h"
#include "module/ascii.h"
#include "module/unix_sv.h"

static bool is_space(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool search_b64_dec(const char *data, size_t size, GrowingText *out)
{
    uint32_t bits = 0;
    int count = 0;
    bool reported = false;
    char block[768];
    size_t used = 0;
    if (!out->reserve(size / 4 * 3 + 3)) return false;
    for (size_t i = 0; i < size && data[i] != '='; ++i) {
        const int8_t value = b64_dec_t[static_cast<unsigned char>(data[i])];
        if (value < 0) {
            /* Once a text: a body of nothing else must not fill the log. */
            if (!is_space(data[i]) && !reported)
                trace_sys(&g_logh, 11, 812, "search_b64_dec: illegal character");
            reported = reported || !is_space(data[i]);
            continue;
        }
        bits = bits << 6 | static_cast<uint32_t>(value);
        if (++count % 4 == 1) continue;
        block[used++] = static_cast<char>(bits >> (count % 4 == 2 ? 4 : count % 4 == 3 ? 2 : 0));
        if (used < sizeof(block)) continue;
        if (!out->append(block, used)) return false;
        used = 0;
    }
    return out->append(block, used);
}

bool search_q_dec(const char *data, size_t size, GrowingText *out)
{
    for (size_t i = 0; i < size; ++i) {
        char c = data[i] == '_' ? ' ' : data[i];
        if (c == '=' && i + 2 < size) {
            const int8_t high = base128[static_cast<unsigned char>(data[i + 1])];
            const int8_t low = base128[static_cast<unsigned char>(data[i + 2])];
            if (high >= 0 && low >= 0) {
                c = static_cast<char>(high << 4 | low);
                i += 2;
            }
        }
        if (!out->add(c)) return false;
    }
    return true;
}

/* -- encoded words -- */

static const struct {
    const char *charset;
    bool (*convert)(const char *, size_t, GrowingText *);
} word_charsets[] = {
    {"ISO-2022-JP?", search_jis2euc},
    {"SHIFT_JIS?", search_sjis2euc},
    {"EUC-JP?", search_euc2euc},
};

struct EncodedWord {
    bool (*convert)(const char *, size_t, GrowingText *);
    bool base64;
    const char *text;
    size_t text_size;
    size_t size; /* of the whole word; 0: none here */
};

/* The place of needle in text, or null. */
static const char *find(const char *text, size_t size, const char *needle)
{
    return static_cast<const char *>(memmem(text, size, needle, strlen(needle)));
}

/* The encoded word at text, if we know its charset.  *ends becomes false when no "?=" is left: it
   is not looked for again, however many words begin. */
static EncodedWord word_at(const char *text, size_t size, bool *ends)
{
    EncodedWord none = {};
    if (size < 2 || text[0] != '=' || text[1] != '?') return none;
    for (const auto &row : word_charsets) {
        const size_t begin = 2 + strlen(row.charset) + 2; /* "=?", charset "?", encoding "?" */
        if (size < begin || !same_bytes_nocase(text + 2, row.charset, strlen(row.charset)))
            continue;
        const unsigned char encoding = ascii_lower(static_cast<unsigned char>(text[begin - 2]));
        if ((encoding != 'b' && encoding != 'q') || text[begin - 1] != '?') return none;
        const char *end = *ends ? find(text + begin, size - begin, "?=") : nullptr;
        *ends = end != nullptr;
        if (end == nullptr) return none;
        const size_t length = static_cast<size_t>(end - text) - begin;
        return {row.convert, encoding == 'b', text + begin, length, begin + length + 2};
    }
    return none;
}

static bool append_word(const EncodedWord &word, GrowingText *out)
{
    GrowingText decoded;
    if (word.base64 ? !search_b64_dec(word.text, word.text_size, &decoded)
                    : !search_q_dec(word.text, word.text_size, &decoded))
        return false;
    return word.convert(decoded.items(), decoded.count(), out);
}

static size_t space_at(const char *text, size_t size)
{
    size_t space = 0;
    while (space < size && is_space(text[space]))
        ++space;
    return space;
}

/* How much of the text is copied as it stands: up to the next "=?", of which at least one byte. */
static size_t plain_size(const char *text, size_t size)
{
    const char *next = size > 1 ? find(text + 1, size - 1, "=?") : nullptr;
    return next != nullptr ? static_cast<size_t>(next - text) : size;
}

bool search_mime_decode(const char *header, size_t size, GrowingText *out)
{
    if (!out->reserve(size)) return false;
    bool ends = true;
    while (size > 0) {
        const EncodedWord word = word_at(header, size, &ends);
        const size_t took = word.size != 0 ? word.size : plain_size(header, size);
        if (word.size != 0 ? !append_word(word, out) : !out->append(header, took)) return false;
        header += took;
        size -= took;
        if (word.size == 0) continue;
        /* Between two words, white space is not part of the text. */
        const size_t space = space_at(header, size);
        if (space == 0 || word_at(header + space, size - space, &ends).size == 0) continue;
        header += space;
        size -= space;
    }
    return true;
}
