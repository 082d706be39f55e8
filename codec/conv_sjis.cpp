/* Shift_JIS to JIS and back. */
#include <string.h>

#include "codec/conv.h"
#include "codec/conv_block.h"
#include "codec/conv_kana.h"

static constexpr unsigned char ESC = 0x1B;
static constexpr size_t ESCAPE_SIZE = 3;

/* -- Shift_JIS to JIS -- */

/* Eight characters with a lead byte 0x81-0x9F or 0xE0-0xEF and a trail byte 0x40-0xFC (0x7F is
   none, but calculates like its neighbours); all others, half-width katakana too, go one by one. */
struct SjisPairRule {
    static constexpr size_t unit = 2;
    static ByteBlock refused(ByteBlock block)
    {
        const PairBlock pairs = reinterpret_cast<PairBlock>(block);
        /* the exclusive or moves the two ranges of lead bytes together, to 0xA1-0xCF */
        const PairBlock lead = first_bytes(pairs) ^ 0x20, trail = second_bytes(pairs);
        const PairBlock taken = in_range(lead, 0xA1, 0xCF) & in_range(trail, 0x40, 0xFC);
        return reinterpret_cast<ByteBlock>(~taken);
    }
    static ByteBlock convert(ByteBlock block)
    {
        const PairBlock pairs = reinterpret_cast<PairBlock>(block);
        const PairBlock lead = first_bytes(pairs), trail = second_bytes(pairs);
        /* comparisons answer 0 or 0xFFFF, which is -1 */
        const PairBlock even_row = reinterpret_cast<PairBlock>(trail >= 0x9F);
        const PairBlock behind_delete = reinterpret_cast<PairBlock>(trail >= 0x7F);
        const PairBlock upper = reinterpret_cast<PairBlock>(lead >= 0xE0);
        const PairBlock first = lead * 2 - 0x61 - (upper & 0x80) - even_row;
        const PairBlock second = trail + 0x61 + behind_delete - (even_row & 0x5E);
        return reinterpret_cast<ByteBlock>(join_bytes(first & 0x7F, second & 0x7F));
    }
};

/* The text on its way.  No step begins once out has reached stop. */
struct SjisText {
    const unsigned char *in, *in_end;
    unsigned char *out, *stop;
    bool two_byte = false;

    bool more() const { return in < in_end && out < stop; }
    size_t both() const
    {
        if (!more()) return 0; /* an escape may have gone past stop */
        return static_cast<size_t>(in_end - in < stop - out ? in_end - in : stop - out);
    }
    void moved(size_t size)
    {
        in += size;
        out += size;
    }
};

static void set_two_byte(SjisText *text, bool wanted)
{
    if (text->two_byte == wanted) return;
    memcpy(text->out, wanted ? g_kin : g_kout, ESCAPE_SIZE);
    text->out += ESCAPE_SIZE;
    text->two_byte = wanted;
}

static void put_code(unsigned char **out, uint16_t code)
{
    *(*out)++ = static_cast<unsigned char>(code >> 8);
    *(*out)++ = static_cast<unsigned char>(code);
}

static void ascii_to_jis(SjisText *text)
{
    set_two_byte(text, false);
    *text->out++ = *text->in++;
    text->moved(convert_run<AsciiRule>(text->in, text->out, text->both()));
    for (; text->more() && *text->in < 0x80; text->moved(1))
        *text->out = *text->in;
}

/* A run of them.  The terminator stands behind the last byte: the next one can always be looked at.
 */
static void kana_to_jis(SjisText *text)
{
    set_two_byte(text, true);
    const unsigned char *in = text->in;
    unsigned char *out = text->out;
    do {
        const WideKana wide = jis_wide_kana(in[0], in[1]);
        put_code(&out, wide.code);
        in += wide.took_mark ? 2 : 1;
    } while (is_kana(*in) && out < text->stop);
    text->in = in;
    text->out = out;
}

static unsigned char without_top_bit(int byte)
{
    const unsigned char c = static_cast<unsigned char>(byte);
    return c >= 0xA1 && c <= 0xFE ? c & 0x7F : c;
}

/* KEPT: neither byte is tested, so what is no character yields other bytes, a zero among them.
   Test: Sjis2Jis.CalculatesWithAnyPairOfBytes */
static uint16_t jis_of_pair(int lead, int trail)
{
    const int row = 2 * lead - (lead < 0xE0 ? 0x61 : 0xE1);
    const bool even_row = trail >= 0x9F;
    const int second = even_row ? trail + 2 : trail + (trail < 0x7F ? 0x61 : 0x60);
    return static_cast<uint16_t>(without_top_bit(even_row ? row + 1 : row) << 8 |
                                 without_top_bit(second));
}

static void pairs_to_jis(SjisText *text)
{
    set_two_byte(text, true);
    const size_t run = convert_run<SjisPairRule>(text->in, text->out, text->both());
    text->moved(run);
    if (run > 0) return;
    put_code(&text->out, jis_of_pair(text->in[0], text->in[1]));
    text->in += 2;
}

char *sjis2jis(const char *in, char *out, int limit)
{
    if (in == nullptr) in = "";
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in);
    unsigned char *to = reinterpret_cast<unsigned char *>(out);
    /* KEPT: three bytes more than the limit may be written before the step that ends it all.
       Test: Sjis2Jis.StopsBehindItsLimitWhateverThatIs */
    const ptrdiff_t stop = static_cast<ptrdiff_t>(limit) + 3;
    SjisText text = {from, from + strlen(in), to, to + (stop > 0 ? stop : 0)};
    while (text.more()) {
        if (*text.in < 0x80)
            ascii_to_jis(&text);
        else if (is_kana(*text.in))
            kana_to_jis(&text);
        else if (text.in_end - text.in >= 2)
            pairs_to_jis(&text);
        else
            break; /* half a character */
    }
    set_two_byte(&text, false);
    *text.out = '\0';
    return out;
}

/* -- JIS to Shift_JIS -- */

struct PrintableRule {
    static constexpr size_t unit = 1;
    static ByteBlock refused(ByteBlock block) { return ~in_range(block, 0x20, 0x7E); }
    static ByteBlock convert(ByteBlock block) { return block; }
};

/* Eight characters of two bytes from 0x21 to 0x7E, with or without the top bit. */
struct JisPairRule {
    static constexpr size_t unit = 2;
    static ByteBlock refused(ByteBlock block) { return ~in_range(block | 0x80, 0xA1, 0xFE); }
    static ByteBlock convert(ByteBlock block)
    {
        const PairBlock pairs = reinterpret_cast<PairBlock>(block | 0x80);
        const PairBlock first = first_bytes(pairs), second = second_bytes(pairs);
        const PairBlock odd = first & 1;
        const PairBlock upper = reinterpret_cast<PairBlock>(first >= 0xDF);
        const PairBlock behind_delete = reinterpret_cast<PairBlock>(second >= 0xE0);
        const PairBlock lead = (first >> 1) + 0x30 + odd + (upper & 0x40);
        /* 0 - odd is a mask like those of the comparisons */
        const PairBlock trail = second - 2 - ((0 - odd) & (0x5F + behind_delete));
        return reinterpret_cast<ByteBlock>(join_bytes(lead & 0xFF, trail & 0xFF));
    }
};

/* The text on its way; room leaves out the terminator's byte. */
struct JisText {
    unsigned char *in, *in_end;
    unsigned char *out;
    size_t room;

    size_t left() const { return static_cast<size_t>(in_end - in); }
    size_t both() const { return left() < room ? left() : room; }
    void moved(size_t size)
    {
        in += size;
        out += size;
        room -= size;
    }
};

static bool is_printable(unsigned char c)
{
    return c >= 0x20 && c <= 0x7E;
}

/* Copies up to an escape or the end of the text; false on any other byte, or without room. */
static bool copy_ascii(JisText *text)
{
    text->moved(convert_run<PrintableRule>(text->in, text->out, text->both()));
    for (; text->left() > 0 && is_printable(*text->in); text->moved(1)) {
        if (text->room == 0) return false;
        *text->out = *text->in;
    }
    return text->left() == 0 || *text->in == ESC;
}

/* The first size bytes of the block, an even number: never one more, for what follows them is read
   next, and a processor waits for a store that a read overlaps in part. */
static void store_front(unsigned char *to, ByteBlock block, size_t size)
{
    unsigned char bytes[BLOCK_SIZE];
    store_block(bytes, block);
    if (size >= 8) {
        memcpy(to, bytes, 8);
        memcpy(to + size - 8, bytes + size - 8, 8);
    } else if (size >= 4) {
        memcpy(to, bytes, 4);
        memcpy(to + size - 4, bytes + size - 4, 4);
    } else if (size >= 2) {
        memcpy(to, bytes, 2);
    }
}

/* convert_run() that sets the top bits of what it converts. */
static size_t convert_pair_blocks(unsigned char *in, unsigned char *out, size_t size)
{
    for (size_t done = 0;; done += BLOCK_SIZE) {
        if (size - done < BLOCK_SIZE) return done;
        const ByteBlock block = load_block(in + done);
        const ByteBlock refused = JisPairRule::refused(block);
        store_block(out + done, JisPairRule::convert(block));
        if (any_mark(refused)) {
            const size_t taken = bytes_before_mark(refused) / 2 * 2;
            store_front(in + done, block | 0x80, taken);
            return done + taken;
        }
        store_block(in + done, block | 0x80);
    }
}

static unsigned char with_top_bit(unsigned char c)
{
    return c >= 0x21 && c <= 0x7E ? c | 0x80 : c;
}

/* KEPT: bytes outside 0x21 to 0x7E are calculated with as they are.
   Test: Jis2Sjis.CalculatesWithAnyPairOfBytes */
static uint16_t sjis_of_pair(int first, int second)
{
    const int upper = first < 0xDF ? 0 : 0x40;
    const bool odd = first % 2 != 0;
    const int lead = first / 2 + upper + (odd ? 0x31 : 0x30);
    const int trail = odd ? second - (second < 0xE0 ? 0x61 : 0x60) : second - 2;
    return static_cast<uint16_t>((lead & 0xFF) << 8 | (trail & 0xFF));
}

/* A run of two-byte characters up to the next escape, where an odd byte in front of it is dropped.
   False when the text ends first, or without room.
   KEPT: the characters get their top bits in the input itself.
   Test: Jis2Sjis.LeavesTopBitsInItsInput */
static bool convert_pairs(JisText *text)
{
    text->moved(convert_pair_blocks(text->in, text->out, text->both()));
    while (text->left() >= 2 && text->in[0] != ESC && text->in[1] != ESC) {
        if (text->room < 2) return false;
        text->in[0] = with_top_bit(text->in[0]);
        text->in[1] = with_top_bit(text->in[1]);
        put_code(&text->out, sjis_of_pair(text->in[0], text->in[1]));
        text->in += 2;
        text->room -= 2;
    }
    if (text->left() >= 2 && text->in[0] != ESC) ++text->in;
    return text->left() > 0 && *text->in == ESC;
}

/* The half-width code of a 7-bit katakana byte, 0 for any other byte. */
static unsigned char kana_of_7bit(unsigned char c)
{
    return c >= 0x21 && c <= 0x5F ? c | 0x80 : 0;
}

/* A run of 7-bit half-width katakana up to the next escape; false on any other byte, when the text
   ends first, or without room. */
static bool convert_kana(JisText *text)
{
    unsigned char *in = text->in, *out = text->out, *const out_end = out + text->room;
    unsigned char kana = kana_of_7bit(*in);
    while (kana != 0 && out_end - out >= 2) {
        unsigned char next = kana_of_7bit(*++in);
        const WideKana wide = sjis_wide_kana(kana, next);
        put_code(&out, wide.code);
        if (wide.took_mark) next = kana_of_7bit(*++in);
        kana = next;
    }
    text->in = in;
    text->out = out;
    text->room = static_cast<size_t>(out_end - out);
    return kana == 0 && *in == ESC;
}

/* An escape and the run behind it; false on an unknown one. */
static bool convert_escape(JisText *text)
{
    if (text->left() < ESCAPE_SIZE) return false;
    const unsigned char set = text->in[1], final = text->in[2];
    text->in += ESCAPE_SIZE;
    if (set == '$' && (final == 'B' || final == '@')) return convert_pairs(text);
    if (set == '(' && final == 'I') return convert_kana(text);
    return set == '('; /* any other final byte: ASCII from here */
}

char *jis2sjis(char *in, char *out, int limit)
{
    if (limit <= 0) return nullptr;
    unsigned char *from = reinterpret_cast<unsigned char *>(in);
    JisText text = {from, from + strlen(in), reinterpret_cast<unsigned char *>(out),
                    static_cast<size_t>(limit) - 1};
    bool good = true;
    while (good && text.left() > 0)
        good = *text.in == ESC ? convert_escape(&text) : copy_ascii(&text);
    *text.out = '\0';
    return good ? out : nullptr;
}
