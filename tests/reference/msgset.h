/* The slow, obvious way through a message set. */
#ifndef TESTS_REFERENCE_MSGSET_H
#define TESTS_REFERENCE_MSGSET_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace reference
{
/* What a set says. */
struct MessageSet {
    std::vector<uint32_t> numbers;   /* in the order of the text, the final 0 left out */
    size_t rest = std::string::npos; /* where the line goes on; npos: nowhere */
};

MessageSet read_message_set(const std::string &text, uint32_t maximum);
} // namespace reference

#endif
