#include "tests/reference/jis.h"

namespace reference
{

/* -- half-width katakana, by way of Unicode -- */

/* In the order of the half-width codes from 0xA1 on. */
static const std::u16string half_width = u"。「」、・ヲァィゥェォャュョッーアイウエオカキクケコ"
                                         u"サシスセソタチツテトナニヌネノハヒフヘホ"
                                         u"マミムメモヤユヨラリルレロワン゛゜";
static const std::u16string takes_voiced = u"カキクケコサシスセソタチツテトハヒフヘホ";
static const std::u16string takes_semivoiced = u"ハヒフヘホ";

static uint16_t jis_of_unicode(char16_t c)
{
    switch (c) {
    case u'、':
        return 0x2122;
    case u'。':
        return 0x2123;
    case u'・':
        return 0x2126;
    case u'゛':
        return 0x212B;
    case u'゜':
        return 0x212C;
    case u'ー':
        return 0x213C;
    case u'「':
        return 0x2156;
    case u'」':
        return 0x2157;
    default: /* row 5 has the katakana in the order of Unicode */
        return static_cast<uint16_t>(0x2521 + (c - u'ァ'));
    }
}

uint16_t jis_of_kana(unsigned char kana, unsigned char mark)
{
    const char16_t plain = half_width[kana - 0xA1u];
    if (mark == 0) return jis_of_unicode(plain);
    if (mark == 0xDE && plain == u'ウ') return jis_of_unicode(u'ヴ');
    if (mark == 0xDE && takes_voiced.find(plain) != std::u16string::npos)
        return jis_of_unicode(static_cast<char16_t>(plain + 1));
    if (mark == 0xDF && takes_semivoiced.find(plain) != std::u16string::npos)
        return jis_of_unicode(static_cast<char16_t>(plain + 2));
    return 0;
}

uint16_t sjis_of_jis(uint16_t jis)
{
    const int row = (jis >> 8) - 0x20, cell = (jis & 0xFF) - 0x20;
    const int lead_index = (row - 1) / 2;                       /* two rows share a lead byte */
    const int trail_index = (row % 2 == 0 ? 94 : 0) + cell - 1; /* 0 to 187 */
    const int lead = lead_index < 31 ? 0x81 + lead_index : 0xE0 + lead_index - 31;
    const int trail = 0x40 + trail_index + (trail_index >= 63 ? 1 : 0); /* 0x7F is left out */
    return static_cast<uint16_t>(lead << 8 | trail);
}

/* -- shared -- */

static unsigned byte_at(const std::string &text, size_t at)
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

static std::string two_bytes(unsigned code)
{
    return {static_cast<char>(code >> 8), static_cast<char>(code)};
}

static bool half_width_code(unsigned byte)
{
    return byte >= 0xA1 && byte <= 0xDF;
}

/* The code of the kana, and whether the byte that follows is its mark. */
static unsigned code_with_mark(unsigned kana, unsigned next, bool *took_mark)
{
    const unsigned char plain = static_cast<unsigned char>(kana);
    unsigned code = 0;
    if (next == 0xDE || next == 0xDF) code = jis_of_kana(plain, static_cast<unsigned char>(next));
    *took_mark = code != 0;
    return code != 0 ? code : jis_of_kana(plain, 0);
}

/* -- Shift_JIS to JIS -- */

static unsigned reduced(int byte)
{
    const unsigned low = static_cast<unsigned>(byte) % 256;
    return low >= 0xA1 && low <= 0xFE ? low % 128 : low;
}

static std::string jis_of_sjis(int s, int t)
{
    int first, second;
    if (t < 0x9F) {
        first = s < 0xE0 ? 2 * s - 0x61 : 2 * s - 0xE1;
        second = t < 0x7F ? t + 0x61 : t + 0x60;
    } else {
        first = s < 0xE0 ? 2 * s - 0x60 : 2 * s - 0xE0;
        second = t + 2;
    }
    return two_bytes(reduced(first) * 256 + reduced(second));
}

std::string sjis2jis(const std::string &text, int limit)
{
    std::string output;
    bool two_byte = false;
    for (size_t at = 0; at < text.size() && static_cast<long>(output.size()) < limit + 3L; ++at) {
        const unsigned byte = byte_at(text, at);
        if (byte < 0x80) {
            if (two_byte) output += "\x1b(B";
            two_byte = false;
            output += text[at];
            continue;
        }
        if (!half_width_code(byte) && at + 1 == text.size()) break;
        if (!two_byte) output += "\x1b$B";
        two_byte = true;
        if (half_width_code(byte)) {
            bool took_mark;
            output += two_bytes(code_with_mark(byte, byte_at(text, at + 1), &took_mark));
            at += took_mark ? 1 : 0;
        } else {
            ++at;
            output += jis_of_sjis(static_cast<int>(byte), static_cast<int>(byte_at(text, at)));
        }
    }
    return output + (two_byte ? "\x1b(B" : "");
}

/* -- EUC-JP to JIS -- */

/* The writes that the text asks for, in order; those that fit are made. */
Converted euc2jis(const std::string &text, int size)
{
    if (size <= 0) return {false, ""};
    std::string output;
    bool two_byte = false, fits = true;
    const auto write = [&](const std::string &bytes) {
        fits = fits && output.size() + bytes.size() + 1 <= static_cast<size_t>(size);
        if (fits) output += bytes;
    };
    const auto set_mode = [&](bool wanted) {
        if (two_byte != wanted) write(wanted ? "\x1b$B" : "\x1b(B");
        two_byte = wanted;
    };
    const auto kana_at = [&](size_t at) {
        return byte_at(text, at) == 0x8E && half_width_code(byte_at(text, at + 1))
                   ? byte_at(text, at + 1)
                   : 0;
    };
    for (size_t at = 0; at < text.size() && fits; ++at) {
        const unsigned byte = byte_at(text, at), next = byte_at(text, at + 1);
        if (kana_at(at) != 0) {
            bool took_mark;
            const unsigned code = code_with_mark(kana_at(at), kana_at(at + 2), &took_mark);
            set_mode(true);
            write(two_bytes(code));
            at += took_mark ? 3 : 1;
        } else if (byte == 0x8E) {
            continue;
        } else if (byte < 0xA1) {
            set_mode(false);
            write(text.substr(at, 1));
        } else if (at + 1 < text.size()) {
            set_mode(true);
            write(two_bytes(byte % 128 * 256 + next % 128));
            ++at;
        }
    }
    set_mode(false);
    return {fits, output};
}

/* -- JIS to Shift_JIS -- */

static std::string sjis_of_high_jis(int c1, int c2)
{
    int lead, trail;
    if (c1 % 2 == 1) {
        lead = c1 / 2 + (c1 < 0xDF ? 0x31 : 0x71);
        trail = c2 < 0xE0 ? c2 - 0x61 : c2 - 0x60;
    } else {
        lead = c1 / 2 + (c1 < 0xDF ? 0x30 : 0x70);
        trail = c2 - 2;
    }
    return {static_cast<char>(lead), static_cast<char>(trail)};
}

Converted jis2sjis(const std::string &text, int limit, std::string *altered_out)
{
    enum { ascii, pairs, kana } run = ascii;
    std::string output;
    std::string &in = *altered_out;
    in = text;
    const auto full = [&](size_t more) {
        return static_cast<long>(output.size() + more) + 1 > limit;
    };
    if (full(0)) return {false, ""};
    for (size_t at = 0; at < in.size();) {
        const unsigned byte = byte_at(in, at);
        if (byte == 0x1B) {
            const std::string escape = in.substr(at, 3);
            if (escape.size() < 3) return {false, output};
            if (escape == "\x1b$B" || escape == "\x1b$@")
                run = pairs;
            else if (escape == "\x1b(I")
                run = kana;
            else if (escape[1] == '(')
                run = ascii;
            else
                return {false, output};
            at += 3;
        } else if (run == ascii) {
            if (byte < 0x20 || byte > 0x7E || full(1)) return {false, output};
            output += in[at++];
        } else if (run == kana) {
            if (byte < 0x21 || byte > 0x5F || full(2)) return {false, output};
            bool took_mark;
            const unsigned next = byte_at(in, at + 1);
            const unsigned mark = next == '^' || next == '_' ? next + 0x80 : 0;
            const unsigned code = code_with_mark(byte + 0x80, mark, &took_mark);
            output += two_bytes(sjis_of_jis(static_cast<uint16_t>(code)));
            at += took_mark ? 2 : 1;
        } else if (at + 1 == in.size()) {
            return {false, output};
        } else if (byte_at(in, at + 1) == 0x1B) {
            ++at;
        } else {
            if (full(2)) return {false, output};
            for (size_t i = at; i < at + 2; ++i)
                if (byte_at(in, i) >= 0x21 && byte_at(in, i) <= 0x7E)
                    in[i] = static_cast<char>(byte_at(in, i) + 0x80);
            output += sjis_of_high_jis(static_cast<int>(byte_at(in, at)),
                                       static_cast<int>(byte_at(in, at + 1)));
            at += 2;
        }
    }
    return {run == ascii, output};
}

} // namespace reference
