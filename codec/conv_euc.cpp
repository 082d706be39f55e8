/* EUC-JP to JIS: the banners and the host's welcome and help texts pass through here on their way
   into a mail. */
#include <string.h>

#include "codec/conv.h"
#include "codec/conv_block.h"
#include "codec/conv_kana.h"

static constexpr unsigned char SINGLE_SHIFT_2 = 0x8E;
static constexpr unsigned char FIRST_LEAD = 0xA1;
static constexpr size_t ESCAPE_SIZE = 3;

/* Both bytes of a well-formed character have the top bit, and lose it. */
struct EucPairRule {
    static constexpr size_t unit = 2;
    static ByteBlock refused(ByteBlock block)
    {
        return reinterpret_cast<ByteBlock>(block < ByteBlock{} + FIRST_LEAD);
    }
    static ByteBlock convert(ByteBlock block) { return block & 0x7F; }
};

/* The text on its way: what is left to read, and where and how much may still be written, the
   terminator not counted. */
struct EucText {
    const unsigned char *in, *in_end;
    unsigned char *out;
    size_t room;
    bool two_byte = false;

    size_t left() const { return static_cast<size_t>(in_end - in); }
    size_t both() const { return left() < room ? left() : room; }
    void moved(size_t size)
    {
        in += size;
        out += size;
        room -= size;
    }
};

static bool put_bytes(EucText *text, const void *bytes, size_t size)
{
    if (text->room < size) return false;
    memcpy(text->out, bytes, size);
    text->out += size;
    text->room -= size;
    return true;
}

static bool set_two_byte(EucText *text, bool wanted)
{
    if (text->two_byte == wanted) return true;
    if (!put_bytes(text, wanted ? g_kin : g_kout, ESCAPE_SIZE)) return false;
    text->two_byte = wanted;
    return true;
}

static bool is_single(unsigned char c)
{
    return c < FIRST_LEAD && c != SINGLE_SHIFT_2;
}

static bool convert_singles(EucText *text)
{
    if (!set_two_byte(text, false)) return false;
    text->moved(convert_run<AsciiRule>(text->in, text->out, text->both()));
    for (; text->in < text->in_end && is_single(*text->in); text->moved(1)) {
        if (text->room == 0) return false;
        *text->out = *text->in;
    }
    return true;
}

/* KEPT: the trail byte is not looked at, so an ASCII byte behind a lead byte is taken into the
   pair, and a trail byte of 0x80 ends the text.  Test: Euc2Jis.TakesWhateverFollowsALeadByte */
static bool convert_pairs(EucText *text)
{
    if (!set_two_byte(text, true)) return false;
    text->moved(convert_run<EucPairRule>(text->in, text->out, text->both()));
    for (; text->left() >= 2 && text->in[0] >= FIRST_LEAD; text->moved(2)) {
        if (text->room < 2) return false;
        text->out[0] = text->in[0] & 0x7F;
        text->out[1] = text->in[1] & 0x7F;
    }
    return true;
}

/* The half-width code at a single shift, 0 when there is none. */
static unsigned char shifted_kana(const unsigned char *in, const unsigned char *in_end)
{
    return in_end - in >= 2 && in[0] == SINGLE_SHIFT_2 && is_kana(in[1]) ? in[1] : 0;
}

static bool convert_kana(EucText *text)
{
    const unsigned char *in = text->in, *const in_end = text->in_end;
    unsigned char kana = shifted_kana(in, in_end);
    if (kana == 0) { /* a shift of nothing */
        ++text->in;
        return true;
    }
    if (!set_two_byte(text, true)) return false;
    unsigned char *out = text->out, *const out_end = out + text->room;
    while (kana != 0 && out_end - out >= 2) {
        in += 2;
        unsigned char next = shifted_kana(in, in_end);
        const WideKana wide = jis_wide_kana(kana, next);
        *out++ = static_cast<unsigned char>(wide.code >> 8);
        *out++ = static_cast<unsigned char>(wide.code);
        if (wide.took_mark) {
            in += 2;
            next = shifted_kana(in, in_end);
        }
        kana = next;
    }
    text->in = in;
    text->out = out;
    text->room = static_cast<size_t>(out_end - out);
    return kana == 0;
}

static bool convert_text(EucText *text)
{
    while (text->in < text->in_end) {
        bool fits;
        if (is_single(*text->in))
            fits = convert_singles(text);
        else if (*text->in == SINGLE_SHIFT_2)
            fits = convert_kana(text);
        else if (text->left() >= 2)
            fits = convert_pairs(text);
        else
            break; /* half a character */
        if (!fits) return false;
    }
    return set_two_byte(text, false);
}

int euc2jis(const char *in, char *out, int size)
{
    if (size <= 0) return -1;
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in);
    EucText text = {from, from + strlen(in), reinterpret_cast<unsigned char *>(out),
                    static_cast<size_t>(size) - 1};
    const bool complete = convert_text(&text);
    *text.out = '\0';
    return complete ? 0 : -1;
}
