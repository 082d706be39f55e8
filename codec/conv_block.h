/* Sixteen bytes at a time, in vector types that gcc and clang turn into whatever the machine has.
   Only the codecs use this; the rule for a single character always stands beside the one for a
   block, and the tests hold the two together. */
#ifndef CODEC_CONV_BLOCK_H
#define CODEC_CONV_BLOCK_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>

typedef unsigned char ByteBlock __attribute__((vector_size(16)));
typedef uint16_t PairBlock __attribute__((vector_size(16)));
typedef uint64_t HalfBlock __attribute__((vector_size(16)));

constexpr size_t BLOCK_SIZE = sizeof(ByteBlock);
constexpr bool LITTLE_ENDIAN_HOST = std::endian::native == std::endian::little;

inline ByteBlock load_block(const unsigned char *from)
{
    ByteBlock block;
    memcpy(&block, from, sizeof block);
    return block;
}

inline void store_block(unsigned char *to, ByteBlock block)
{
    memcpy(to, &block, sizeof block);
}

/* Marks are blocks whose bytes are 0xFF (marked) or 0: whether there is one, and how many bytes
   stand before the first one when there is. */
#if defined(__SSE2__)
inline unsigned bits_of(ByteBlock marks) /* one of each byte, the first the lowest */
{
    typedef char CharBlock __attribute__((vector_size(16)));
    return static_cast<unsigned>(__builtin_ia32_pmovmskb128(reinterpret_cast<CharBlock>(marks)));
}

inline bool any_mark(ByteBlock marks)
{
    return bits_of(marks) != 0;
}

inline size_t bytes_before_mark(ByteBlock marks)
{
    return static_cast<size_t>(std::countr_zero(bits_of(marks)));
}
#else
inline bool any_mark(ByteBlock marks)
{
    const HalfBlock halves = reinterpret_cast<HalfBlock>(marks);
    return (halves[0] | halves[1]) != 0;
}

inline size_t bytes_before_bit(uint64_t half)
{
    return static_cast<size_t>(LITTLE_ENDIAN_HOST ? std::countr_zero(half)
                                                  : std::countl_zero(half)) /
           8;
}

inline size_t bytes_before_mark(ByteBlock marks)
{
    const HalfBlock halves = reinterpret_cast<HalfBlock>(marks);
    return halves[0] != 0 ? bytes_before_bit(halves[0]) : 8 + bytes_before_bit(halves[1]);
}
#endif

/* Marks the bytes from low to high. */
inline ByteBlock in_range(ByteBlock block, unsigned char low, unsigned char high)
{
    return reinterpret_cast<ByteBlock>(block - low <=
                                       ByteBlock{} + static_cast<unsigned char>(high - low));
}

/* The same for the eight values of two bytes each. */
inline PairBlock in_range(PairBlock block, uint16_t low, uint16_t high)
{
    return reinterpret_cast<PairBlock>(block - low <=
                                       PairBlock{} + static_cast<uint16_t>(high - low));
}

/* The first and the second byte of each pair as a number, and the way back. */
inline PairBlock first_bytes(PairBlock pairs)
{
    return LITTLE_ENDIAN_HOST ? pairs & 0xFF : pairs >> 8;
}

inline PairBlock second_bytes(PairBlock pairs)
{
    return LITTLE_ENDIAN_HOST ? pairs >> 8 : pairs & 0xFF;
}

inline PairBlock join_bytes(PairBlock first, PairBlock second)
{
    return LITTLE_ENDIAN_HOST ? first | second << 8 : first << 8 | second;
}

/* Converts the longest run of characters at the start of in that the rule takes, as far as whole
   blocks reach: Rule::refused() marks what is not for this rule, Rule::convert() keeps the size,
   Rule::unit is the bytes of a character.  Answers the bytes converted; out must have room for
   size bytes and may be scribbled on up to there. */
template <class Rule>
inline size_t convert_run(const unsigned char *in, unsigned char *out, size_t size)
{
    size_t done = 0;
    while (size - done >= BLOCK_SIZE) {
        const ByteBlock block = load_block(in + done);
        const ByteBlock refused = Rule::refused(block);
        store_block(out + done, Rule::convert(block));
        if (any_mark(refused)) return done + bytes_before_mark(refused) / Rule::unit * Rule::unit;
        done += BLOCK_SIZE;
    }
    return done;
}

/* ASCII, copied as it is. */
struct AsciiRule {
    static constexpr size_t unit = 1;
    static ByteBlock refused(ByteBlock block)
    {
        return reinterpret_cast<ByteBlock>(block >= ByteBlock{} + 0x80);
    }
    static ByteBlock convert(ByteBlock block) { return block; }
};

#endif
