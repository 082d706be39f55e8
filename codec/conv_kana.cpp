/* The tables that the Japanese converters share: escape sequences, and half-width katakana with
   their sound marks. */
#include "codec/conv_kana.h"

#include "codec/conv.h"

const char g_kin[] = "\x1b$B";
const char g_kin2[] = "\x1b$@";
const char g_kout[] = "\x1b(B";
const char g_kout2[] = "\x1b(J";

constexpr uint16_t jis_hk2zk[63] = {
    0x2123, 0x2156, 0x2157, 0x2122, 0x2126, 0x2572, 0x2521, 0x2523, 0x2525, 0x2527, 0x2529,
    0x2563, 0x2565, 0x2567, 0x2543, 0x213C, 0x2522, 0x2524, 0x2526, 0x2528, 0x252A, 0x252B,
    0x252D, 0x252F, 0x2531, 0x2533, 0x2535, 0x2537, 0x2539, 0x253B, 0x253D, 0x253F, 0x2541,
    0x2544, 0x2546, 0x2548, 0x254A, 0x254B, 0x254C, 0x254D, 0x254E, 0x254F, 0x2552, 0x2555,
    0x2558, 0x255B, 0x255E, 0x255F, 0x2560, 0x2561, 0x2562, 0x2564, 0x2566, 0x2568, 0x2569,
    0x256A, 0x256B, 0x256C, 0x256D, 0x256F, 0x2573, 0x212B, 0x212C,
};

constexpr uint16_t sjis_hk2zk[63] = {
    0x8142, 0x8175, 0x8176, 0x8141, 0x8145, 0x8392, 0x8340, 0x8342, 0x8344, 0x8346, 0x8348,
    0x8383, 0x8385, 0x8387, 0x8362, 0x815B, 0x8341, 0x8343, 0x8345, 0x8347, 0x8349, 0x834A,
    0x834C, 0x834E, 0x8350, 0x8352, 0x8354, 0x8356, 0x8358, 0x835A, 0x835C, 0x835E, 0x8360,
    0x8363, 0x8365, 0x8367, 0x8369, 0x836A, 0x836B, 0x836C, 0x836D, 0x836E, 0x8371, 0x8374,
    0x8377, 0x837A, 0x837D, 0x837E, 0x8380, 0x8381, 0x8382, 0x8384, 0x8386, 0x8388, 0x8389,
    0x838A, 0x838B, 0x838C, 0x838D, 0x838F, 0x8393, 0x814A, 0x814B,
};

static constexpr unsigned char KANA_U = 0xB3;
static constexpr uint16_t JIS_VU = 0x2574;
static constexpr uint16_t SJIS_VU = 0x8394;

/* ka to to, ha to ho */
static constexpr bool can_be_voiced(int kana)
{
    return (kana >= 0xB6 && kana <= 0xC4) || (kana >= 0xCA && kana <= 0xCE);
}

/* ha to ho */
static constexpr bool can_be_semivoiced(int kana)
{
    return kana >= 0xCA && kana <= 0xCE;
}

/* In both codes the voiced form stands one place behind the plain one, the semi-voiced two. */
static constexpr WideKana wide_kana(const uint16_t *table, uint16_t vu, int kana, int mark)
{
    const uint16_t plain = table[kana - KANA_FIRST];
    if (mark == VOICED && kana == KANA_U) return {vu, true};
    if (mark == VOICED && can_be_voiced(kana)) return {static_cast<uint16_t>(plain + 1), true};
    if (mark == SEMIVOICED && can_be_semivoiced(kana))
        return {static_cast<uint16_t>(plain + 2), true};
    return {plain, false};
}

static constexpr WideKanaTable all_of(const uint16_t *table, uint16_t vu)
{
    WideKanaTable all = {};
    for (int kana = KANA_FIRST; kana <= KANA_LAST; ++kana)
        for (int mark = 0; mark < KANA_MARKS; ++mark)
            all.row[kana - KANA_FIRST][mark] = wide_kana(table, vu, kana, mark);
    return all;
}

constexpr WideKanaTable jis_kana = all_of(jis_hk2zk, JIS_VU);
constexpr WideKanaTable sjis_kana = all_of(sjis_hk2zk, SJIS_VU);
