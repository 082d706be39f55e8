/* Conversions to EUC-JP for comparison.  Line ends are dropped, so that a word broken over two
   lines is found. */
#include <string.h>

#include "archive/search.h"
#include "codec/conv_kana.h"

static constexpr char ESCAPE = 0x1B;

/* Size of the run at data that holds neither CR, LF nor any byte of stop. */
static size_t plain_run(const char *data, size_t size, char stop)
{
    size_t run = 0;
    while (run < size && data[run] != '\r' && data[run] != '\n' && data[run] != stop)
        ++run;
    return run;
}

bool search_euc2euc(const char *data, size_t size, GrowingText *out)
{
    while (size > 0) {
        const size_t run = plain_run(data, size, '\n');
        if (!out->append(data, run)) return false;
        const size_t step = run < size ? run + 1 : run;
        data += step;
        size -= step;
    }
    return true;
}

/* Appends a run with the top bit of every byte set. */
static bool append_two_byte_run(const char *data, size_t size, GrowingText *out)
{
    const size_t before = out->count();
    if (!out->append(data, size)) return false;
    for (size_t i = before; i < out->count(); ++i)
        out->items()[i] = static_cast<char>(out->items()[i] | '\x80');
    return true;
}

bool search_jis2euc(const char *data, size_t size, GrowingText *out)
{
    bool two_byte = false;
    while (size > 0) {
        const size_t run = plain_run(data, size, ESCAPE);
        if (two_byte ? !append_two_byte_run(data, run, out) : !out->append(data, run)) return false;
        data += run;
        size -= run;
        if (size == 0) break;
        size_t step = 1;
        if (*data == ESCAPE) {
            if (size < 3) break; /* half an escape ends the text */
            two_byte = data[1] == '$';
            step = 3;
        }
        data += step;
        size -= step;
    }
    return true;
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

/* Converts what begins at data; the bytes it took, 0 without memory. */
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
    return c == '\r' || c == '\n' || out->append(pair, 1) ? 1 : 0;
}

bool search_sjis2euc(const char *data, size_t size, GrowingText *out)
{
    while (size > 0) {
        const size_t took =
            convert_sjis_step(reinterpret_cast<const unsigned char *>(data), size, out);
        if (took == 0) return false;
        data += took;
        size -= took;
    }
    return true;
}
