/* The slow, obvious way through message-number arguments, over the archive's numbers in ascending
   order. */
#ifndef TESTS_REFERENCE_NUMBER_ARGS_H
#define TESTS_REFERENCE_NUMBER_ARGS_H

#include <stddef.h>
#include <stdint.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace reference
{
using Numbers = std::vector<uint32_t>;

/* Without its line end, blanks at both ends and blanks beside commas and hyphens. */
std::string correct(const std::string &text);

/* The whole archive's range for a text with an item "all" or "*", if it fits into size bytes. */
std::string expand(const Numbers &archive, const std::string &text, size_t size);

/* Of the numbers from the archive's first to its last, those that the text names. */
std::set<uint32_t> named(const Numbers &archive, const std::string &text);

/* First and last position of a summary; none for a malformed argument. */
std::optional<std::pair<int, int>> positions(const Numbers &archive, const std::string &text);

/* Ascending numbers for display, if the text fits into size bytes; else their list. */
std::string shorten(const Numbers &numbers, size_t size);

/* The numbers with single blanks between them. */
std::string list_of(const Numbers &numbers);
} // namespace reference

#endif
