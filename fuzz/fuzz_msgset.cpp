/* Any text as a message set: number by number, and element by element as a search reads it, beside
   a plain reader.  The first two bytes are the maximum, up to 1,023. */
#include <stdint.h>
#include <stdlib.h>

#include <set>
#include <string>
#include <vector>

#include "archive/token.h"
#include "fuzz/demand.h"
#include "mlist/token.h"
#include "tests/reference/msgset.h"

/* The exported way: the numbers, and where the line goes on. */
static void compare_numbers(const reference::MessageSet &expected, std::string text,
                            uint32_t maximum)
{
    std::vector<uint32_t> numbers;
    char *start = text.data();
    while (const uint32_t number = list_gettoken_msgset(start, maximum)) {
        numbers.push_back(number);
        start = nullptr;
    }
    demand(numbers == expected.numbers);
    if (expected.rest != std::string::npos) demand(astring_position() == &text[expected.rest]);
    set_astring_position(nullptr);
}

/* The same as a set of ranges, every one within the maximum. */
static void compare_ranges(const reference::MessageSet &expected, const std::string &text,
                           uint32_t maximum)
{
    std::set<uint32_t> numbers;
    SetReader reader = {text.c_str(), maximum};
    uint32_t low = 0, high = 0;
    while (read_element(&reader, &low, &high) == SetElement::range && low != 0) {
        demand(low <= maximum && high <= maximum);
        numbers.insert(low);
        for (uint32_t number = low; number <= high; ++number)
            numbers.insert(number);
    }
    demand(numbers == std::set<uint32_t>(expected.numbers.begin(), expected.numbers.end()));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size > 2000) return 0;
    const uint32_t maximum = data[0] | (data[1] & 3u) << 8;
    std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    const reference::MessageSet expected = reference::read_message_set(text, maximum);
    compare_numbers(expected, text, maximum);
    compare_ranges(expected, text, maximum);
    return 0;
}
