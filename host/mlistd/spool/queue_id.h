/* Names of submissions: 14 characters that sort by time. */
#ifndef HOST_MLISTD_SPOOL_QUEUE_ID_H
#define HOST_MLISTD_SPOOL_QUEUE_ID_H

#include <stdint.h>

#include <algorithm>
#include <string>
#include <string_view>

constexpr std::string_view QUEUE_ID_DIGITS = "0123456789abcdefghijklmnopqrstuv";
constexpr size_t QUEUE_ID_LENGTH = 14; /* 11 for 55 bits of microseconds, 3 for a serial number */

inline std::string make_queue_id(uint64_t microseconds, uint32_t serial)
{
    std::string id(QUEUE_ID_LENGTH, '0');
    for (size_t i = 0; i < 3; i++, serial >>= 5)
        id[QUEUE_ID_LENGTH - 1 - i] = QUEUE_ID_DIGITS[serial & 31];
    for (size_t i = 3; i < QUEUE_ID_LENGTH; i++, microseconds >>= 5)
        id[QUEUE_ID_LENGTH - 1 - i] = QUEUE_ID_DIGITS[microseconds & 31];
    return id;
}

inline bool is_queue_id(std::string_view text)
{
    return text.size() == QUEUE_ID_LENGTH && std::all_of(text.begin(), text.end(), [](char c) {
               return QUEUE_ID_DIGITS.find(c) != std::string_view::npos;
           });
}

#endif
