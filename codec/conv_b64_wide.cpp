/* Base64 encoding with 32 bytes of output at a time, where the processor can. */
#include "codec/conv_b64.h"

#if defined(__x86_64__)
#include <immintrin.h>

static constexpr size_t WIDE_BYTES = 24; /* make a block of 32 letters */
static constexpr size_t WIDE_LETTERS = 32;
static constexpr size_t LANE_BYTES = 12;             /* of each half */
static constexpr size_t WIDE_READ = LANE_BYTES + 16; /* bytes looked at */

/* Three bytes of each group of four to where their bits are picked from: b a c b. */
#define GROUP_ORDER 10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1

/* A letter's distance from its value, by class: a to z, the ten digits, "+", "/", A to Z. */
#define DISTANCES                                                                                  \
    0, 0, 'A', '/' - 63, '+' - 62, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,     \
        '0' - 52, '0' - 52, '0' - 52, '0' - 52, 'a' - 26

#define WIDE __attribute__((target("avx2")))

WIDE static __m256i values_of(__m256i bytes)
{
    const __m256i groups = _mm256_shuffle_epi8(bytes, _mm256_set_epi8(GROUP_ORDER, GROUP_ORDER));
    /* Multiplying shifts each of two values of a half by a distance of its own. */
    const __m256i odd = _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)),
                                           _mm256_set1_epi32(0x04000040));
    const __m256i even = _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)),
                                            _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(odd, even);
}

/* Classes: 0 for a to z, 1 to 10 for the digits, 11, 12, and 13 for A to Z. */
WIDE static __m256i letters_of(__m256i values)
{
    const __m256i upper =
        _mm256_and_si256(_mm256_cmpgt_epi8(_mm256_set1_epi8(26), values), _mm256_set1_epi8(13));
    const __m256i classes = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)), upper);
    const __m256i distances = _mm256_shuffle_epi8(_mm256_set_epi8(DISTANCES, DISTANCES), classes);
    return _mm256_add_epi8(values, distances);
}

WIDE static size_t encode(const unsigned char *in, size_t size, char *out)
{
    size_t done = 0;
    for (; size - done >= WIDE_READ; done += WIDE_BYTES, out += WIDE_LETTERS) {
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + done));
        const __m128i high =
            _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + done + LANE_BYTES));
        const __m256i letters = letters_of(values_of(_mm256_set_m128i(high, low)));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), letters);
    }
    return done;
}

size_t b64_encode_wide(const unsigned char *in, size_t size, char *out)
{
    return size >= WIDE_READ && __builtin_cpu_supports("avx2") ? encode(in, size, out) : 0;
}

#else

size_t b64_encode_wide(const unsigned char *, size_t, char *)
{
    return 0;
}

#endif
