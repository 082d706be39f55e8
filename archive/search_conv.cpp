/* Conversions to EUC-JP for comparison.  Line ends are dropped, so that a word broken over two
   lines is found. */
#include <string.h>

#include "archive/search.h"
#include "codec/conv_kana.h"

static constexpr char ESCAPE = 0x1B;

/* Bytes in front of the first stop. */
static size_t run_before(const char *data, size_t size, char stop)
{
    const void *found = size > 0 ? memchr(data, stop, size) : nullptr;
    return found != nullptr ? static_cast<size_t>(static_cast<const char *>(found) - data) : size;
}

/* Appends a line without its CRs. */
static bool append_line(const char *line, size_t size, GrowingText *out)
{
    for (size_t at = 0; at < size;) {
        const size_t run = run_before(line + at, size - at, '\r');
        if (!out->append(line + at, run)) return false;
        at += run + 1;
    }
    return true;
}

bool search_euc2euc(const char *data, size_t size, GrowingText *out)
{
    if (!out->reserve(size)) return false;
    for (size_t at = 0; at < size;) {
        const size_t line = run_before(data + at, size - at, '\n');
        if (!append_line(data + at, line, out)) return false;
        at += line + 1;
    }
    return true;
}

static void set_top_bits(char *text, size_t size)
{
    for (size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>(text[i] | '\x80');
}

bool search_jis2euc(const char *data, size_t size, GrowingText *out)
{
    if (!out->reserve(size)) return false;
    bool two_byte = false;
    for (;;) {
        const size_t run = run_before(data, size, ESCAPE), before = out->count();
        if (!search_euc2euc(data, run, out)) return false;
        if (two_byte) set_top_bits(out->items() + before, out->count() - before);
        if (size - run < 3) return true; /* half an escape ends the text */
        two_byte = data[run + 1] == '$';
        data += run + 3;
        size -= run + 3;
    }
}

/* -- Shift_JIS -- */

static bool is_lead(unsigned char c)
{
    return (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC);
}

static bool is_trail(unsigned char c)
{
    return (c >= 0x40 && c <= 0x7E) || (c >= 0x80 && c <= 0xFC);
}

static void convert_pair(unsigned lead, unsigned trail, char *pair)
{
    const unsigned row = 2 * lead - (lead < 0xE0 ? 0x60 : 0xE0);
    const bool upper = trail >= 0x9F;
    pair[0] = static_cast<char>(upper ? row : row - 1);
    pair[1] = static_cast<char>(upper ? trail + 2 : trail + (trail < 0x7F ? 0x61 : 0x60));
}

/* Converts what begins at data, not in ASCII; the bytes it took, 0 without memory. */
static size_t convert_sjis_step(const unsigned char *data, size_t size, GrowingText *out)
{
    const unsigned char c = data[0];
    char pair[2] = {static_cast<char>(c), 0};
    if (is_kana(c)) {
        const WideKana wide = jis_wide_kana(c, size > 1 ? data[1] : 0);
        pair[0] = static_cast<char>(wide.code >> 8 | 0x80);
        pair[1] = static_cast<char>((wide.code & 0xFF) | 0x80);
        return out->append(pair, 2) ? (wide.took_mark ? 2 : 1) : 0;
    }
    if (is_lead(c) && size == 1) return 1; /* half a character ends the text */
    if (is_lead(c) && c < 0xF0 && is_trail(data[1])) {
        convert_pair(c, data[1], pair);
        return out->append(pair, 2) ? 2 : 0;
    }
    if (is_lead(c) && is_trail(data[1])) { /* rows that JIS does not have */
        pair[1] = static_cast<char>(data[1]);
        return out->append(pair, 2) ? 2 : 0;
    }
    return out->append(pair, 1) ? 1 : 0;
}

static size_t ascii_run(const char *data, size_t size)
{
    size_t run = 0;
    while (run < size && static_cast<unsigned char>(data[run]) < 0x80)
        ++run;
    return run;
}

bool search_sjis2euc(const char *data, size_t size, GrowingText *out)
{
    if (!out->reserve(size)) return false;
    for (;;) {
        const size_t run = ascii_run(data, size);
        if (!search_euc2euc(data, run, out)) return false;
        data += run;
        size -= run;
        if (size == 0) return true;
        const size_t took =
            convert_sjis_step(reinterpret_cast<const unsigned char *>(data), size, out);
        if (took == 0) return false;
        data += took;
        size -= took;
    }
}
