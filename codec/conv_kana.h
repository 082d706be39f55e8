/* Half-width katakana (0xA1 to 0xDF) and the sound marks that merge into them. */
#ifndef CODEC_CONV_KANA_H
#define CODEC_CONV_KANA_H

#include <stdint.h>

constexpr unsigned char KANA_FIRST = 0xA1;
constexpr unsigned char KANA_LAST = 0xDF;
constexpr unsigned char KANA_VOICED_MARK = 0xDE;
constexpr unsigned char KANA_SEMIVOICED_MARK = 0xDF;

inline bool is_kana(unsigned char c)
{
    return c >= KANA_FIRST && c <= KANA_LAST;
}

/* A full-width character, high byte first, and whether the mark behind the kana is part of it. */
struct WideKana {
    uint16_t code;
    bool took_mark;
};

/* The full-width form of a kana, in JIS X 0208 or in Shift_JIS.  next is the half-width code that
   follows in the text, 0 when none does. */
WideKana jis_wide_kana(unsigned char kana, unsigned char next);
WideKana sjis_wide_kana(unsigned char kana, unsigned char next);

#endif
