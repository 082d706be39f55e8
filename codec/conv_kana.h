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

/* Every kana with every mark behind it, worked out beforehand: which kana have a voiced form is too
   irregular for a processor to guess. */
enum KanaMark { NO_MARK, VOICED, SEMIVOICED, KANA_MARKS };

struct WideKanaTable {
    WideKana row[KANA_LAST - KANA_FIRST + 1][KANA_MARKS];
};
extern const WideKanaTable jis_kana, sjis_kana;

/* A mark is rare enough for a branch: without one, nothing waits for the table to tell how far the
   text moves on. */
inline WideKana wide_kana(const WideKanaTable &table, unsigned char kana, unsigned char next)
{
    const WideKana *row = table.row[kana - KANA_FIRST];
    if (next != KANA_VOICED_MARK && next != KANA_SEMIVOICED_MARK) return {row[NO_MARK].code, false};
    return row[next == KANA_VOICED_MARK ? VOICED : SEMIVOICED];
}

/* The full-width form of a kana, in JIS X 0208 or in Shift_JIS.  next is the half-width code that
   follows in the text, 0 when none does. */
inline WideKana jis_wide_kana(unsigned char kana, unsigned char next)
{
    return wide_kana(jis_kana, kana, next);
}

inline WideKana sjis_wide_kana(unsigned char kana, unsigned char next)
{
    return wide_kana(sjis_kana, kana, next);
}

#endif
