/* The Japanese conversions one character after the other, for the tests to compare with. */
#ifndef TESTS_REFERENCE_JIS_H
#define TESTS_REFERENCE_JIS_H

#include <stdint.h>

#include <string>

namespace reference
{

struct Converted {
    bool complete;      /* the result was 0, or not null */
    std::string output; /* without the terminator; may hold zero bytes */
    bool operator==(const Converted &) const = default;
};

std::string sjis2jis(const std::string &text, int limit);
Converted euc2jis(const std::string &text, int size);

/* altered_out is what becomes of the input. */
Converted jis2sjis(const std::string &text, int limit, std::string *altered_out);

/* The Shift_JIS code of a JIS code with both bytes in 0x21 to 0x7E, by row and cell. */
uint16_t sjis_of_jis(uint16_t jis);

/* The JIS code of half-width katakana 0xA1 to 0xDF, with the mark behind it (0: none); 0 when the
   mark does not belong to that kana. */
uint16_t jis_of_kana(unsigned char kana, unsigned char mark);

} // namespace reference

#endif
