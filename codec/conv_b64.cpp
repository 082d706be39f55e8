/* Base64, texts and streams: the encoded words of a header, and files turned into text. */
#include <string.h>

#include "codec/conv.h"
#include "codec/conv_b64.h"
#include "codec/conv_block.h"
#include "module/unix_sv.h"
#include "store/ntio.h"

const char b64_enc_t[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

const signed char b64_dec_t[256] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 62, -1, -1, -1, 63,
    52, 53, 54, 55, 56, 57, 58, 59, 60, 61, -1, -1, -1, -1, -1, -1, -1, 0,  1,  2,  3,  4,  5,  6,
    7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, -1, -1, -1, -1, -1,
    -1, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48,
    49, 50, 51, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
};

static constexpr size_t BLOCK_BYTES = 12; /* make a block of sixteen characters */

static uint64_t load_six_bytes(const unsigned char *from) /* reads eight */
{
    uint64_t value;
    memcpy(&value, from, sizeof value);
    return __builtin_bswap64(value) >> 16;
}

static void store_six_bytes(unsigned char *to, uint64_t value) /* writes eight */
{
    value = __builtin_bswap64(value << 16);
    memcpy(to, &value, sizeof value);
}

/* -- encoding -- */

void base256to64(unsigned char b1, unsigned char b2, unsigned char b3, int missing, char **out)
{
    if (missing >= 2) b2 = 0;
    if (missing >= 1) b3 = 0;
    char *to = *out;
    to[0] = b64_enc_t[b1 >> 2];
    to[1] = b64_enc_t[(b1 & 3) << 4 | b2 >> 4];
    to[2] = missing >= 2 ? '=' : b64_enc_t[(b2 & 15) << 2 | b3 >> 6];
    to[3] = missing >= 1 ? '=' : b64_enc_t[b3 & 63];
    *out = to + 4;
}

/* Two times 48 bits spread to eight values of 6 bits each, the first into the lowest byte. */
static ByteBlock spread_bits(HalfBlock bits)
{
    bits = bits >> 24 | (bits & 0xFFFFFF) << 32;
    bits = (bits >> 12 & 0x00000FFF00000FFF) | (bits & 0x00000FFF00000FFF) << 16;
    bits = (bits >> 6 & 0x003F003F003F003F) | (bits & 0x003F003F003F003F) << 8;
    return reinterpret_cast<ByteBlock>(bits);
}

/* value (modulo 256) where marked, 0 elsewhere */
static ByteBlock where(ByteBlock marks, int value)
{
    return marks & static_cast<unsigned char>(value);
}

/* Marks the bytes above limit; all are below 0x80, and the signed comparison is the cheap one. */
static ByteBlock above(ByteBlock values, signed char limit)
{
    typedef signed char SignedBlock __attribute__((vector_size(BLOCK_SIZE)));
    return reinterpret_cast<ByteBlock>(reinterpret_cast<SignedBlock>(values) > limit);
}

static ByteBlock equal(ByteBlock bytes, unsigned char byte)
{
    return reinterpret_cast<ByteBlock>(bytes == byte);
}

/* The alphabet as sums: each of A, a, 0, + and / stands at a distance of its own from its value. */
static ByteBlock letters_of(ByteBlock values)
{
    constexpr int upper = 'A', lower = 'a' - 26, digit = '0' - 52, plus = '+' - 62,
                  slash = '/' - 63;
    return values + static_cast<unsigned char>(upper) + where(above(values, 25), lower - upper) +
           where(above(values, 51), digit - lower) + where(above(values, 61), plus - digit) +
           where(above(values, 62), slash - plus);
}

size_t b64_encode_blocks(const unsigned char *in, size_t size, char *out)
{
    if (!LITTLE_ENDIAN_HOST) return 0;
    size_t done = 0;
    for (; size - done >= BLOCK_BYTES + 2; done += BLOCK_BYTES, out += BLOCK_SIZE) {
        const HalfBlock bits = {load_six_bytes(in + done), load_six_bytes(in + done + 6)};
        store_block(reinterpret_cast<unsigned char *>(out), letters_of(spread_bits(bits)));
    }
    return done;
}

/* size is a multiple of three. */
static void encode_groups(const unsigned char *in, size_t size, char **out)
{
    size_t done = b64_encode_wide(in, size, *out);
    done += b64_encode_blocks(in + done, size - done, *out + done / 3 * 4);
    *out += done / 3 * 4;
    for (; done < size; done += 3)
        base256to64(in[done], in[done + 1], in[done + 2], 0, out);
}

static void encode_rest(const unsigned char *in, size_t size, char **out)
{
    if (size > 0) base256to64(in[0], size > 1 ? in[1] : 0, 0, static_cast<int>(3 - size), out);
}

int mlist_base64_encode(const char *in, char *out, int size)
{
    /* KEPT: after every full group there must be room for four characters more, needed or not.
       Test: Base64Encode.DemandsRoomForOneGroupMore */
    const size_t allowed = size > 4 ? static_cast<size_t>(size - 1) / 4 - 1 : 0;
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in);
    const size_t length = strnlen(in, (allowed + 1) * 3);
    if (size <= 4 || length / 3 > allowed) {
        if (size > 0) *out = '\0';
        trace_sys(&g_logh, 3, 120, "String Too Long in Base64 Encode");
        return -1;
    }
    const size_t rest = length % 3;
    encode_groups(from, length - rest, &out);
    encode_rest(from + length - rest, rest, &out);
    *out = '\0';
    return 0;
}

/* -- encoding a stream -- */

static constexpr size_t STREAM_BYTES =
    12288; /* taken from the input at once, a multiple of three */
static constexpr size_t STREAM_TEXT = STREAM_BYTES / 3 * 4;

/* The lines on their way out: text holds what a block makes in the worst case, every group a line
   of its own. */
struct Base64Lines {
    FileRecord *out;
    int line_length;
    int column = 0; /* characters of full groups in the line so far */
    char letters[STREAM_TEXT + 4];
    char text[STREAM_TEXT / 4 * 6 + 8];
};

static char *end_line(Base64Lines *lines, char *to)
{
    lines->column = 0;
    *to++ = '\r';
    *to++ = '\n';
    return to;
}

/* Copies the letters of full groups, broken into lines. */
static char *break_lines(Base64Lines *lines, const char *letters, size_t size, char *to)
{
    while (size > 0) {
        const int wanted = lines->line_length - lines->column;
        size_t piece = wanted > 4 ? (static_cast<size_t>(wanted) + 3) / 4 * 4 : 4;
        if (piece > size) piece = size;
        memcpy(to, letters, piece);
        to += piece;
        letters += piece;
        size -= piece;
        lines->column += static_cast<int>(piece);
        if (lines->column >= lines->line_length) to = end_line(lines, to);
    }
    return to;
}

/* KEPT: the padded group at the end does not count as part of a line, so that right behind a line
   break it stays without one.  Test: Base64EncodeStream.EndsWithoutALineEndAfterALonePaddedGroup */
static int write_block(Base64Lines *lines, const unsigned char *block, size_t size, bool last)
{
    const size_t rest = size % 3;
    char *letters_end = lines->letters;
    encode_groups(block, size - rest, &letters_end);
    char *to = break_lines(lines, lines->letters, static_cast<size_t>(letters_end - lines->letters),
                           lines->text);
    encode_rest(block + size - rest, rest, &to);
    if (last && lines->column > 0) to = end_line(lines, to);
    if (to == lines->text) return 0;
    *to = '\0';
    return Fputs(lines->text, lines->out) < 0 ? -1 : 0;
}

int base64_encode_stream(FileRecord *in, FileRecord *out, int line_length)
{
    Base64Lines lines;
    lines.out = out;
    lines.line_length = line_length;
    unsigned char block[STREAM_BYTES];
    for (;;) {
        const size_t size = Fread(block, sizeof block, in);
        const bool last = size < sizeof block;
        if (last && (in == nullptr || Ferror(in))) return -1;
        if (write_block(&lines, block, size, last) < 0) return -1;
        if (last) return 0;
    }
}

/* -- decoding -- */

static constexpr size_t ESCAPE_SIZE = 3;

static bool is_escape(const char *at, const char *escape)
{
    return strncmp(at, escape, ESCAPE_SIZE) == 0;
}

static const char *next_escape(const char *from, const char *end)
{
    return static_cast<const char *>(memchr(from, '\x1b', static_cast<size_t>(end - from)));
}

/* Deletes a second entering escape inside a two-byte run and closes a run that the text leaves
   open: encoders that cut a text into words do not always end each word in ASCII. */
static void tidy_escapes(char *text)
{
    const char *closing = nullptr; /* what ends the run we are in */
    char *to = text;
    const char *from = text, *end = text + strlen(text);
    while (const char *escape = next_escape(from, end)) {
        const char *entered =
            is_escape(escape, g_kin) ? g_kout : (is_escape(escape, g_kin2) ? g_kout2 : nullptr);
        const bool deleted = entered != nullptr && closing != nullptr;
        if (entered != nullptr && !deleted) closing = entered;
        if (is_escape(escape, g_kout) || is_escape(escape, g_kout2)) closing = nullptr;

        const size_t kept = static_cast<size_t>(escape - from) + (deleted ? 0 : 1);
        memmove(to, from, kept);
        to += kept;
        from = escape + (deleted ? ESCAPE_SIZE : 1);
    }
    memmove(to, from, static_cast<size_t>(end - from) + 1);
    if (closing != nullptr) strcpy(to + (end - from), closing);
}

/* The value of every letter; bytes outside the alphabet are marked in refused. */
static ByteBlock values_of(ByteBlock letters, ByteBlock *refused)
{
    const ByteBlock upper = in_range(letters, 'A', 'Z'), lower = in_range(letters, 'a', 'z'),
                    digit = in_range(letters, '0', '9'), plus = equal(letters, '+'),
                    slash = equal(letters, '/');
    *refused = ~(upper | lower | digit | plus | slash);
    return letters - where(upper, 'A') - where(lower, 'a' - 26) - where(digit, '0' - 52) -
           where(plus, '+' - 62) - where(slash, '/' - 63);
}

/* Eight values of 6 bits, the first in the lowest byte, closed up to 48 bits, twice. */
static HalfBlock close_bits(ByteBlock values)
{
    HalfBlock bits = reinterpret_cast<HalfBlock>(values);
    bits = (bits & 0x00FF00FF00FF00FF) << 6 | (bits >> 8 & 0x00FF00FF00FF00FF);
    bits = (bits & 0x0000FFFF0000FFFF) << 12 | (bits >> 16 & 0x0000FFFF0000FFFF);
    return (bits & 0x00000000FFFFFFFF) << 24 | bits >> 32;
}

/* Whole blocks of letters only; answers the letters taken.  Writes two bytes more than they make.
 */
static size_t decode_blocks(const unsigned char *in, size_t size, unsigned char *out)
{
    if (!LITTLE_ENDIAN_HOST) return 0;
    size_t done = 0;
    for (; size - done >= BLOCK_SIZE; done += BLOCK_SIZE, out += BLOCK_BYTES) {
        ByteBlock refused;
        const HalfBlock bits = close_bits(values_of(load_block(in + done), &refused));
        if (any_mark(refused)) break;
        store_six_bytes(out, bits[0]);
        store_six_bytes(out + 6, bits[1]);
    }
    return done;
}

static int refuse(int msgno, const char *text)
{
    trace_sys(&g_logh, 3, msgno, "%s", text);
    return -1;
}

/* One group of up to four letters.  1 to go on behind it, 0 at the end of the text, -1 on a byte
   outside the alphabet; what the letters before that make is written. */
static int decode_group(const unsigned char *in, unsigned char **out)
{
    const int v1 = b64_dec_t[in[0]];
    if (v1 < 0) return refuse(121, "Illegal Character in Base64 Decode1");
    if (in[1] == '\0') return refuse(122, "Illegal Character in Base64 Decode2");
    const int v2 = b64_dec_t[in[1]];
    if (v2 < 0) return refuse(123, "Illegal Character in Base64 Decode3");
    *(*out)++ = static_cast<unsigned char>(v1 << 2 | v2 >> 4);

    /* a text that just stops is taken like one with its padding, but not in silence */
    if (in[2] == '\0') refuse(124, "Illegal Character in Base64 Decode4");
    if (in[2] == '\0' || in[2] == '=') return 0;
    const int v3 = b64_dec_t[in[2]];
    if (v3 < 0) return refuse(125, "Illegal Character in Base64 Decode5");
    *(*out)++ = static_cast<unsigned char>(v2 << 4 | v3 >> 2);

    if (in[3] == '\0') refuse(126, "Illegal Character in Base64 Decode6");
    if (in[3] == '\0' || in[3] == '=') return 0;
    const int v4 = b64_dec_t[in[3]];
    if (v4 < 0) return refuse(127, "Illegal Character in Base64 Decode7");
    *(*out)++ = static_cast<unsigned char>(v3 << 6 | v4);
    return 1;
}

int mlist_base64_decode(const char *in, char *out)
{
    const unsigned char *from = reinterpret_cast<const unsigned char *>(in);
    unsigned char *to = reinterpret_cast<unsigned char *>(out);
    const size_t taken = decode_blocks(from, strlen(in), to);
    from += taken;
    to += taken / 4 * 3;
    int more = 1;
    while (more > 0 && *from != '\0') {
        more = decode_group(from, &to);
        from += 4;
    }
    *to = '\0';
    if (more < 0) return -1;
    tidy_escapes(out);
    return 0;
}
